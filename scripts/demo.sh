#!/bin/sh
# Installs what is missing, builds, and runs the main job: a whole factory
# plane calibration on the PC. kivrun loads the calibration node, plays the
# factory tool (distances 5 to 45, each repeated until accepted, then the
# plane calibration and a distance check) and the computing calculation
# nodes, which fit each laser's plane to the pictures the node stored
# (docs/calibration.md), and shows the node's console lines, a line per
# accepted distance and a summary of the round: each laser's recovered plane
# beside the simulator's true one, the check and the distance check. The event
# log goes to out/<scenario>.jsonl and a picture report to out/report/. The
# node runs against a /tmp of its own, so the pictures on this machine stay
# as they are; the pictures it wrote are copied to out/pictures/.
#
# usage: scripts/demo.sh [--quiet] [--realtime] [SCENARIO.json]
#   --quiet     leave out the node's console lines
#   --realtime  run the 10 ms frame timer on the wall clock (with a progress bar)
#   SCENARIO    another round, e.g. scenarios/misaligned_laser_round.json
#               (default: scenarios/factory_compute_round.json;
#               scenarios/factory_plane_round.json answers with fixed numbers)
# Exit code 0 only when the round reached its final result.
#
# It says what it is doing, one line a stage ("demo.sh: building ...").
# LASERCALI_BUILD_DIR names another build folder than build/.
set -eu
cd "$(dirname "$0")/.."

# One line a stage, so that a first run, which installs and builds for
# minutes, does not sit there silent.
say() { echo "demo.sh: $*"; }

usage() { sed -n '2,/^set/p' "$0" | grep '^#' | sed 's/^# \{0,1\}//'; }

build=${LASERCALI_BUILD_DIR:-build}
out=out
echo_lines="--echo"
realtime=""
scenario="scenarios/factory_compute_round.json"
while [ $# -gt 0 ]; do
  case "$1" in
    --quiet) echo_lines="" ;;
    --realtime) realtime="--realtime" ;;
    -h|--help) usage; exit 0 ;;
    -*) echo "demo.sh: unknown option $1 (try --help)" >&2; exit 2 ;;
    *) scenario="$1" ;;
  esac
  shift
done
[ -f "$scenario" ] || { echo "demo.sh: no scenario $scenario" >&2; exit 2; }

# The packages the build needs; only missing ones are installed.
install_packages() {
  . scripts/deps.sh
  lasercali_announce_install() { say "installing$1"; }
  lasercali_install_deps
}

# kivrun and the plug-in, in $build.
build_kivrun() {
  say "configuring $build/"
  cmake -S . -B "$build" -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
  say "building (first time takes a few minutes)"
  cmake --build "$build" -j"$(nproc 2>/dev/null || echo 2)" --target kivrun lasercali >/dev/null
}

# What the round is called in the stage line.
round_name() {
  case "$1" in
    scenarios/factory_compute_round.json) echo "the factory round" ;;
    scenarios/factory_plane_round.json) echo "the factory round with fixed answers" ;;
    *) echo "$1" ;;
  esac
}

# Plays the round: the event log, the picture report and the node's
# pictures go to $out. Sets `status` to kivrun's exit code.
play() {
  mkdir -p "$out"
  rm -rf "$out/pictures"
  name=$(basename "$1" .json)
  say "playing $(round_name "$1")"
  echo "== $1"
  status=0
  "$build/tools/kivrun/kivrun" $echo_lines $realtime --progress --log "$out/$name.jsonl" \
    --report "$out/report" --pictures-out "$out/pictures" "$1" || status=$?
  echo "== event log: $out/$name.jsonl; picture report: $out/report/report.md, $out/report/pictures.png;"
  echo "   the node's pictures (written to its private /tmp): $out/pictures/"
}

install_packages
build_kivrun
play "$scenario"
exit $status
