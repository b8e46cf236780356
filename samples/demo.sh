#!/usr/bin/env bash
# The main job on the project's own sample files: inspect them, clean them into a folder,
# then inspect the cleaned copies to show what is left.
set -uo pipefail
tavrin="${1:-build/bin/tavrin}"
here="$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)"
files="$here/files"
out="$(dirname "$tavrin")/../demo-output"
rm -rf "$out" && mkdir -p "$out"

section() { printf '\n\033[1m== %s ==\033[0m\n' "$1"; }

section "What Tavrin can do in this build"
"$tavrin" formats

shopt -s nullglob
samples=("$files"/*)
if [ ${#samples[@]} -eq 0 ]; then
  echo "No sample files yet."
  exit 0
fi

section "Inspecting the sample files"
"$tavrin" inspect "${samples[@]}"

section "Is anything there to remove? (tavrin check writes nothing)"
"$tavrin" check "$files"
echo "(exit status $?: 0 nothing to remove, 1 something would be removed, 2 could not check)"

section "Cleaning them into $(cd "$out" && pwd) (profile: maximum-privacy)"
"$tavrin" clean --output-dir "$out" "$files"
status=$?

cleaned=("$out"/*)
if [ ${#cleaned[@]} -gt 0 ]; then
  section "What is left in the cleaned copies"
  "$tavrin" inspect "${cleaned[@]}"
  section "Checking the cleaned copies"
  "$tavrin" check "$out"
  echo "(exit status $?)"
fi

# Office documents before and after: the author, comments, tracked changes and hidden sheets
# and slides that cleaning takes out (the helper reads the packages with our own ZIP code).
summary="$(dirname "$tavrin")/make_office_samples"
office=("$files"/*.docx "$files"/*.xlsx "$files"/*.pptx)
if [ -x "$summary" ] && [ ${#office[@]} -gt 0 ]; then
  section "Office documents before cleaning"
  for f in "${office[@]}"; do "$summary" --summary "$f"; done
  section "Office documents after cleaning"
  for f in "$out"/*.docx "$out"/*.xlsx "$out"/*.pptx; do "$summary" --summary "$f"; done
fi

# The queue, with a store and temporary folder of the demo's own, so the user's queue is untouched.
queue_home="$(mktemp -d)"
queue_run() { XDG_DATA_HOME="$queue_home/data" TMPDIR="$queue_home" "$tavrin" "$@"; }
section "The queue: add the samples, process them with a preset, show the history"
queue_run queue add --preset "Standard Sharing" "$files"
queue_run queue process
queue_run history
queue_run queue remove --all
section "Clean in place: the clean file takes the original's path, the original goes to the Trash"
mkdir -p "$queue_home/desk"
cp "$files"/*.jpg "$queue_home/desk/"
HOME="$queue_home" XDG_DATA_HOME="$queue_home/data" TMPDIR="$queue_home" "$tavrin" clean --in-place "$queue_home/desk"
ls -l "$queue_home/data/Trash/files" "$queue_home/data/Trash/info"
rm -rf "$queue_home"

section "Summary"
if [ $status -eq 0 ]; then
  echo "Every sample was cleaned and verified."
else
  echo "Some samples were refused (shown above with the reason); nothing unverified was written."
fi
exit 0
