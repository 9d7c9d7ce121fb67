#!/bin/sh
# Installs what is missing, builds, and runs the main job: a whole factory
# plane calibration on the PC. kivrun loads the calibration node, plays the
# factory tool (distances 5 to 45, each repeated until accepted, then the
# plane calibration) and the calculation nodes, and shows the node's console
# lines, a line per accepted distance and a summary of the round. The event
# log goes to out/<scenario>.jsonl and a picture report to out/report/. The
# node runs against a /tmp of its own, so the pictures on this machine stay
# as they are; the pictures it wrote are copied to out/pictures/.
#
# usage: scripts/demo.sh [--quiet] [--realtime] [SCENARIO.json]
#   --quiet     leave out the node's console lines
#   --realtime  run the 10 ms frame timer on the wall clock (with a progress bar)
#   SCENARIO    another round, e.g. scenarios/app_round.json
#               (default: scenarios/factory_plane_round.json)
# Exit code 0 only when the round reached its final result.
set -eu
cd "$(dirname "$0")/.."

echo_lines="--echo"
realtime=""
scenario="scenarios/factory_plane_round.json"
for arg in "$@"; do
  case "$arg" in
    --quiet) echo_lines="" ;;
    --realtime) realtime="--realtime" ;;
    -h|--help) sed -n '2,/^set/p' "$0" | grep '^#' | sed 's/^# \{0,1\}//'; exit 0 ;;
    -*) echo "demo.sh: unknown option $arg (try --help)" >&2; exit 2 ;;
    *) scenario="$arg" ;;
  esac
done
[ -f "$scenario" ] || { echo "demo.sh: no scenario $scenario" >&2; exit 2; }

. scripts/deps.sh
lasercali_install_deps

cmake -S . -B build -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build build -j"$(nproc 2>/dev/null || echo 2)" --target kivrun lasercali >/dev/null

mkdir -p out
rm -rf out/pictures
name=$(basename "$scenario" .json)
echo "== $scenario"
status=0
build/tools/kivrun/kivrun $echo_lines $realtime --progress --log "out/$name.jsonl" \
  --report out/report --pictures-out out/pictures "$scenario" || status=$?
echo "== event log: out/$name.jsonl; picture report: out/report/report.md, out/report/pictures.png;"
echo "   the node's pictures (written to its private /tmp): out/pictures/"
exit $status
