#!/bin/sh
# Installs on Debian 12 (as root) what building and running libjaxel, its tools
# and the example needs. --ci adds the CI toolchain: GoogleTest and Google
# Benchmark, the gates' tools (formatting, static analysis, valgrind), the armhf
# build (cross compiler, qemu-user, mmdebstrap) and clang for the fuzzers.
# usage: install-deps.sh [--ci]
set -eu
packages="cmake g++ make pkg-config libglib2.0-dev libssl-dev libjson-glib-dev libsystemd-dev scdoc
  util-linux tar gzip"
case ${1-} in
"") ;;
--ci)
  packages="$packages libgtest-dev libgmock-dev libbenchmark-dev binutils
    clang-format clang-tidy cppcheck shellcheck valgrind
    g++-arm-linux-gnueabihf qemu-user-static mmdebstrap clang libclang-rt-14-dev"
  ;;
*) echo "usage: $0 [--ci]" >&2 && exit 2 ;;
esac
missing=""
for p in $packages; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing="$missing $p"
done
if [ -n "$missing" ]; then
  export DEBIAN_FRONTEND=noninteractive
  apt-get update -qq
  # shellcheck disable=SC2086 # one word per package
  apt-get install -y -qq --no-install-recommends $missing
fi
