#!/bin/sh
# Runs a program in a private mount namespace with fresh, empty storage tiers
# under /opt/ulx and a private /dev/shm; the machine's own are never touched.
# usage: run-in-sandbox.sh PROGRAM [ARGS...]   (as root)
set -eu
[ $# -ge 1 ] || { echo "usage: $0 PROGRAM [ARGS...]" >&2; exit 2; }
exec unshare --mount --propagation private sh -eu -c '
  mount -t tmpfs -o mode=0755 tmpfs /opt
  mount -t tmpfs -o mode=1777 tmpfs /dev/shm
  mkdir -p /opt/ulx/pram /opt/ulx/save /opt/ulx/pflash
  exec "$@"' sandbox "$@"
