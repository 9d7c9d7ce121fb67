#!/bin/sh
# Installs the Debian packages the build and the tests need, if any is
# missing, and the round page's JavaScript. Sourced, from the repository's
# top folder, by demo.sh, test.sh, cross.sh, fuzz.sh and package.sh.
#
# Before installing it says which packages it installs through
# lasercali_announce_install, called with the missing packages (each after a
# blank); a script may define its own after sourcing this file.
set -e
LASERCALI_PACKAGES="cmake make g++ libopencv-core-dev libopencv-imgcodecs-dev libopencv-imgproc-dev libopencv-calib3d-dev rapidjson-dev libgtest-dev libbenchmark-dev"

lasercali_announce_install() {
  echo "installing:$1"
}

lasercali_install_deps() {
  missing=""
  for p in $LASERCALI_PACKAGES; do
    dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing="$missing $p"
  done
  if [ -n "$missing" ]; then
    lasercali_announce_install "$missing"
    sudo=""
    [ "$(id -u)" -ne 0 ] && sudo="sudo"
    $sudo apt-get update -qq
    DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq --no-install-recommends $missing >/dev/null
  fi
  # Every build of the tools embeds the page's plotting library.
  lasercali_install_js
}

# clang's sanitizer and libFuzzer runtimes come in a package of their own
# (libclang-rt-N-dev), which apt only recommends along with clang. Installs
# it when clang++ cannot link the C++ program SOURCE with FLAGS (say
# -fsanitize=address); fails when it still cannot.
lasercali_install_clang_runtime() {
  flags=$1
  probe_dir=$(mktemp -d)
  printf '%s\n' "$2" >"$probe_dir/probe.cpp"
  # shellcheck disable=SC2086 # FLAGS are words
  if ! clang++ $flags "$probe_dir/probe.cpp" -o "$probe_dir/probe" >/dev/null 2>&1; then
    major=$(clang++ -dumpversion | cut -d. -f1)
    LASERCALI_PACKAGES="libclang-rt-$major-dev"
    lasercali_install_deps || { rm -rf "$probe_dir"; return 1; }
    # shellcheck disable=SC2086
    clang++ $flags "$probe_dir/probe.cpp" -o "$probe_dir/probe" >/dev/null 2>&1 || {
      echo "clang++ cannot link a program with $flags" >&2
      rm -rf "$probe_dir"
      return 1
    }
  fi
  rm -rf "$probe_dir"
}

# The round page's JavaScript (tools/report_page/package.json): uPlot, which
# the build embeds into every page, and puppeteer-core, which drives the
# browser in the page's test. npm installs the versions package-lock.json
# pins; it runs again only when the lock file changed. Node and npm come
# from Debian's packages when the machine has none.
LASERCALI_JS_DIR="$(pwd)/tools/report_page"

lasercali_install_js() {
  dir=${1:-$LASERCALI_JS_DIR}
  if ! command -v node >/dev/null 2>&1 || ! command -v npm >/dev/null 2>&1; then
    lasercali_announce_install " nodejs npm"
    sudo=""
    [ "$(id -u)" -ne 0 ] && sudo="sudo"
    $sudo apt-get update -qq
    DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq --no-install-recommends nodejs npm >/dev/null
  fi
  stamp="$dir/node_modules/.lasercali-lock"
  if [ -f "$stamp" ] && cmp -s "$stamp" "$dir/package-lock.json"; then
    return 0
  fi
  lasercali_announce_install " the round page's JavaScript (npm ci in tools/report_page)"
  (cd "$dir" && npm ci --no-audit --no-fund --loglevel=error >/dev/null) || {
    echo "could not install the round page's JavaScript: npm ci failed in $dir" >&2
    return 1
  }
  cp "$dir/package-lock.json" "$stamp"
}
