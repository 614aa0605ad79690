#!/usr/bin/env bash
# Extracts the visible texts afresh and checks every catalog against them:
# each text translated, none fuzzy, formats matching, and po/norvo.pot
# current, so that a new text without a translation fails here.
#   tests/packaging/catalogs.sh <source dir>
set -euo pipefail
source=$1
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
"$source/po/update-pot.sh" "$source" "$scratch/norvo.pot"

failures=0
if ! diff -q "$scratch/norvo.pot" "$source/po/norvo.pot" >/dev/null; then
  echo "FAIL: po/norvo.pot is stale; run the norvo_pot target"
  diff "$source/po/norvo.pot" "$scratch/norvo.pot" | head -20
  failures=$((failures + 1))
fi
while read -r language; do
  case $language in ''|'#'*) continue ;; esac
  po=$source/po/$language.po
  if ! msgcmp "$po" "$scratch/norvo.pot"; then
    echo "FAIL: $language.po lacks texts of the program"; failures=$((failures + 1))
  fi
  stats=$(LC_ALL=C msgfmt --check --statistics -o /dev/null "$po" 2>&1) || {
    echo "FAIL: $language.po: $stats"; failures=$((failures + 1)); continue; }
  case $stats in
    *fuzzy*|*untranslated*) echo "FAIL: $language.po: $stats"; failures=$((failures + 1)) ;;
  esac
  # Obsolete entries are texts the program no longer shows.
  if grep -q '^#~' "$po"; then echo "FAIL: $language.po keeps obsolete entries"; failures=$((failures + 1)); fi
done < "$source/po/LINGUAS"
[ "$failures" -eq 0 ] && echo "catalogs: complete and current"
exit "$failures"
