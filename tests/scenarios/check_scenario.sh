#!/bin/sh
# Runs one kivrun scenario and compares its event log and exit code with the
# expected ones. With LASERCALI_UPDATE_EXPECTED=1 it rewrites the expected
# log instead (review the change before committing it).
#
# usage: check_scenario.sh KIVRUN SCENARIO EXPECTED_LOG EXPECTED_EXIT [EMULATOR...]
#   EMULATOR  the command that runs target programs in a cross build (with
#             its arguments); kivrun runs under it
# With KIVRUN_PLUGIN set, kivrun plays the scenario with that plug-in
# instead of the one built with it.
#
# The node's version tags depend on the build's commit: expected logs write
# them as @BUILD_COMMIT_TAG@ and @FRAMEWORK_TAG@, which stand for the tags of
# the build's version header (LASERCALI_VERSION_HEADER, required).
set -u
kivrun=$1 scenario=$2 expected=$3 expected_exit=$4
shift 4
actual=$(mktemp)
want=$(mktemp)
errors=$(mktemp)
trap 'rm -f "$actual" "$want" "$errors"' EXIT

header=${LASERCALI_VERSION_HEADER:-}
tag() { sed -n "s/^#define $1 \"\([^\"]*\)\"$/\1/p" "$header"; }
[ -f "$header" ] || { echo "check_scenario.sh: no version header (LASERCALI_VERSION_HEADER='$header')"; exit 2; }
commit_tag=$(tag LASERCALI_BUILD_COMMIT_TAG)
framework_tag=$(tag LASERCALI_FRAMEWORK_TAG)
[ -n "$commit_tag" ] && [ -n "$framework_tag" ] || { echo "check_scenario.sh: no version tags in $header"; exit 2; }
expect_tags() { sed -e "s/@BUILD_COMMIT_TAG@/$commit_tag/g" -e "s/@FRAMEWORK_TAG@/$framework_tag/g" "$expected" >"$want"; }
expect_tags

# Every scenario starts on a robot whose picture folders hold no pictures
# yet, so what the calculation nodes find depends on the scenario alone: the
# node runs in an empty /tmp of its own (--private-tmp), and the machine's
# /tmp is never touched. Run from the scenario's folder, so messages name
# the file as it stands there, wherever the checkout is.
if [ -n "${KIVRUN_PLUGIN:-}" ]; then
  (cd "$(dirname "$scenario")" && exec "$@" "$kivrun" --private-tmp --plugin "$KIVRUN_PLUGIN" \
    --log "$actual" "$(basename "$scenario")" 2>"$errors")
else
  (cd "$(dirname "$scenario")" &&
    exec "$@" "$kivrun" --private-tmp --log "$actual" "$(basename "$scenario")" 2>"$errors")
fi
code=$?
cat "$errors" >&2
if [ "$code" = 6 ]; then
  echo "skipped: kivrun could not give the node a private /tmp, and the scenario would write into the machine's"
  exit 77
fi

if [ "${LASERCALI_UPDATE_EXPECTED:-0}" = 1 ]; then
  sed -e "s/\"$commit_tag\"/\"@BUILD_COMMIT_TAG@\"/g" -e "s/\"$framework_tag\"/\"@FRAMEWORK_TAG@\"/g" \
    "$actual" >"$expected"
  expect_tags
  echo "rewrote $expected"
fi
status=0
if [ "$code" != "$expected_exit" ]; then
  echo "kivrun exited with $code, expected $expected_exit"
  status=1
fi
if ! diff -u --label "$expected" --label actual "$want" "$actual"; then
  echo "the event log differs from $expected (- expected, + actual)"
  status=1
fi
exit $status
