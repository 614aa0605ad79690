#!/usr/bin/env bash
# Fails when the support library or the domain layer includes or links Qt.
set -u
root=$1; shift
status=0
hits=$(grep -rlE '#\s*include\s*[<"]Q[A-Za-z]' "$root/support" "$root/src/core" 2>/dev/null)
if [ -n "$hits" ]; then
  echo "Qt headers included outside the shell:"; echo "$hits"; status=1
fi
for lib in "$@"; do
  if nm -C "$lib" 2>/dev/null | grep -qE ' U Q[A-Z][A-Za-z]+::'; then
    echo "$lib refers to Qt symbols"; status=1
  fi
done
[ $status -eq 0 ] && echo "zvcore and norvo_core are free of Qt"
exit $status
