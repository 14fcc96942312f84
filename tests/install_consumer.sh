#!/bin/sh
# usage: install_consumer.sh BUILD_DIR WORK_DIR C_COMPILER
set -eu
build=$1 work=$2 cc=$3
rm -rf "$work" && mkdir -p "$work"
cmake --install "$build" --prefix "$work/prefix" >/dev/null
cat >"$work/app.c" <<'C'
#include <jaxel.h>
#include <string.h>
int main(void) {
    if (jx_set_module_name("consumer") != 0) return 1;
    return strcmp(jx_get_module_name(), "consumer") != 0;
}
C
libdir=$(find "$work/prefix" -name jaxel.pc -exec dirname {} \;)
export PKG_CONFIG_PATH="$libdir"
# shellcheck disable=SC2046 # pkg-config prints several words on purpose
"$cc" -std=c99 -pedantic -Werror "$work/app.c" -o "$work/app" $(pkg-config --cflags --libs jaxel)
pkg-config --static --libs jaxel >/dev/null
test -f "$(dirname "$libdir")/cmake/Jaxel/JaxelConfig.cmake"
LD_LIBRARY_PATH="$(dirname "$libdir")" "$work/app"
echo "consumer built with pkg-config and ran"
