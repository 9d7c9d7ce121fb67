#!/bin/sh
# Builds the libFuzzer targets of tests/fuzz/ with clang and runs them.
#
# usage: scripts/fuzz.sh TARGET [SECONDS [LIBFUZZER-OPTION...]]
#        scripts/fuzz.sh --all [SECONDS]
#        scripts/fuzz.sh --list
#   TARGET   a fuzz target, the name of a tests/fuzz/TARGET.cpp
#            (e.g. node_commands_fuzz; --list prints them)
#   SECONDS  how long to fuzz, default 60 (--all: 30 per target)
#   options  passed on to the fuzzer, e.g. -jobs=2 -workers=2 -runs=1000000
#            (with -jobs the jobs' logs go to build-fuzz/logs/TARGET.jobs/,
#            and the executions counted are those of every job)
#   --all    runs every target for SECONDS, half as many again at a time as
#            the machine has cores (3 on 2), and prints a table of executions
#            and time per target (CI's regression run)
#   --list   prints the targets and stops
#
# Installs what is missing (cmake, make, clang with its libFuzzer runtime,
# the OpenCV and rapidjson headers); configures the project into build-fuzz/
# with -DLASERCALI_FUZZ=ON, which builds every library the targets link with
# clang++ -fsanitize=fuzzer-no-link,address,undefined,float-cast-overflow;
# builds the targets; then runs TARGET for SECONDS. The fuzzer starts from
# the seed corpus tests/fuzz/corpus/TARGET/ and the files that
# tests/fuzz/corpus/TARGET.extra names, and keeps what it finds new in
# build-fuzz/corpus/TARGET/, which later runs start from too. An input that
# fails is written to build-fuzz/artifacts/TARGET/ with the fuzzer's report.
# To run one input again: build-fuzz/tests/fuzz/TARGET FILE. The targets run
# in a /tmp of their own (docs/fuzzing.md), so they never touch the
# machine's pictures.
#
# Exit code: 0 the time ran out and nothing failed; 1 the fuzzer found an
# input that fails (a check of the target, a crash, a sanitizer report, a
# leak, a timeout, running out of memory) or the target cannot run here;
# 2 usage error; 3 the tools could not be installed; 4 the build failed.
set -eu
cd "$(dirname "$0")/.."

