#!/usr/bin/env bash
# The queue as whole processes, each with a store of its own: adding a folder of 2,000 small
# files, a run of 500 small mixed files against `tavrin clean` of the same files in the same run,
# and `tavrin history` over a store of 100,000 records.
#   bench/queue_bench.sh BUILD_DIR SMALL_CORPUS_DIR
set -uo pipefail
build="$1"
small="$2"
tavrin="$build/bin/tavrin"
work="$build/bench-work/queue"
rm -rf "$work" && mkdir -p "$work/tmp" "$work/home"
export HOME="$work/home" XDG_DATA_HOME="$work/data" TMPDIR="$work/tmp"

now() { date +%s.%N; }
elapsed() { awk -v a="$1" -v b="$2" 'BEGIN { printf "%.3f", b - a }'; }
fresh_store() { rm -rf "$XDG_DATA_HOME" "$TMPDIR" && mkdir -p "$TMPDIR"; }
# A folder of N files taken in turn from the small corpus, under names of their own.
fill() {
  local dir="$1" count="$2" i=0
  mkdir -p "$dir"
  while [ "$i" -lt "$count" ]; do
    for f in "$small"/*; do
      [ "$i" -ge "$count" ] && break
      cp "$f" "$dir/$(printf '%04d' "$i")-$(basename "$f")"
      i=$((i + 1))
    done
  done
}

fill "$work/two-thousand" 2000
best=999
for round in 1 2 3; do
  fresh_store
  t0=$(now); "$tavrin" queue add "$work/two-thousand" >"$work/add.log" 2>&1; t1=$(now)
  best=$(awk -v a="$best" -v b="$(elapsed "$t0" "$t1")" 'BEGIN { print (b < a ? b : a) }')
done
added=$(grep -c '^[0-9A-F]\{8\}-' "$work/add.log")
printf '  %-44s %8.3f s  (%s added; target at most 2 s)\n' "queue add, a folder of 2,000 small files" "$best" "$added"

fill "$work/five-hundred" 500
cat "$work/five-hundred"/* >/dev/null  # both read from the page cache
fresh_store
mkdir -p "$work/out"
t0=$(now); "$tavrin" clean --output-dir "$work/out" "$work/five-hundred" >"$work/clean.log" 2>&1; t1=$(now)
clean=$(elapsed "$t0" "$t1")
"$tavrin" queue add --preset maximum-privacy "$work/five-hundred" >/dev/null 2>&1
t0=$(now); "$tavrin" queue process >"$work/process.log" 2>&1; t1=$(now)
process=$(elapsed "$t0" "$t1")
cleaned=$(grep -c '^cleaned' "$work/clean.log")
processed=$(grep -c '^cleaned' "$work/process.log")
printf '  %-44s %8.3f s  %6.1f files/s  (%s cleaned)\n' "tavrin clean, 500 small mixed files" "$clean" \
  "$(awk -v s="$clean" 'BEGIN { print 500 / s }')" "$cleaned"
printf '  %-44s %8.3f s  %6.1f files/s  (%s cleaned; %.2fx of clean, target at least 0.8x)\n' \
  "queue process, the same files" "$process" "$(awk -v s="$process" 'BEGIN { print 500 / s }')" "$processed" \
  "$(awk -v a="$clean" -v b="$process" 'BEGIN { print a / b }')"

"$build/bin/tavrin-store-bench" "$work/store" >/dev/null
store="$work/store/Tavrin.store"
"$tavrin" history --store "$store" >/dev/null  # the page cache warm, as for a user's second look
samples=()
for round in $(seq 1 15); do
  t0=$(now); "$tavrin" history --store "$store" >/dev/null 2>&1; t1=$(now)
  samples+=("$(awk -v a="$t0" -v b="$t1" 'BEGIN { printf "%.1f", (b - a) * 1000 }')")
done
sorted=$(printf '%s\n' "${samples[@]}" | sort -n)
printf '  %-44s median %6.1f ms  best %6.1f ms  (whole process; target at most 50 ms)\n' \
  "history over 100,000 records" "$(echo "$sorted" | sed -n 8p)" "$(echo "$sorted" | head -1)"
