#!/bin/sh
# Replays a recorded event log with kivrun --replay and checks that the
# current plug-in gives the same events (kivrun exits with 0).
#
# usage: check_replay.sh KIVRUN LOG FOLDER [EMULATOR...]
#   FOLDER    the folder the round was played from (its scenario's folder);
#             the replay runs there too, as the recorded run did
#   EMULATOR  the command that runs target programs in a cross build (with
#             its arguments); kivrun runs under it
# With REPLAY_PLANT="LINE SED-COMMAND" a planted change is checked instead:
# the log is copied, SED-COMMAND changes line LINE of the copy, and the
# replay of the copy must differ (exit code 5) at that line, showing the
# changed line as the recorded one.
#
# The replay runs with --private-tmp, like every scenario test; where no
# private /tmp can be had the test is skipped. Expected logs carry
# @BUILD_COMMIT_TAG@ and @FRAMEWORK_TAG@ instead of version tags; kivrun
# --replay does not compare version tags, so they are replayed as they are.
set -u
kivrun=$1 log=$2 folder=$3
shift 3
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

expected_exit=0
replayed=$log
if [ -n "${REPLAY_PLANT:-}" ]; then
  line=${REPLAY_PLANT%% *}
  command=${REPLAY_PLANT#* }
  replayed=$work/planted.jsonl
  sed "${line}${command}" "$log" >"$replayed"
  if cmp -s "$log" "$replayed"; then
    echo "check_replay.sh: '$command' changes nothing on line $line of $log"
    exit 2
  fi
  planted=$(sed -n "${line}p" "$replayed")
  expected_exit=5
fi

(cd "$folder" && exec "$@" "$kivrun" --private-tmp --replay "$replayed" --log "$work/new.jsonl" \
  2>"$work/errors")
code=$?
cat "$work/errors"
if [ "$code" = 6 ]; then
  echo "skipped: kivrun could not give the node a private /tmp, and the replay would write into the machine's"
  exit 77
fi
status=0
if [ "$code" != "$expected_exit" ]; then
  echo "kivrun --replay exited with $code, expected $expected_exit"
  status=1
fi
if [ "$expected_exit" = 0 ]; then
  # The new log has as many lines as the recorded one and says so.
  if ! grep -qxF "kivrun: the replay of $replayed gave the same $(wc -l <"$log") events" "$work/errors"; then
    echo "kivrun --replay did not report the same events as $log"
    status=1
  fi
else
  grep -qF "kivrun: the replay differs from $replayed at line $line " "$work/errors" ||
    { echo "the replay does not name line $line"; status=1; }
  grep -qxF "  - $line  $planted" "$work/errors" ||
    { echo "the replay does not show the planted line as the recorded one"; status=1; }
  grep -q "^  + $line  {" "$work/errors" ||
    { echo "the replay does not show its own event at line $line"; status=1; }
fi
exit $status
