#!/bin/sh
# Installs the Debian packages the build and the tests need, if any is
# missing. Sourced by demo.sh and test.sh.
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
  [ -z "$missing" ] && return 0
  lasercali_announce_install "$missing"
  sudo=""
  [ "$(id -u)" -ne 0 ] && sudo="sudo"
  $sudo apt-get update -qq
  DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq --no-install-recommends $missing >/dev/null
}
