#!/usr/bin/env bash
# Extracts every visible text of the program into a gettext template.
#   po/update-pot.sh <source root> <output .pot>
# The keywords are every wrapper through which a visible text passes; a new
# wrapper must be added here, or its texts stay untranslated.
set -euo pipefail
root=$1
out=$2
cd "$root"
version=$(sed -n 's/^project(Norvo VERSION \([0-9.]*\).*/\1/p' CMakeLists.txt)
find src support -name '*.cpp' -o -name '*.h' | LC_ALL=C sort > "$out.files"
xgettext --language=C++ --from-code=UTF-8 \
  --keyword --keyword=ZVLocalizedString:1 --keyword=ZVLocalizedFormat:1 \
  --keyword=ZVLocalizedPluralFormat:1,2 --keyword=ZVLocalizable:1 \
  --keyword=L:1 --keyword=ZVLocalizedQString:1 --keyword=checkBox:1,2t --keyword=checkBox:2,4t \
  --add-location=file --sort-output \
  --package-name=Norvo --package-version="$version" \
  -f "$out.files" -o "$out.new"
rm -f "$out.files"
# Without the creation date the template changes only when a text does.
sed -i -e '/^"POT-Creation-Date: /d' -e 's/^"Content-Type: text\/plain; charset=CHARSET/"Content-Type: text\/plain; charset=UTF-8/' "$out.new"
mv "$out.new" "$out"
