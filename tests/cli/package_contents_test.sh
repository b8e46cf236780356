#!/usr/bin/env bash
# The Debian package, unpacked into a scratch root: the program, its PDF module where the program
# looks for it, the manual pages and completions, Depends worked out from the libraries, and the
# unpacked program working, PDFs included. Skipped (status 77) when no package was built here.
#   package_contents_test.sh BUILD_DIR SOURCE_DIR     (or TAVRIN_DEB=path/to/tavrin_*.deb)
set -euo pipefail
build_dir="$1"
source_dir="$2"
deb="${TAVRIN_DEB:-}"
if [ -z "$deb" ]; then
  shopt -s nullglob
  debs=("$build_dir"/tavrin_*.deb)
  if [ ${#debs[@]} -eq 0 ]; then
    echo "SKIP: no tavrin_*.deb in $build_dir (build one with ./run package, or set TAVRIN_DEB)"
    exit 77
  fi
  deb="${debs[0]}"
fi
scratch="$(mktemp -d)"
trap 'rm -rf "$scratch"' EXIT
fail() { echo "FAIL: $*" >&2; exit 1; }

[[ "$(basename "$deb")" =~ ^tavrin_[0-9]+\.[0-9]+\.[0-9]+_amd64\.deb$ ]] || fail "unexpected name $(basename "$deb")"
dpkg-deb -x "$deb" "$scratch/root"
root="$scratch/root"
for f in usr/bin/tavrin usr/lib/tavrin/tavrin-pdf.so usr/share/man/man1/tavrin.1 \
         usr/share/man/man1/tavrin-clean.1 usr/share/man/man1/tavrin-check.1 \
         usr/share/bash-completion/completions/tavrin usr/share/zsh/vendor-completions/_tavrin \
         usr/share/doc/tavrin/batch/tavrin-shard; do
  [ -e "$root/$f" ] || fail "missing /$f"
done
[ -x "$root/usr/bin/tavrin" ] || fail "/usr/bin/tavrin is not executable"
# Nothing outside /usr, and nothing of the build tree.
extra=$(cd "$root" && find . -mindepth 1 -maxdepth 1 ! -name usr)
[ -z "$extra" ] || fail "files outside /usr: $extra"

depends=$(dpkg-deb -f "$deb" Depends)
for lib in libc6 libstdc++6 libqpdf; do
  [[ "$depends" == *"$lib"* ]] || fail "Depends lacks $lib: $depends"
done
[[ "$(dpkg-deb -f "$deb" Package)" == tavrin ]] || fail "package name"

# The unpacked program runs from anywhere and finds its PDF module beside it.
cd "$scratch"
"$root/usr/bin/tavrin" --version | grep -q '^tavrin ' || fail "--version"
"$root/usr/bin/tavrin" inspect --json "$source_dir/samples/files/quarterly-report.pdf" > pdf.json ||
  fail "the unpacked program cannot inspect a PDF"
grep -q '"fileType"' pdf.json || fail "no report for the PDF"
echo "package $(basename "$deb") holds a working tavrin; Depends: $depends"
