#!/bin/sh
# Runs a program in a private mount namespace with its own storage tiers under
# /opt/ulx and a private /dev/shm; the machine's own are never touched. The tiers
# are fresh and vanish with the program, or with --keep DIR live in DIR (made if
# missing, reused as it is), so that a later run can look at them again.
# usage: run-in-sandbox.sh [--keep DIR] PROGRAM [ARGS...]   (as root)
set -eu
usage() {
  echo "usage: $0 [--keep DIR] PROGRAM [ARGS...]" >&2
  exit 2
}
keep=""
if [ "${1-}" = --keep ]; then
  [ $# -ge 2 ] || usage
  keep=$(realpath -m "$2")
  case $keep/ in
  /opt/* | /dev/shm/*) echo "$0: --keep $2 would be hidden by the sandbox" >&2 && exit 2 ;;
  esac
  mkdir -p "$keep"
  shift 2
fi
[ $# -ge 1 ] || usage
# shellcheck disable=SC2016 # the inner shell expands them
exec unshare --mount --propagation private sh -eu -c '
  keep=$1
  shift
  if [ -n "$keep" ]; then
    mount --bind "$keep" /opt
  else
    mount -t tmpfs -o mode=0755 tmpfs /opt
  fi
  mount -t tmpfs -o mode=1777 tmpfs /dev/shm
  mkdir -p /opt/ulx/pram /opt/ulx/save /opt/ulx/pflash
  exec "$@"' sandbox "$keep" "$@"
