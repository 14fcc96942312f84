#!/usr/bin/env bash
# Seeds one-line faults into a scratch copy of the tree, one at a time, and runs
# the tests of each fault's subsystem against it. A fault is caught when a test
# fails or times out. Faults are found by guard text, not by line number, so the
# list survives edits; a guard that no longer matches exactly once is reported
# as stale, never skipped.
#
# usage: seed-faults.sh [-l LIST] [-j JOBS] [ID...]
#   -l LIST  fault list (default: scripts/seed-faults.list)
#   -j JOBS  build and test parallelism (default: 2)
#   ID...    only these faults
# SEED_KEEP=1 keeps the scratch directory (its path is printed).
# Exit: 0 when every fault is caught, 1 when one is not, 2 when the run itself
# cannot start (bad list, failed build, unmodified suite failing).
set -euo pipefail

root=$(cd "$(dirname "$0")/.." && pwd)
list=$root/scripts/seed-faults.list
jobs=2
test_timeout=12  # per test (the slowest takes 5 s): a fault that hangs is caught, not waited on
run_timeout=900  # per fault, the whole ctest run

usage() {
  sed -n '8,12s/^# \{0,1\}//p' "$0" >&2
  exit 2
}

while getopts l:j:h opt; do
  case $opt in
  l) list=$OPTARG ;;
  j) jobs=$OPTARG ;;
  *) usage ;;
  esac
done
shift $((OPTIND - 1))

die() {
  echo "seed-faults: $*" >&2
  exit 2
}

[ -r "$list" ] || die "cannot read the fault list $list"

# --- the fault list: id, label, file, guard, replacement, description (TABs)
ids=() labels=() files=() guards=() replacements=() descriptions=()
declare -A known=()
lineno=0
while IFS= read -r line || [ -n "$line" ]; do
  lineno=$((lineno + 1))
  case $line in '' | '#'*) continue ;; esac
  IFS=$'\t' read -r -a fields <<<"$line"
  [ "${#fields[@]}" -eq 6 ] || die "$list:$lineno: expected 6 TAB-separated fields, got ${#fields[@]}"
  [ -z "${known[${fields[0]}]:-}" ] || die "$list:$lineno: duplicate id ${fields[0]}"
  known[${fields[0]}]=1
  ids+=("${fields[0]}") labels+=("${fields[1]}") files+=("${fields[2]}")
  guards+=("${fields[3]}") replacements+=("${fields[4]}") descriptions+=("${fields[5]}")
done <"$list"

