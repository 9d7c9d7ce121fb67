#!/bin/sh
# Guards the machine's picture folders while the test suite runs. Every test
# that runs the node gives it a /tmp of its own; this checks that none wrote,
# removed or changed a picture in the machine's /tmp/left, /tmp/right,
# /tmp/pic, /tmp/LL.bmp or /tmp/RR.bmp.
#
#   sentinel.sh place STATE_DIR   before the suite: puts a sentinel picture at
#                                 /tmp/left/560.bmp (the first picture a
#                                 factory round writes) unless a picture is
#                                 there already, and records every file's hash
#   sentinel.sh check STATE_DIR   after the suite: the same files with the
#                                 same hashes, or it fails showing what
#                                 changed; then takes its sentinel away again
set -u
action=${1:-} state=${2:-}
[ -n "$state" ] || { echo "usage: sentinel.sh place|check STATE_DIR" >&2; exit 2; }
sentinel=/tmp/left/560.bmp

snapshot() {
  for path in /tmp/left /tmp/right /tmp/pic /tmp/LL.bmp /tmp/RR.bmp; do
    [ -e "$path" ] || continue
    find "$path" -type f -exec sha256sum {} + 2>/dev/null
  done | sort -k 2
}

case "$action" in
  place)
    rm -rf "$state"
    mkdir -p "$state"
    if [ ! -d /tmp/left ]; then
      mkdir -p /tmp/left && touch "$state/made-folder"
    fi
    if [ ! -e "$sentinel" ]; then
      # A 2 x 1 BMP whose two pixels spell out what it is for.
      printf 'BM:\000\000\000\000\000\000\0006\000\000\000(\000\000\000\002\000\000\000\001\000\000\000\001\000\030\000\000\000\000\000\004\000\000\000\000\000\000\000\000\000\000\000\000\000\000\000\000\000\000\000sentinel' \
        >"$sentinel" && touch "$state/placed"
    fi
    snapshot >"$state/before.txt"
    echo "the machine's picture folders hold $(wc -l <"$state/before.txt") files, $sentinel among them"
    ;;
  check)
    [ -f "$state/before.txt" ] || { echo "sentinel.sh: no record in $state (run place first)"; exit 1; }
    snapshot >"$state/after.txt"
    status=0
    if ! diff -u --label before --label after "$state/before.txt" "$state/after.txt"; then
      echo "a test changed the machine's pictures (above: - before the suite, + after it)"
      status=1
    fi
    [ -f "$state/placed" ] && rm -f "$sentinel"
    [ -f "$state/made-folder" ] && rmdir /tmp/left 2>/dev/null
    rm -rf "$state"
    [ $status = 0 ] && echo "the machine's picture folders are as they were"
    exit $status
    ;;
  *) echo "usage: sentinel.sh place|check STATE_DIR" >&2; exit 2 ;;
esac