usage() { sed -n '2,/^set/p' "$0" | grep '^#' | sed 's/^# \{0,1\}//'; }
fail() { code=$1; shift; echo "fuzz.sh: $*" >&2; exit "$code"; }
targets() { for f in tests/fuzz/*_fuzz.cpp; do [ -e "$f" ] && basename "$f" .cpp; done; }
whole_number() {
  case "$1" in
    ''|*[!0-9]*) fail 2 "SECONDS must be a whole number, not '$1'" ;;
  esac
}

all=0
case "${1:-}" in
  -h|--help) usage; exit 0 ;;
  --list) targets; exit 0 ;;
  --all) all=1; shift ;;
  "") fail 2 "which target? $(targets | tr '\n' ' ')(try --help)" ;;
  -*) fail 2 "unknown option $1 (try --help)" ;;
  *) target=$1; shift
     [ -f "tests/fuzz/$target.cpp" ] || fail 2 "no target '$target': $(targets | tr '\n' ' ')" ;;
esac
seconds=60
[ "$all" -eq 1 ] && seconds=30
if [ $# -gt 0 ]; then
  whole_number "$1"
  seconds=$1
  shift
fi
[ "$all" -eq 1 ] && [ $# -gt 0 ] && fail 2 "--all takes SECONDS and nothing more"

# --- tools -------------------------------------------------------------------

. scripts/deps.sh
LASERCALI_PACKAGES="cmake make clang libopencv-core-dev libopencv-imgcodecs-dev libopencv-imgproc-dev libopencv-calib3d-dev rapidjson-dev"
lasercali_install_deps || fail 3 "could not install $LASERCALI_PACKAGES"

work=build-fuzz
mkdir -p "$work"
lasercali_install_clang_runtime -fsanitize=fuzzer \
  'extern "C" int LLVMFuzzerTestOneInput(const unsigned char*, unsigned long) { return 0; }' ||
  fail 3 "clang++ cannot link a libFuzzer target"

# --- build -------------------------------------------------------------------

# A build folder configured from another source folder (the fuzz targets
# were once a project of their own) is started afresh.
if [ -f "$work/CMakeCache.txt" ] &&
  ! grep -qx "CMAKE_HOME_DIRECTORY:INTERNAL=$(pwd)" "$work/CMakeCache.txt"; then
  rm -rf "$work/CMakeCache.txt" "$work/CMakeFiles"
fi
echo "fuzz.sh: building the fuzz targets in $work/"
# Line tables only (-g1): a crash's stack still names file and line. (-O1
# builds about 15 s quicker but runs a third to two thirds fewer inputs in
# the same time.)
cmake -S . -B "$work" -DCMAKE_CXX_COMPILER=clang++ -DCMAKE_BUILD_TYPE=RelWithDebInfo \
  -DCMAKE_CXX_FLAGS_RELWITHDEBINFO="-O2 -g1 -DNDEBUG" -DLASERCALI_FUZZ=ON >"$work/configure.log" 2>&1 ||
  { cat "$work/configure.log" >&2; fail 4 "configuring $work failed"; }
cmake --build "$work" --target fuzz_targets -j"$(nproc 2>/dev/null || echo 2)" >"$work/build.log" 2>&1 ||
  { tail -n 40 "$work/build.log" >&2; fail 4 "building the fuzz targets failed ($work/build.log)"; }

# --- run ---------------------------------------------------------------------

# fuzz TARGET SECONDS [OPTION...]: runs one target; its output goes to
# build-fuzz/logs/TARGET.log and the end of it to the terminal. The fuzzer
# runs in build-fuzz/logs/TARGET.jobs/, where libFuzzer writes the logs of
# its jobs (fuzz-N.log) when -jobs is given; the executions of all of them
# are counted.
fuzz() {
  name=$1
  time=$2
  shift 2
  root=$(pwd)
  corpus="$work/corpus/$name"
  artifacts="$work/artifacts/$name"
  log="$work/logs/$name.log"
  jobs_dir="$work/logs/$name.jobs"
  rm -rf "$jobs_dir"
  mkdir -p "$corpus" "$artifacts" "$jobs_dir"
  seeds=""
  [ -d "tests/fuzz/corpus/$name" ] && seeds="$root/tests/fuzz/corpus/$name"
  extra="tests/fuzz/corpus/$name.extra"
  seed_list="$root/$work/logs/$name.seeds"
  : >"$seed_list"
  if [ -f "$extra" ]; then
    grep -v '^#' "$extra" | while read -r pattern; do
      # shellcheck disable=SC2086  # the pattern is a glob
      for f in $pattern; do [ -f "$f" ] && printf '%s,' "$root/$f"; done
    done | sed 's/,$//' >"$seed_list"  # libFuzzer wants them separated by commas
  fi
  [ -s "$seed_list" ] && set -- "$@" -seed_inputs=@"$seed_list"
  echo "fuzz.sh: $name for ${time} s; corpus $corpus${seeds:+ and tests/fuzz/corpus/$name}"
  status=0
  started=$(date +%s)
  # shellcheck disable=SC2086  # $seeds is one folder or nothing
  (cd "$jobs_dir" && "$root/$work/tests/fuzz/$name" -max_total_time="$time" -timeout=20 \
    -print_final_stats=1 -artifact_prefix="$root/$artifacts/" "$@" "$root/$corpus" $seeds) \
    >"$log" 2>&1 || status=$?
  # The time it took: less than SECONDS when -runs ended it first.
  took=$(($(date +%s) - started))
  # With -jobs the fuzzer's own output repeats its jobs' logs: count those.
  counted="$log"
  [ -e "$jobs_dir/fuzz-0.log" ] && counted="$jobs_dir/fuzz-*.log"
  # shellcheck disable=SC2086  # $counted is one file or a glob
  runs=$(cat $counted 2>/dev/null | sed -n 's/^stat::number_of_executed_units: *//p' |
    awk '{ n += $1 } END { if (NR) print n }')
  if [ "$status" -ne 0 ]; then
    # shellcheck disable=SC2086  # $counted is one file or a glob
    tail -n 60 $counted >&2
    if [ "$status" -eq 77 ]; then
      echo "fuzz.sh: $name cannot run here (see above)" >&2
    else
      echo "fuzz.sh: $name found a failing input (exit $status); see $artifacts/ and $counted" >&2
    fi
    return 1
  fi
  grep -E '^(#[0-9]+ +DONE|Done )' "$log" | tail -n 1
  echo "fuzz.sh: $name ran ${took} s, ${runs:-?} executions, nothing failed"
  printf '| %s | %s s | %s |\n' "$name" "$took" "${runs:-?}" >"$work/logs/$name.row"
}

if [ "$all" -eq 0 ]; then
  fuzz "$target" "$seconds" "$@" || exit 1
  exit 0
fi
# --all runs targets half as many again at a time as the machine has cores
# (3 on 2 cores), each for SECONDS; what a target printed is shown when it
# ends, in the targets' order.
cores=$(nproc 2>/dev/null || echo 2)
slots=$((cores + (cores + 1) / 2))
mkdir -p "$work/logs"
for name in $(targets); do rm -f "$work/logs/$name.row" "$work/logs/$name.out"; done
batch=""
run_batch() {
  for name in $batch; do
    (fuzz "$name" "$seconds" >"$work/logs/$name.out" 2>&1) &
  done
  wait
  for name in $batch; do
    cat "$work/logs/$name.out"
    [ -f "$work/logs/$name.row" ] || failed="$failed $name"
  done
  batch=""
}
failed=""
count=0
for name in $(targets); do
  batch="$batch $name"
  count=$((count + 1))
  [ $((count % slots)) -eq 0 ] && run_batch
done
[ -z "$batch" ] || run_batch
echo
echo "| target | time | executions |"
echo "|---|---|---|"
for name in $(targets); do
  [ -f "$work/logs/$name.row" ] && cat "$work/logs/$name.row"
done
[ -z "$failed" ] || fail 1 "failed:$failed"
echo "fuzz.sh: every target ran ${seconds} s, nothing failed"
