#!/usr/bin/env bash
# Times Tavrin as whole processes on a generated corpus and, when they are installed, exiftool and
# mat2 on the same files in the same run. Prints a side-by-side table with Tavrin/peer ratios:
# the machines are shared and noisy, so ratios are what we compare.
#   bench/run_bench.sh BUILD_DIR [REPLICAS]
set -uo pipefail
build="${1:-build-bench}"
replicas="${2:-20}"
tavrin="$build/bin/tavrin"
work="$build/bench-work"
rm -rf "$work" && mkdir -p "$work"

now() { date +%s.%N; }
elapsed() { awk -v a="$1" -v b="$2" 'BEGIN { printf "%.3f", b - a }'; }
rate() { awk -v n="$1" -v s="$2" 'BEGIN { if (s > 0) printf "%.1f", n / s; else print "-" }'; }
ratio() { awk -v a="$1" -v b="$2" 'BEGIN { if (a != "-" && b != "-" && b > 0) printf "%.2fx", a / b; else print "-" }'; }
# Peak resident memory in MB and wall seconds of one command.
measure() { /usr/bin/time -f "%e %M" "$@" 2>&1 >/dev/null | tail -n 1 | awk '{ printf "%s %.1f", $1, $2 / 1024 }'; }

echo "bench: generating the corpus"
"$build/bin/tavrin-make-corpus" "$work/corpus" >/dev/null
small="$work/corpus/small"
realistic="$work/corpus/realistic"

