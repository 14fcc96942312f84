#!/bin/sh
# Fails when clang-format (with the repository's .clang-format) would change any
# of our C and C++ sources; lists the files. `scripts/check-format.sh --fix`
# reformats them instead.
set -eu
cd "$(dirname "$0")/.."
sources=$(find framework examples -name '*.c' -o -name '*.cpp' -o -name '*.h' | sort)
if [ "${1:-}" = --fix ]; then
  echo "$sources" | xargs clang-format -i
  exit 0
fi
unformatted=""
for f in $sources; do
  clang-format --dry-run --Werror "$f" >/dev/null 2>&1 || unformatted="$unformatted $f"
done
if [ -n "$unformatted" ]; then
  echo "not formatted with clang-format (run scripts/check-format.sh --fix):"
  for f in $unformatted; do
    echo "  $f"
  done
  exit 1
fi
echo "format: $(echo "$sources" | wc -l) files formatted"
