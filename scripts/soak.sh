#!/bin/sh
# Soak test: factory and app rounds back to back in one kivrun process, with
# the process's memory and open files watched as it goes.
#
# usage: scripts/soak.sh [ROUNDS] [--every N]
#   ROUNDS     pairs of rounds to play: a factory plane round, then an app
#              round (default 200)
#   --every N  sample every N pairs (default 20)
#
# Builds kivrun if needed (build/, RelWithDebInfo), writes the scenario
# (the steps of scenarios/factory_plane_round.json and scenarios/app_round.json,
# ROUNDS times over) to out/soak/soak.json and plays it with
# kivrun --private-tmp, so the machine's pictures stay as they are. Every N
# pairs it reads the resident memory (VmRSS) and the number of open file
# descriptors of the kivrun process from /proc, and at the end prints the
# growth per pair from the first sample to the last. The event log (about
# 300 kB a pair) goes to /dev/null; kivrun's progress lines are kept in
# out/soak/progress.txt. Exit code: 0 when every round ran to its end, else
# kivrun's exit code (2 for a usage error here).
set -eu
cd "$(dirname "$0")/.."

rounds=200
every=20
while [ $# -gt 0 ]; do
  case "$1" in
    -h|--help) sed -n '2,/^set/p' "$0" | grep '^#' | sed 's/^# \{0,1\}//'; exit 0 ;;
    --every) [ $# -ge 2 ] || { echo "soak.sh: --every needs a number" >&2; exit 2; }
             every=$2; shift ;;
    --every=*) every=${1#--every=} ;;
    -*) echo "soak.sh: unknown option $1 (try --help)" >&2; exit 2 ;;
    *) rounds=$1 ;;
  esac
  shift
done
case "$rounds$every" in
  *[!0-9]*|"") echo "soak.sh: ROUNDS and N are whole numbers" >&2; exit 2 ;;
esac
[ "$rounds" -gt 0 ] && [ "$every" -gt 0 ] || { echo "soak.sh: ROUNDS and N must be above 0" >&2; exit 2; }

. scripts/deps.sh
lasercali_install_deps
if [ ! -x build/tools/kivrun/kivrun ]; then
  echo "== building kivrun"
  cmake -S . -B build -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
  cmake --build build -j"$(nproc 2>/dev/null || echo 2)" --target kivrun lasercali >/dev/null
fi

out=out/soak
mkdir -p "$out"
# The steps of a shipped scenario, one a line, without the list's commas.
steps_of() { sed -n '/"steps": \[/,/^  \]/p' "$1" | sed '1d;$d' | sed 's/,[[:space:]]*$//'; }
steps_of scenarios/factory_plane_round.json >"$out/factory.steps"
steps_of scenarios/app_round.json >"$out/app.steps"
{
  echo '{"description": "Soak: factory and app rounds back to back.",'
  echo ' "config_file": "'"$PWD"'/scenarios/lasercali.json", "steps": ['
  round=1
  while [ "$round" -le "$rounds" ]; do
    [ "$round" -gt 1 ] && echo ","
    echo "{\"note\": \"soak pair $round\"},"
    sed '$!s/$/,/' "$out/factory.steps"
    echo ","
    # The app round's laser power step names the pair, so progress shows it.
    sed -e '$!s/$/,/' -e "s/\"label\": \"laser power\"/\"label\": \"pair $round done\"/" "$out/app.steps"
    round=$((round + 1))
  done
  echo ']}'
} >"$out/soak.json"

sample() {  # pair: prints and records rss and fds of kivrun
  rss=$(sed -n 's/^VmRSS:[[:space:]]*\([0-9]*\) kB/\1/p' "/proc/$pid/status" 2>/dev/null || true)
  fds=$(ls "/proc/$pid/fd" 2>/dev/null | wc -l)
  [ -n "$rss" ] || return 0
  printf '%8s %10s %6s\n' "$1" "$rss" "$fds"
  echo "$1 $rss $fds" >>"$out/samples.txt"
}

echo "== $rounds pairs of rounds in one kivrun (samples every $every pairs)"
printf '%8s %10s %6s\n' pair "rss (kB)" fds
: >"$out/samples.txt"
start=$(date +%s)
build/tools/kivrun/kivrun --private-tmp --progress --log /dev/null "$out/soak.json" \
  2>"$out/progress.txt" &
pid=$!
next=$every
while kill -0 "$pid" 2>/dev/null; do
  finished=$(grep -c 'pair [0-9]* done' "$out/progress.txt" || true)
  if [ "$finished" -ge "$next" ]; then
    sample "$finished"
    next=$((next + every))
  fi
  sleep 0.2
done
status=0
wait "$pid" || status=$?
seconds=$(($(date +%s) - start))

first=$(head -n 1 "$out/samples.txt")
last=$(tail -n 1 "$out/samples.txt")
if [ -n "$first" ] && [ "$first" != "$last" ]; then
  echo "$first $last" | awk '{pairs = $4 - $1
    printf "growth from pair %d to %d: %+.2f kB rss and %+.3f fds a pair\n", $1, $4, ($5 - $2) / pairs, ($6 - $3) / pairs}'
else
  echo "too few samples for a growth figure (give more ROUNDS or a smaller --every)"
fi
echo "== kivrun exit code $status after $seconds s; progress lines: $out/progress.txt"
exit "$status"
