#!/bin/sh
# Installs what is missing, builds, and runs every test twice: in a normal
# build (build/) and in an AddressSanitizer + UndefinedBehaviorSanitizer
# build made with clang (build-asan/). Fails on any failing test or
# sanitizer report.
set -eu
cd "$(dirname "$0")/.."
. scripts/deps.sh
# The install tests also make and check Debian packages and use pkg-config;
# the manual pages are checked against --help with help2man; the round
# page's test opens a page in Debian's Chromium (with a font for its
# screenshot). lld links the many test programs quicker.
# The sanitizer build is clang's: it builds in half the time gcc takes and
# checks more (pointer overflow, builtins).
LASERCALI_PACKAGES="$LASERCALI_PACKAGES clang lld pkg-config file dpkg-dev lintian help2man chromium fonts-dejavu-core"
lasercali_install_deps
lasercali_install_clang_runtime -fsanitize=address,undefined 'int main() { return 0; }'

jobs=$(nproc 2>/dev/null || echo 2)

echo "== normal build"
# Optimised as shipped; the debug information is line tables only (-g1):
# the code is the same, a failure still names file and line, and the build
# takes a third less time than with full debug information.
cmake -S . -B build -DCMAKE_BUILD_TYPE=RelWithDebInfo \
  -DCMAKE_CXX_FLAGS_RELWITHDEBINFO="-O2 -g1 -DNDEBUG" >/dev/null
cmake --build build -j"$jobs"
(cd build && ctest -j"$jobs" --output-on-failure)

echo "== sanitizer build (address, undefined)"
# A sanitizer build folder that an earlier version of this script
# configured with gcc is configured afresh.
if [ -f build-asan/CMakeCache.txt ] && ! grep -q '^CMAKE_CXX_COMPILER:[A-Z]*=.*clang++' build-asan/CMakeCache.txt; then
  rm -rf build-asan/CMakeCache.txt build-asan/CMakeFiles
fi
cmake -S . -B build-asan -DCMAKE_CXX_COMPILER=clang++ -DCMAKE_BUILD_TYPE=Debug -DLASERCALI_SANITIZE=ON >/dev/null
cmake --build build-asan -j"$jobs"
export ASAN_OPTIONS="detect_leaks=1:abort_on_error=1:${ASAN_OPTIONS:-}"
export UBSAN_OPTIONS="print_stacktrace=1:halt_on_error=1:${UBSAN_OPTIONS:-}"
(cd build-asan && ctest -j"$jobs" --output-on-failure)
