#!/bin/sh
# Fails when the library's subsystems stop standing in layers: a cycle in the
# include graph between subsystem folders, or a side door, which is an include
# of another subsystem's header other than its own <name>/<name>.h. The frame
# sits under everything and may be reached through any of its headers.
# usage: check-layers.sh [SRC_DIR]   (default: framework/libs/jaxel/src)
set -eu
cd "$(dirname "$0")/.."
src=${1:-framework/libs/jaxel/src}
[ -d "$src" ] || { echo "check-layers: no directory $src" >&2 && exit 2; }

edges=$(mktemp)
doors=$(mktemp)
trap 'rm -f "$edges" "$doors"' EXIT

# One line per include of a subsystem header: "from to header file".
find "$src" -mindepth 2 \( -name '*.cpp' -o -name '*.h' \) | sort | while read -r file; do
  from=${file#"$src"/}
  from=${from%%/*}
  sed -n 's/^[[:space:]]*#[[:space:]]*include[[:space:]]*[<"]\([^/">]*\)\/\([^">]*\)[">].*/\1 \2/p' "$file" |
    while read -r to header; do
      [ -d "$src/$to" ] || continue
      [ "$to" = "$from" ] && continue
      echo "$from $to" >>"$edges"
      if [ "$to" != frame ] && [ "$header" != "$to.h" ]; then
        echo "  $file: #include \"$to/$header\" (use \"$to/$to.h\")" >>"$doors"
      fi
    done
done

status=0
if [ -s "$doors" ]; then
  echo "side doors into subsystems:"
  cat "$doors"
  status=1
fi

# tsort names the members of every cycle on stderr.
loops=$(sort -u "$edges" | tsort 2>&1 >/dev/null || true)
if [ -n "$loops" ]; then
  echo "include cycle between subsystems:"
  echo "$loops" | sed 's/^tsort: //; s/^/  /'
  status=1
fi

if [ "$status" -eq 0 ]; then
  order=$(sort -u "$edges" | awk '{print $2, $1}' | tsort | tr '\n' ' ')
  echo "layers: ${order% } (lowest first)"
fi
exit "$status"
