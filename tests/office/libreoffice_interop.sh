#!/usr/bin/env bash
# Opens the cleaned copies of the project's own Office samples in LibreOffice, headless, and
# converts each to PDF. Fails when a copy does not load (no PDF comes out) or when the PDF lacks
# the text a reader must still see.
#   tests/office/libreoffice_interop.sh BUILD/bin/tavrin
set -uo pipefail
tavrin="${1:-build/bin/tavrin}"
root="$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)"
work="$(mktemp -d)"
trap 'rm -rf "$work"' EXIT
export HOME="$work/home"   # LibreOffice keeps its profile there, not in the user's
mkdir -p "$HOME" "$work/clean" "$work/pdf"

# The visible text each sample must keep, one phrase per line after the name.
declare -A expected=(
  [board-minutes.docx]=$'Quarterly plan\nRevenue grows\nby ten percent\nNext steps'
  [salary-budget.xlsx]=$'Quarterly plan'
  [reorg-pitch.pptx]=$'Quarterly plan'
)

shopt -s nullglob
samples=("$root"/samples/files/*.docx "$root"/samples/files/*.xlsx "$root"/samples/files/*.pptx)
if [ ${#samples[@]} -eq 0 ]; then echo "interop: no Office samples"; exit 1; fi
"$tavrin" clean --output-dir "$work/clean" "${samples[@]}" || { echo "interop: cleaning failed"; exit 1; }

status=0
for cleaned in "$work/clean"/*; do
  name="$(basename "$cleaned")"
  timeout 180 soffice --headless --norestore --convert-to pdf --outdir "$work/pdf" "$cleaned" >"$work/soffice.log" 2>&1
  pdf="$work/pdf/${name%.*}.pdf"
  if [ ! -s "$pdf" ]; then
    echo "FAIL $name: LibreOffice did not load it"; sed 's/^/  /' "$work/soffice.log"; status=1; continue
  fi
  text="$(pdftotext -layout "$pdf" - 2>/dev/null | tr -s ' \n' ' ')"
  original="$(basename "$name" | sed -E 's/_cleaned(\.[^.]+)$/\1/')"
  missing=0
  while IFS= read -r phrase; do
    [ -z "$phrase" ] && continue
    if [[ "$text" != *"$phrase"* ]]; then echo "FAIL $name: lost \"$phrase\""; missing=1; fi
  done <<<"${expected[$original]:-}"
  if [ -z "${text// /}" ]; then echo "FAIL $name: no visible text"; missing=1; fi
  if [ $missing -eq 0 ]; then echo "ok   $name loads and keeps its text"; else status=1; fi
done
exit $status
