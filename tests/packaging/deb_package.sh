#!/usr/bin/env bash
# Builds the Debian package of a built tree with CPack and checks it: its
# dependencies come from the libraries that the program links (Qt, curl,
# the Secret Service library) and lintian finds no error in it.
#   tests/packaging/deb_package.sh <build dir>
set -euo pipefail
build=$(cd "$1" && pwd)
out=$(mktemp -d)
trap 'rm -rf "$out"' EXIT
cpack -G DEB -B "$out" --config "$build/CPackConfig.cmake" >"$out/cpack.log" 2>&1 || { cat "$out/cpack.log"; exit 1; }
deb=$(ls "$out"/norvo_*.deb)

failures=0
fail() { echo "FAIL: $*"; failures=$((failures + 1)); }
depends=$(dpkg-deb --field "$deb" Depends)
echo "Depends: $depends"
# Each library that bin/norvo links must be named by the package of its soname.
for library in libQt6Widgets.so.6 libQt6Gui.so.6 libQt6Core.so.6 libQt6DBus.so.6 libcurl.so.4 libsecret-1.so.0; do
  file=$(ldd "$build/src/norvo" | awk -v l="$library" '$1 == l {print $3}')
  [ -n "$file" ] || { fail "bin/norvo does not link $library"; continue; }
  # dpkg knows the merged /usr path of a library, and /lib may be a link to it.
  package=$( (dpkg -S "$(readlink -f "$file")" 2>/dev/null || dpkg -S "$file" 2>/dev/null || true) | cut -d: -f1 | head -1)
  [ -n "$package" ] || { fail "no package holds $file"; continue; }
  case ", $depends," in
    *", $package "*|*", $package,"*|*" $package ("*) ;;
    *) fail "Depends lacks $package for $library" ;;
  esac
done
case $depends in *libqt6svg6*) ;; *) fail "Depends lacks Qt's SVG plugin (libqt6svg6)" ;; esac
contents=$(dpkg-deb --contents "$deb")
grep -q './usr/bin/norvo$' <<<"$contents" || fail "the package has no /usr/bin/norvo"
grep -q './usr/share/applications/com.tesselwick.Norvo.desktop$' <<<"$contents" ||
  fail "the package has no desktop entry"

if command -v lintian >/dev/null; then
  lintian --fail-on error "$deb" > "$out/lintian.log" 2>&1 ||
    { cat "$out/lintian.log"; fail "lintian reports errors"; }
  grep -E '^[EW]:' "$out/lintian.log" || true
else
  fail "lintian is not installed"
fi
[ "$failures" -eq 0 ] && echo "deb package: all checks passed"
exit "$failures"