selected=()
if [ $# -eq 0 ]; then
  for i in "${!ids[@]}"; do selected+=("$i"); done
else
  for want in "$@"; do
    [ -n "${known[$want]:-}" ] || die "unknown fault id: $want"
    for i in "${!ids[@]}"; do [ "${ids[$i]}" = "$want" ] && selected+=("$i"); done
  done
fi
[ "${#selected[@]}" -gt 0 ] || die "no faults in $list"

label_regex() { printf '^(%s|ops)$' "$1"; }

# --- scratch copy of the tree as it stands, uncommitted work included
scratch=$(mktemp -d /tmp/seed-faults.XXXXXX)
cleanup() {
  if [ "${SEED_KEEP:-0}" = 1 ]; then
    echo "seed-faults: scratch directory kept: $scratch" >&2
  else
    rm -rf "$scratch"
  fi
}
trap cleanup EXIT
trap 'exit 130' INT TERM

src=$scratch/src
build=$scratch/build
logs=$scratch/logs
mkdir -p "$src" "$logs"
(
  cd "$root"
  git ls-files -co --exclude-standard -z |
    while IFS= read -r -d '' f; do
      if [ -e "$f" ] || [ -L "$f" ]; then printf '%s\0' "$f"; fi
    done |
    xargs -0 cp -P --parents -t "$src"
)

generator=()
if command -v ninja >/dev/null 2>&1; then generator=(-G Ninja); fi

echo "seed-faults: configuring and building in $scratch" >&2
cmake -S "$src" -B "$build" "${generator[@]}" -DCMAKE_BUILD_TYPE=RelWithDebInfo \
  -DJAXEL_BUILD_TESTS=ON -DJAXEL_BUILD_BENCHMARKS=OFF -DJAXEL_BUILD_EXAMPLES=OFF \
  >"$logs/configure.log" 2>&1 || die "configure failed (see $logs/configure.log; SEED_KEEP=1 keeps it)"
cmake --build "$build" -j"$jobs" >"$logs/build.log" 2>&1 ||
  die "the unmodified tree does not build (see $logs/build.log; SEED_KEEP=1 keeps it)"

run_tests() { # LABEL LOG [CTEST-OPTION...]
  local label=$1 log=$2
  shift 2
  timeout --kill-after=10 "$run_timeout" \
    ctest --test-dir "$build" -L "$(label_regex "$label")" --timeout "$test_timeout" -j"$jobs" \
    --output-on-failure "$@" >"$log" 2>&1
}

# The test binaries behind each label, so a fault rebuilds only what it runs.
declare -A targets_of=()
used_labels=()
for i in "${selected[@]}"; do
  label=${labels[$i]}
  [ -n "${targets_of[$label]+set}" ] && continue
  used_labels+=("$label")
  targets_of[$label]=$(ctest --test-dir "$build" -N -V -L "$(label_regex "$label")" 2>/dev/null |
    sed -n 's/^.*Test command: \([^ ]*\).*$/\1/p' | xargs -r -n1 basename | sort -u | tr '\n' ' ')
done

all_labels=$(
  IFS='|'
  echo "${used_labels[*]}"
)
echo "seed-faults: checking the unmodified suite for labels ${all_labels//|/, }, ops" >&2
run_tests "$all_labels" "$logs/baseline.log" ||
  die "the unmodified suite fails for labels $all_labels (see $logs/baseline.log; SEED_KEEP=1 keeps it)"

# Replaces the one occurrence of GUARD in FILE by REPLACEMENT; fails, changing
# nothing, unless GUARD occurs exactly once. Literal text throughout.
apply_fault() { # FILE GUARD REPLACEMENT
  GUARD=$2 REPLACEMENT=$3 awk '
    BEGIN { g = ENVIRON["GUARD"]; r = ENVIRON["REPLACEMENT"]; n = 0 }
    {
      rest = $0; out = ""
      while ((at = index(rest, g)) > 0) {
        n++; out = out substr(rest, 1, at - 1) r; rest = substr(rest, at + length(g))
      }
      lines[NR] = out rest
    }
    END {
      if (n != 1) exit 3
      for (i = 1; i <= NR; i++) print lines[i] > FILENAME ".seeded"
    }' "$1" || return 1
  mv "$1.seeded" "$1"
}

# --- one fault at a time
results=() seconds=() missed_ids=()
caught=0
for i in "${selected[@]}"; do
  id=${ids[$i]} label=${labels[$i]} file=${files[$i]}
  path=$src/$file
  started=$SECONDS
  result=stale
  if [ -f "$path" ] && cp -p "$path" "$scratch/original" &&
    apply_fault "$path" "${guards[$i]}" "${replacements[$i]}"; then
    touch "$path"
    read -r -a targets <<<"${targets_of[$label]}"
    if [ "${#targets[@]}" -gt 0 ]; then
      build_args=(--target "${targets[@]}")
    else
      build_args=()
    fi
    if ! cmake --build "$build" -j"$jobs" "${build_args[@]}" >"$logs/$id.build.log" 2>&1; then
      result=broken
    # The first failing test is enough to catch a fault.
    elif run_tests "$label" "$logs/$id.test.log" --stop-on-failure; then
      result=missed
    else
      result=caught
    fi
    # Back to the original text with a fresh time stamp, so the next build
    # recompiles it.
    cp "$scratch/original" "$path"
    touch "$path"
  fi
  if [ "$result" = caught ]; then
    caught=$((caught + 1))
  else
    missed_ids+=("$id($result)")
  fi
  results[i]=$result
  seconds[i]=$((SECONDS - started))
  printf 'seed-faults: %-44s %s\n' "$id" "$result" >&2
done

# --- the table
short_path() {
  local path=${1#framework/libs/jaxel/}
  echo "${path#framework/}"
}
row='%-42s %-11s %-36s %-7s %4s  %s\n'
# shellcheck disable=SC2059 # the format is the table layout above
printf "$row" ID LABEL FILE RESULT SECS DESCRIPTION
for i in "${selected[@]}"; do
  # shellcheck disable=SC2059
  printf "$row" "${ids[$i]}" "${labels[$i]}" "$(short_path "${files[$i]}")" "${results[$i]}" \
    "${seconds[$i]}" "${descriptions[$i]}"
done
missed=${#missed_ids[@]}
if [ "$missed" -gt 0 ]; then
  echo "not caught: ${missed_ids[*]}"
fi
echo "$caught caught, $missed missed"
[ "$missed" -eq 0 ]
