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
# Besides the samples: the package shapes met in real files (Word 2010 to 2021 parts, a missing
# font, a hidden slide named by a custom show and a section list, hidden-sheet remnants), made by
# the test tool beside the program.
mkdir -p "$work/shapes"
"$(dirname "$tavrin")/make_office_samples" --shapes "$work/shapes" || { echo "interop: cannot make the shapes"; exit 1; }
samples=("$root"/samples/files/*.docx "$root"/samples/files/*.xlsx "$root"/samples/files/*.pptx
         "$work/shapes"/*)
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

# Documents as LibreOffice itself writes them: our flat ODF sources saved as docx, xlsx and
# pptx. Inspection must show what they carry, cleaning must take it out, and the cleaned copy
# must still load.
declare -A carries=(
  [memo.docx]="Core.Creator Core.Title Custom.Client"
  [budget.xlsx]="Core.Creator Custom.Department office.hidden.sheet.Salaries"
  [pitch.pptx]="Core.Title Core.LastModifiedBy office.hidden.slide."
)
declare -A shows=([memo.docx]="The merger goes ahead" [budget.xlsx]="Total" [pitch.pptx]="Quarterly plan")
mkdir -p "$work/authored" "$work/authored-clean" "$work/authored-pdf"
for source in "$root"/tests/office/libreoffice/*; do
  case "$source" in *.fodt) to=docx ;; *.fods) to=xlsx ;; *.fodp) to=pptx ;; *) continue ;; esac
  timeout 180 soffice --headless --norestore --convert-to "$to" --outdir "$work/authored" "$source" >"$work/soffice.log" 2>&1
done
for doc in "$work/authored"/*; do
  name="$(basename "$doc")"
  report="$("$tavrin" inspect --json "$doc")" || { echo "FAIL $name: inspection failed"; status=1; continue; }
  for id in ${carries[$name]:-}; do
    if ! grep -q "\"id\": \"$id" <<<"$report"; then echo "FAIL $name: inspection misses $id"; status=1; fi
  done
  if ! "$tavrin" clean --output-dir "$work/authored-clean" "$doc" >"$work/clean.log" 2>&1; then
    echo "FAIL $name: cleaning failed"; sed 's/^/  /' "$work/clean.log"; status=1; continue
  fi
  cleaned="$work/authored-clean/${name%.*}_cleaned.${name##*.}"
  after="$("$tavrin" inspect --json "$cleaned")"
  for id in Core.Creator Core.Title Custom. office.hidden.sheet. office.hidden.slide.; do
    if grep -q "\"id\": \"$id" <<<"$after"; then echo "FAIL $name: $id survived cleaning"; status=1; fi
  done
  timeout 180 soffice --headless --norestore --convert-to pdf --outdir "$work/authored-pdf" "$cleaned" >"$work/soffice.log" 2>&1
  text="$(pdftotext -layout "$work/authored-pdf/$(basename "${cleaned%.*}").pdf" - 2>/dev/null | tr -s ' \n' ' ')"
  if [[ "$text" == *"${shows[$name]}"* ]]; then echo "ok   $name (written by LibreOffice) inspected, cleaned and reopened"
  else echo "FAIL $name: the cleaned copy lost \"${shows[$name]}\""; status=1; fi
done
[ -n "$(ls -A "$work/authored")" ] || { echo "FAIL LibreOffice wrote no documents"; status=1; }
exit $status
