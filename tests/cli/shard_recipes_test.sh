#!/usr/bin/env bash
# The batch recipes of docs/batch, simulated: for each way a scheduler names the share (explicit
# K N as GNU parallel passes it, a Slurm job array, a Kubernetes Indexed Job), N worker processes
# run side by side over one list, and together they must have cleaned exactly that list, each file
# once, each copy in its own worker's folder.
#   shard_recipes_test.sh TAVRIN SOURCE_DIR
set -euo pipefail
export TAVRIN="$1"
source_dir="$2"
worker="$source_dir/docs/batch/tavrin-shard"
scratch="$(mktemp -d)"
trap 'rm -rf "$scratch"' EXIT
fail() { echo "FAIL: $*" >&2; exit 1; }

# 30 files under names that hash apart, in two folders, one with a space in its name.
mkdir -p "$scratch/in/a" "$scratch/in/b c"
for i in $(seq 1 15); do
  cp "$source_dir/samples/files/diagram.png" "$scratch/in/a/picture-$i.png"
  cp "$source_dir/samples/files/board-minutes.docx" "$scratch/in/b c/minutes-$i.docx"
done
find "$scratch/in" -type f | sort > "$scratch/list.txt"
total=$(wc -l < "$scratch/list.txt")

check_union() {   # OUTDIR N
  local out="$1" n="$2"
  cat "$out"/shard-*.jsonl | python3 -c '
import json, sys
paths = []
for line in sys.stdin:
    report = json.loads(line)
    if not report["verifiedClean"]: sys.exit("not verified: " + line)
    paths.append(report["sourcePath"])
print("\n".join(sorted(paths)))' > "$out/union.txt" || fail "a log line is not a verified report"
  diff -u "$scratch/list.txt" "$out/union.txt" >&2 || fail "$out: the shares do not add up to the list"
  local copies
  copies=$(find "$out" -mindepth 2 -type f | wc -l)
  [ "$copies" -eq "$total" ] || fail "$out: $copies copies for $total files"
  local nonempty=0
  for k in $(seq 1 "$n"); do
    [ "$(find "$out/shard-$k" -type f | wc -l)" -eq "$(wc -l < "$out/shard-$k.jsonl")" ] ||
      fail "$out: shard $k's folder and log disagree"
    [ -s "$out/shard-$k.jsonl" ] && nonempty=$((nonempty + 1))
  done
  [ "$nonempty" -ge 2 ] || fail "$out: the list was not spread over the workers"
}

n=3
# GNU parallel: `seq 1 N | parallel ... tavrin-shard LIST OUT {} N`.
pids=()
for k in $(seq 1 $n); do "$worker" "$scratch/list.txt" "$scratch/parallel" "$k" "$n" & pids+=($!); done
for p in "${pids[@]}"; do wait "$p" || fail "parallel worker failed"; done
check_union "$scratch/parallel" $n

# Slurm job array --array=0-(N-1).
pids=()
for id in $(seq 0 $((n - 1))); do
  SLURM_ARRAY_TASK_ID=$id SLURM_ARRAY_TASK_COUNT=$n "$worker" "$scratch/list.txt" "$scratch/slurm" & pids+=($!)
done
for p in "${pids[@]}"; do wait "$p" || fail "slurm task failed"; done
check_union "$scratch/slurm" $n

# Kubernetes Indexed Job with completions N.
n=4
pids=()
for index in $(seq 0 $((n - 1))); do
  JOB_COMPLETION_INDEX=$index TAVRIN_SHARDS=$n "$worker" "$scratch/list.txt" "$scratch/k8s" & pids+=($!)
done
for p in "${pids[@]}"; do wait "$p" || fail "indexed job pod failed"; done
check_union "$scratch/k8s" $n

echo "every recipe split $total files over its workers exactly once"
