#!/bin/sh
# Installs what is missing, builds, and runs the main job: the whole
# calibration from the pictures alone, on the robot's camera (the camera
# preset "robot": a lens with distortion, blur, speckle, a real sensor).
# kivrun loads the calibration node, plays the factory tool (sixteen
# chessboard views, then distances 5 to 45, each repeated until accepted,
# then the plane calibration and a distance check) and the computing
# calculation nodes (docs/calibration.md): the camera parameter node
# measures the camera from the chessboard views, the plane node fits each
# laser's plane through that camera, the check node judges the planes and
# the distance node measures the wall. It shows the node's console lines, a
# line per step and a summary of the round: the recovered camera beside the
# simulator's, each laser's recovered plane beside the true one, the check
# and the distance check (scenarios/robot_chain_round.json). Each
# round writes into a folder of its own, out/<scenario>/: the event log
# (events.jsonl), the round's page (report.html: open it in a browser), the
# picture report (report.md, pictures.png) and the pictures the node wrote
# (pictures/). The node runs against a /tmp of its
# own, so the pictures on this machine stay as they are. The round's
# pictures go to pictures.new/ and take the place of pictures/ after the
# round, so a round can be played on the pictures/ of the last one
# (--pictures out/<scenario>/pictures); when such a round does not reach its
# end, the folder it played stays and its pictures stay in pictures.new/.
#
# usage: scripts/demo.sh [--quiet] [--realtime] [--pictures DIR [--app]] [SCENARIO.json]
#   --quiet         leave out the node's console lines
#   --realtime      run the 10 ms frame timer on the wall clock (with a progress bar)
#   --pictures DIR  play the factory round on recorded pictures instead of the simulated
#                   scene: DIR/<distance>/left.png and right.png (27.5 too, the
#                   distance check's wall), or a folder a round wrote
#                   (DIR/left/<N>.bmp, DIR/right/<N>.bmp, DIR/pic/dis_left.bmp,
#                   such as out/<scenario>/pictures); see docs/camera-sim.md.
#                   scenarios/pictures/ is an example with a fault planted in
#                   the right picture at 20 cm; DIR/camera.yaml, when there,
#                   is the camera the pictures were taken with
#   --app           the app round (scenarios/app_compute_round.json) instead of
#                   the factory round
#   SCENARIO        another round, e.g. scenarios/factory_compute_round.json (the
#                   factory round on the ideal camera, the default with
#                   --pictures), scenarios/misaligned_laser_round.json
#                   (default: scenarios/robot_chain_round.json;
#                   scenarios/factory_plane_round.json answers with fixed numbers)
# Exit code 0 only when the round reached its final result; otherwise
# kivrun's exit code (4: a request did not get its answer, explained on the
# line before the summary).
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
pictures=""
scenario=""
while [ $# -gt 0 ]; do
  case "$1" in
    --quiet) echo_lines="" ;;
    --realtime) realtime="--realtime" ;;
    --pictures)
      [ $# -ge 2 ] || { echo "demo.sh: --pictures needs a folder" >&2; exit 2; }
      pictures=$2
      shift ;;
    --pictures=*) pictures=${1#--pictures=} ;;
    --app) scenario="scenarios/app_compute_round.json" ;;
    -h|--help) usage; exit 0 ;;
    -*) echo "demo.sh: unknown option $1 (try --help)" >&2; exit 2 ;;
    *) scenario="$1" ;;
  esac
  shift
done
if [ -z "$scenario" ]; then
  if [ -n "$pictures" ]; then
    scenario="scenarios/factory_compute_round.json"
  else
    scenario="scenarios/robot_chain_round.json"
  fi
fi
[ -f "$scenario" ] || { echo "demo.sh: no scenario $scenario" >&2; exit 2; }
if [ -n "$pictures" ] && [ ! -d "$pictures" ]; then
  echo "demo.sh: --pictures needs a folder, not '$pictures'" >&2
  exit 2
fi

# The packages the build needs; only missing ones are installed.
install_packages() {
  . scripts/deps.sh
  lasercali_announce_install() { say "installing$1"; }
  lasercali_install_deps
}

# kivrun and the plug-in, in $build.
build_kivrun() {
  say "configuring $build/"
  # The flags of scripts/test.sh's normal build (line tables only), which
  # builds in the same folder: running one after the other rebuilds nothing.
  cmake -S . -B "$build" -DCMAKE_BUILD_TYPE=RelWithDebInfo \
    -DCMAKE_CXX_FLAGS_RELWITHDEBINFO="-O2 -g1 -DNDEBUG" >/dev/null
  say "building (first time takes a few minutes)"
  cmake --build "$build" -j"$(nproc 2>/dev/null || echo 2)" --target kivrun lasercali >/dev/null
}

# What the round is called in the stage line.
round_name() {
  case "$1" in
    scenarios/robot_chain_round.json) echo "the whole calibration on the robot's camera" ;;
    scenarios/factory_compute_round.json) echo "the factory round" ;;
    scenarios/app_compute_round.json) echo "the app round" ;;
    scenarios/factory_plane_round.json) echo "the factory round with fixed answers" ;;
    *) echo "$1" ;;
  esac
}

# The folder `1` with its links resolved, or "" when it is not there.
real_folder() { (cd "$1" 2>/dev/null && pwd -P) || true; }

# Plays the round: its event log, picture report and the node's pictures go
# to $out/<scenario>/. Sets `status` to kivrun's exit code.
play() {
  name=$(basename "$1" .json)
  folder="$out/$name"
  mkdir -p "$folder"
  # The round's pictures go to a fresh folder: the one played (--pictures)
  # may be the last round's pictures/.
  rm -rf "$folder/pictures.new"
  if [ -n "$pictures" ]; then
    say "playing $(round_name "$1") on the pictures in $pictures"
  else
    say "playing $(round_name "$1")"
  fi
  echo "== $1"
  status=0
  # shellcheck disable=SC2086  # the options are one word each, or none
  "$build/tools/kivrun/kivrun" $echo_lines $realtime --progress --log "$folder/events.jsonl" \
    --report "$folder" --pictures-out "$folder/pictures.new" ${pictures:+--pictures "$pictures"} \
    "$1" || status=$?
  kept="$folder/pictures"
  played=""
  if [ -n "$pictures" ] && [ -d "$folder/pictures" ]; then
    played=$(real_folder "$pictures")
    case "$played/" in
      "$(real_folder "$folder/pictures")"/*) ;;
      *) played="" ;;
    esac
  fi
  if [ -n "$played" ] && [ "$status" != 0 ]; then
    # A round on the last round's pictures that did not reach its end: they stay.
    kept="$folder/pictures.new"
  else
    rm -rf "$folder/pictures"
    if [ -d "$folder/pictures.new" ]; then mv "$folder/pictures.new" "$folder/pictures"; fi
  fi
  echo "== the round's page, to open in a browser: $folder/report.html"
  echo "   event log: $folder/events.jsonl; picture report: $folder/report.md, $folder/pictures.png;"
  echo "   the node's pictures (written to its private /tmp): $kept/"
  if [ "$kept" != "$folder/pictures" ]; then
    echo "   $folder/pictures/, which the round played, stays as it was"
  fi
}

install_packages
build_kivrun
play "$scenario"
exit $status
