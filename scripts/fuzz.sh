#!/bin/sh
# Builds the libFuzzer targets of tests/fuzz/ with clang and runs one of them.
#
# usage: scripts/fuzz.sh TARGET [SECONDS [LIBFUZZER-OPTION...]]
#        scripts/fuzz.sh --list
#   TARGET   a fuzz target, the name of a tests/fuzz/TARGET.cpp
#            (e.g. stripecut_diff_fuzz)
#   SECONDS  how long to fuzz, default 60
#   options  passed on to the fuzzer, e.g. -jobs=2 -workers=2
#   --list   print the targets and stop
#
# Installs what is missing (cmake, make, clang with its libFuzzer runtime, the
# OpenCV core headers); configures and builds every target into build-fuzz/
# with clang++ -fsanitize=fuzzer,address,undefined (tests/fuzz/CMakeLists.txt);
# then runs TARGET for SECONDS. The fuzzer reads the seed corpus
# tests/fuzz/corpus/TARGET/ (if there is one) and keeps what it finds new in
# build-fuzz/corpus/TARGET/, which later runs start from too. An input that
# fails is written to build-fuzz/artifacts/TARGET/ with the fuzzer's report.
# To run one input again: build-fuzz/TARGET FILE.
#
# Exit code: 0 the time ran out and nothing failed; 1 the fuzzer found an input
# that fails (a difference it checks, a crash, a sanitizer report, a leak, a
# timeout); 2 usage error; 3 the tools could not be installed; 4 the build
# failed.
set -eu
cd "$(dirname "$0")/.."

usage() { sed -n '2,/^set/p' "$0" | grep '^#' | sed 's/^# \{0,1\}//'; }
fail() { code=$1; shift; echo "fuzz.sh: $*" >&2; exit "$code"; }
targets() { for f in tests/fuzz/*_fuzz.cpp; do [ -e "$f" ] && basename "$f" .cpp; done; }

case "${1:-}" in
  -h|--help) usage; exit 0 ;;
  --list) targets; exit 0 ;;
  "") fail 2 "which target? $(targets | tr '\n' ' ')(try --help)" ;;
  -*) fail 2 "unknown option $1 (try --help)" ;;
esac
target=$1
shift
[ -f "tests/fuzz/$target.cpp" ] || fail 2 "no target '$target': $(targets | tr '\n' ' ')"
seconds=60
if [ $# -gt 0 ]; then
  case "$1" in
    ''|*[!0-9]*) fail 2 "SECONDS must be a whole number, not '$1'" ;;
  esac
  seconds=$1
  shift
fi

# --- tools -------------------------------------------------------------------

. scripts/deps.sh
LASERCALI_PACKAGES="cmake make clang libopencv-core-dev"
lasercali_install_deps || fail 3 "could not install $LASERCALI_PACKAGES"

work=build-fuzz
mkdir -p "$work"
# libFuzzer's runtime comes with a package of its own (libclang-rt-N-dev),
# which apt only recommends along with clang.
probe="$work/probe.cpp"
echo 'extern "C" int LLVMFuzzerTestOneInput(const unsigned char*, unsigned long) { return 0; }' >"$probe"
if ! clang++ -fsanitize=fuzzer "$probe" -o "$work/probe" >/dev/null 2>&1; then
  major=$(clang++ -dumpversion | cut -d. -f1)
  LASERCALI_PACKAGES="libclang-rt-$major-dev"
  lasercali_install_deps || fail 3 "could not install $LASERCALI_PACKAGES (libFuzzer)"
  clang++ -fsanitize=fuzzer "$probe" -o "$work/probe" >/dev/null 2>&1 ||
    fail 3 "clang++ cannot link a libFuzzer target"
fi
rm -f "$probe" "$work/probe"

# --- build -------------------------------------------------------------------

CXX=clang++ cmake -S tests/fuzz -B "$work" -DCMAKE_CXX_COMPILER=clang++ >"$work/configure.log" 2>&1 ||
  { cat "$work/configure.log" >&2; fail 4 "configuring build-fuzz failed"; }
cmake --build "$work" -j"$(nproc 2>/dev/null || echo 2)" >"$work/build.log" 2>&1 ||
  { tail -n 40 "$work/build.log" >&2; fail 4 "building the fuzz targets failed ($work/build.log)"; }

# --- run ---------------------------------------------------------------------

corpus="$work/corpus/$target"
artifacts="$work/artifacts/$target"
mkdir -p "$corpus" "$artifacts"
seeds=""
[ -d "tests/fuzz/corpus/$target" ] && seeds="tests/fuzz/corpus/$target"
echo "fuzz.sh: $target for ${seconds} s; corpus $corpus${seeds:+ and $seeds}"
status=0
# shellcheck disable=SC2086  # $seeds is one folder or nothing
"$work/$target" -max_total_time="$seconds" -timeout=20 -print_final_stats=1 \
  -artifact_prefix="$artifacts/" "$@" "$corpus" $seeds || status=$?
if [ "$status" -ne 0 ]; then
  echo "fuzz.sh: $target found a failing input (exit $status); see $artifacts/" >&2
  exit 1
fi
echo "fuzz.sh: $target ran ${seconds} s, nothing failed"
