#!/bin/sh
# Cross-builds the library, the platform substitutes and the tests for 32-bit
# ARM (armhf) and runs the whole suite under qemu-user, with every runtime
# library taken from one armhf sysroot (scripts/armhf-sysroot.sh).
# usage: test-armhf.sh
set -eu
cd "$(dirname "$0")/.."
. scripts/ci/lib.sh

banner "armhf cross build, whole suite under qemu-arm-static"
sysroot=$(scripts/armhf-sysroot.sh)
configure_and_build build-ci-armhf -DCMAKE_BUILD_TYPE=RelWithDebInfo \
  -DCMAKE_TOOLCHAIN_FILE="$PWD/cmake/armhf-toolchain.cmake" -DJAXEL_ARMHF_SYSROOT="$sysroot"

# Left out, because they test the emulator or the host, not the target:
# - KelSystem.ReportsHowTheProgramEnded: qemu-user runs posix_spawn's child as a
#   separate process, so a program that cannot be started shows as exit status
#   127 instead of as an error of posix_spawn.
# - install_and_link_with_pkg_config: builds and runs a consumer with the host's
#   pkg-config and without the emulator.
run_ctest armhf build-ci-armhf \
  -E '^(KelSystem\.ReportsHowTheProgramEnded|install_and_link_with_pkg_config)$'
