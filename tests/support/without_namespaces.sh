#!/bin/sh
# Runs a command where no private /tmp can be had: in a user namespace of its
# own (util-linux unshare, the caller mapped to root there) in which the
# limits user.max_user_namespaces and user.max_mnt_namespaces are 0, so any
# further user or mount namespace is refused (ENOSPC). The tests use it to
# see a program that runs the node refuse, and what its --machine-tmp does.
# The machine's own limits stay as they are.
#
# usage: without_namespaces.sh COMMAND [ARG...]
# Exit code: the command's; 125 when the namespace or the limits cannot be
# had here (the message says so), so the caller can skip.
set -u
if [ "${1:-}" != "--inside" ]; then
  if ! unshare --user --map-root-user true 2>/dev/null; then
    echo "without_namespaces.sh: no user namespace can be made here" >&2
    exit 125
  fi
  exec unshare --user --map-root-user "$0" --inside "$@"
fi
shift
for limit in max_user_namespaces max_mnt_namespaces; do
  if ! echo 0 2>/dev/null >"/proc/sys/user/$limit"; then
    echo "without_namespaces.sh: cannot set user.$limit to 0" >&2
    exit 125
  fi
done
exec "$@"