# The small corpus replicated, as a folder a user would clean in one go.
x="$work/x$replicas"
mkdir -p "$x"
for i in $(seq 1 "$replicas"); do
  for f in "$small"/*; do cp "$f" "$x/$(printf '%02d' "$i")-$(basename "$f")"; done
done
files=$(find "$x" -type f | wc -l)
bytes=$(du -sb "$x" | cut -f1)
mb=$(awk -v b="$bytes" 'BEGIN { printf "%.2f", b / 1e6 }')
images=$(find "$x" -type f \( -name '*.jpg' -o -name '*.png' -o -name '*.tiff' -o -name '*.webp' -o -name '*.gif' -o -name '*.heic' \) | wc -l)

declare -A result
fresh() { rm -rf "$1" && mkdir -p "$1"; }

# Tavrin over the whole folder.
fresh "$work/out"
t0=$(now); "$tavrin" clean --output-dir "$work/out" "$x" >"$work/tavrin-x.log" 2>&1; t1=$(now)
s=$(elapsed "$t0" "$t1")
result[tavrin_files]=$(rate "$files" "$s")
result[tavrin_mb]=$(rate "$mb" "$s")
result[tavrin_ok]=$(grep -c '^cleaned' "$work/tavrin-x.log")

# Tavrin on the image files only (every output verified by decoding it).
mkdir -p "$work/images" && find "$x" -type f \( -name '*.jpg' -o -name '*.png' -o -name '*.tiff' -o -name '*.webp' -o -name '*.gif' -o -name '*.heic' \) -exec cp {} "$work/images/" \;
fresh "$work/out"
t0=$(now); "$tavrin" clean --output-dir "$work/out" "$work/images" >/dev/null 2>&1; t1=$(now)
result[tavrin_images]=$(rate "$images" "$(elapsed "$t0" "$t1")")

# One small file, start-up included: the best of ten runs.
best=999
for i in $(seq 1 10); do
  fresh "$work/one"
  t0=$(now); "$tavrin" clean --output-dir "$work/one" "$small/photo.jpg" >/dev/null 2>&1; t1=$(now)
  best=$(awk -v a="$best" -v b="$(elapsed "$t0" "$t1")" 'BEGIN { print (b < a ? b : a) }')
done
result[tavrin_single]=$(awk -v s="$best" 'BEGIN { printf "%.1f", s * 1000 }')

for peer in exiftool_each exiftool_batch mat2; do
  result[${peer}_files]="-"; result[${peer}_mb]="-"; result[${peer}_images]="-"; result[${peer}_single]="-"
done

if command -v exiftool >/dev/null; then
  echo "bench: exiftool, one process per file"
  fresh "$work/peer" && cp "$x"/* "$work/peer/"
  t0=$(now); for f in "$work/peer"/*; do exiftool -q -q -all= -overwrite_original "$f" >/dev/null 2>&1; done; t1=$(now)
  s=$(elapsed "$t0" "$t1")
  result[exiftool_each_files]=$(rate "$files" "$s"); result[exiftool_each_mb]=$(rate "$mb" "$s")

  echo "bench: exiftool, batch mode"
  fresh "$work/peer" && cp "$x"/* "$work/peer/"
  t0=$(now); exiftool -q -q -all= -overwrite_original "$work/peer" >/dev/null 2>&1; t1=$(now)
  s=$(elapsed "$t0" "$t1")
  result[exiftool_batch_files]=$(rate "$files" "$s"); result[exiftool_batch_mb]=$(rate "$mb" "$s")
  fresh "$work/peer" && cp "$work/images"/* "$work/peer/"
  t0=$(now); exiftool -q -q -all= -overwrite_original "$work/peer" >/dev/null 2>&1; t1=$(now)
  result[exiftool_batch_images]=$(rate "$images" "$(elapsed "$t0" "$t1")")

  best=999
  for i in $(seq 1 10); do
    fresh "$work/one" && cp "$small/photo.jpg" "$work/one/"
    t0=$(now); exiftool -q -q -all= -overwrite_original "$work/one/photo.jpg" >/dev/null 2>&1; t1=$(now)
    best=$(awk -v a="$best" -v b="$(elapsed "$t0" "$t1")" 'BEGIN { print (b < a ? b : a) }')
  done
  result[exiftool_each_single]=$(awk -v s="$best" 'BEGIN { printf "%.1f", s * 1000 }')
fi

if command -v mat2 >/dev/null; then
  echo "bench: mat2"
  fresh "$work/peer" && cp "$x"/* "$work/peer/"
  t0=$(now); mat2 "$work/peer"/* >/dev/null 2>&1; t1=$(now)
  s=$(elapsed "$t0" "$t1")
  result[mat2_files]=$(rate "$files" "$s"); result[mat2_mb]=$(rate "$mb" "$s")
  fresh "$work/peer" && cp "$work/images"/* "$work/peer/"
  t0=$(now); mat2 "$work/peer"/* >/dev/null 2>&1; t1=$(now)
  result[mat2_images]=$(rate "$images" "$(elapsed "$t0" "$t1")")
  best=999
  for i in $(seq 1 5); do
    fresh "$work/one" && cp "$small/photo.jpg" "$work/one/"
    t0=$(now); mat2 "$work/one/photo.jpg" >/dev/null 2>&1; t1=$(now)
    best=$(awk -v a="$best" -v b="$(elapsed "$t0" "$t1")" 'BEGIN { print (b < a ? b : a) }')
  done
  result[mat2_single]=$(awk -v s="$best" 'BEGIN { printf "%.1f", s * 1000 }')
fi

echo
echo "Small corpus x$replicas: $files files, $mb MB ($images images); Tavrin cleaned and verified ${result[tavrin_ok]} of $files"
printf '%-28s %12s %14s %15s %10s %12s %12s\n' "figure" "tavrin" "exiftool/file" "exiftool batch" "mat2" "vs batch" "vs mat2"
row() {  # label key invert(1 when lower is better)
  local t=${result[tavrin_$2]} e=${result[exiftool_each_$2]:--} b=${result[exiftool_batch_$2]:--} m=${result[mat2_$2]:--}
  local rb rm
  if [ "$3" = 1 ]; then rb=$(ratio "$b" "$t"); rm=$(ratio "$m" "$t"); else rb=$(ratio "$t" "$b"); rm=$(ratio "$t" "$m"); fi
  [ "$2" = single ] && rb=$(ratio "$e" "$t")
  printf '%-28s %12s %14s %15s %10s %12s %12s\n' "$1" "$t" "$e" "$b" "$m" "$rb" "$rm"
}
row "files/s (whole corpus)" files 0
row "MB/s (whole corpus)" mb 0
row "files/s (images only)" images 0
row "single file, ms (best of N)" single 1
echo "(ratios: how many times better Tavrin is; 'vs batch' on the single-file row compares to exiftool per file)"

echo
echo "Realistic files (wall seconds, peak resident MB)"
for f in "$realistic"/*; do
  fresh "$work/out"
  read -r secs peak <<<"$(measure "$tavrin" clean --output-dir "$work/out" "$f")"
  status=$([ -n "$(ls -A "$work/out")" ] && echo "cleaned" || echo "refused")
  printf '  %-28s %8ss %8s MB  %s (%s)\n' "$(basename "$f")" "$secs" "$peak" "$status" "$(du -h "$f" | cut -f1)"
done

echo
echo "ZIP layer and Office inspection"
if [ -x "$build/bin/tavrin-zip-bench" ]; then
  zipout=$("$build/bin/tavrin-zip-bench" "$work/zip")
  echo "$zipout" | sed 's/^/  /'
  docx=$(echo "$zipout" | awk '/^large docx/ { print $3 }')
  if [ -n "$docx" ]; then
    "$tavrin" inspect "$docx" >/dev/null  # warm the page cache, as a user's second look would
    read -r secs peak <<<"$(measure "$tavrin" inspect "$docx")"
    printf '  %-28s %8ss %8s MB\n' "inspect large docx" "$secs" "$peak"
    # The reader's own share, without the program's start-up.
    [ -x "$build/bin/tavrin-office-inspect-bench" ] && "$build/bin/tavrin-office-inspect-bench" "$docx" 20 | sed 's/^/  /'
  fi
fi
[ -x "$build/bin/tavrin-office-scrub-bench" ] && "$build/bin/tavrin-office-scrub-bench" 300 5 | sed 's/^/  /'

echo
echo "Audio and video inspection"
# A 2 GB movie whose metadata sits after the media data, as cameras write it. The media data is
# a hole in a sparse file: inspection must never read it.
movie="$work/long-take.mov"
python3 - "$movie" <<'PY'
import struct, sys
def atom(kind, payload): return struct.pack('>I', 8 + len(payload)) + kind + payload
media = 2 * 1024**3
mvhd = atom(b'mvhd', b'\0' * 4 + struct.pack('>III', 3700000000, 3700000100, 600) + b'\0' * 84)
location = atom(b'\xa9xyz', struct.pack('>HH', 18, 0) + b'+48.8577+002.2950/')
with open(sys.argv[1], 'wb') as f:
    f.write(atom(b'ftyp', b'qt  \0\0\0\0qt  '))
    f.write(struct.pack('>I', 1) + b'mdat' + struct.pack('>Q', media + 16))
    f.seek(media, 1)
    f.write(atom(b'moov', mvhd + atom(b'udta', location)))
PY
"$tavrin" inspect "$movie" >/dev/null
best=""
for i in 1 2 3 4 5; do
  start=$(now); "$tavrin" inspect "$movie" >/dev/null; end=$(now)
  t=$(awk -v a="$start" -v b="$end" 'BEGIN { printf "%.1f", (b - a) * 1000 }')
  best=$(awk -v a="$best" -v b="$t" 'BEGIN { if (a == "" || b < a) print b; else print a }')
done
read -r secs peak <<<"$(measure "$tavrin" inspect "$movie")"
printf '  %-28s %8s ms (best of 5, start-up included) %8s MB peak\n' "inspect 2 GB movie" "$best" "$peak"
rm -f "$movie"

echo
echo "Service layer (expansion, staging, a batch through the processing service vs tavrin clean)"
if [ -x "$build/bin/tavrin-services-bench" ]; then
  "$build/bin/tavrin-services-bench" "$work/services" "$small" "$tavrin" 500 | sed 's/^/  /'
fi
echo
echo "Queue (whole processes: add a folder, a run against tavrin clean, the history)"
bash "$(dirname "$0")/queue_bench.sh" "$build" "$small"
echo
echo "Store (open, recently cleaned of 100,000, a 2,000-file insert)"
"$build/bin/tavrin-store-bench" "$work/store" | tail -n +2
echo
echo "Watched folders (close to clean copy; 1,000 files at once)"
python3 "$(dirname "$0")/watch_bench.py" "$tavrin" samples/files/beach-photo.jpg 1000
