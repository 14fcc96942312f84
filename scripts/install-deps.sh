#!/bin/sh
# Installs what building and testing libjaxel needs on Debian 12 (as root):
# compilers and libraries, the tools of the CI gates (formatting, static
# analysis, valgrind), of the fuzz targets (clang with its sanitizer and
# libFuzzer runtimes) and of the armhf build (cross compiler, qemu-user,
# mmdebstrap).
set -eu
packages="cmake g++ make pkg-config libglib2.0-dev libssl-dev libgtest-dev libgmock-dev
  libbenchmark-dev util-linux binutils tar gzip
  clang-format clang-tidy cppcheck shellcheck valgrind clang libclang-rt-14-dev
  g++-arm-linux-gnueabihf qemu-user-static mmdebstrap"
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
