#!/usr/bin/env bash
# Installs a built tree into a temporary prefix and checks what a desktop
# needs from it: the files in their XDG places, the desktop entry and the
# AppStream data accepted by their validators, the icon that the entry
# names, and catalogs that the program finds beside its bin folder.
#   tests/packaging/install_layout.sh <build dir> <program version>
set -euo pipefail
build=$1
version=$2
prefix=$(mktemp -d)
trap 'rm -rf "$prefix"' EXIT
cmake --install "$build" --prefix "$prefix" >/dev/null

failures=0
fail() { echo "FAIL: $*"; failures=$((failures + 1)); }
expect_file() { [ -f "$prefix/$1" ] || fail "missing $1"; }

id=com.tesselwick.Norvo
share=$prefix/share
expect_file bin/norvo
[ -x "$prefix/bin/norvo" ] || fail "bin/norvo is not executable"
expect_file share/applications/$id.desktop
expect_file share/metainfo/$id.metainfo.xml
expect_file share/icons/hicolor/scalable/apps/$id.svg
for state in running stopped syncing; do
  expect_file share/icons/hicolor/scalable/status/$id-$state.svg
  expect_file share/icons/hicolor/scalable/status/$id-$state-dark.svg
done
expect_file share/locale/de/LC_MESSAGES/norvo.mo
expect_file share/norvo/sounds/printer_sound.wav
expect_file share/norvo/help/index.html
expect_file share/norvo/changelog
expect_file share/doc/norvo/copyright
expect_file share/man/man1/norvo.1.gz

desktop-file-validate "$share/applications/$id.desktop" || fail "desktop-file-validate"
appstreamcli validate --no-net "$share/metainfo/$id.metainfo.xml" >/dev/null ||
  { appstreamcli validate --no-net "$share/metainfo/$id.metainfo.xml"; fail "appstreamcli validate"; }

# The entry starts the installed program and shows the installed icon.
entry=$share/applications/$id.desktop
exec_name=$(sed -n 's/^Exec=\([^ ]*\).*/\1/p' "$entry")
[ -x "$prefix/bin/$exec_name" ] || fail "Exec=$exec_name is not an installed program"
# TryExec is a file name alone: a desktop hides an entry whose TryExec names no file.
try_exec=$(sed -n 's/^TryExec=//p' "$entry")
[ -z "$try_exec" ] || [ -x "$prefix/bin/$try_exec" ] || fail "TryExec=$try_exec is not an installed program"
icon=$(sed -n 's/^Icon=//p' "$entry")
[ -f "$share/icons/hicolor/scalable/apps/$icon.svg" ] || fail "Icon=$icon has no installed icon"
grep -q '^Categories=.*Office;' "$entry" || fail "the entry is not in the Office category"
grep -q '^StartupWMClass=' "$entry" || fail "the entry has no StartupWMClass"
# The answers of logins on a scheme of their own reach the program through the entry.
grep -q '^Exec=[^ ]* %u$' "$entry" || fail "the entry does not pass the opened address"
for scheme in norvomavenlink norvoredbooth; do
  grep -q "^MimeType=.*x-scheme-handler/$scheme;" "$entry" || fail "the entry does not open $scheme:"
done

# AppStream: the component launches this entry and its newest release is this version.
meta=$share/metainfo/$id.metainfo.xml
grep -q "<launchable type=\"desktop-id\">$id.desktop</launchable>" "$meta" || fail "metainfo launches another entry"
newest=$(grep -o '<release version="[^"]*"' "$meta" | head -1 | cut -d'"' -f2)
[ "$newest" = "$version" ] || fail "newest release in the metainfo is $newest, the program is $version"

# The catalog is a compiled German catalog with the menu titles.
catalog=$(msgunfmt "$share/locale/de/LC_MESSAGES/norvo.mo")
grep -q '^msgstr "Timer starten"' <<<"$catalog" ||
  fail "the installed German catalog lacks the menu titles"

# Nothing installed may point back into the source or build tree.
if grep -rlI -e "$(cd "$build" && pwd)" -e "$(cd "$(dirname "$0")/../.." && pwd)" "$share" 2>/dev/null; then
  fail "installed files name the source or build tree"
fi

[ "$failures" -eq 0 ] && echo "install layout: all checks passed"
exit "$failures"
