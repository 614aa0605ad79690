#!/usr/bin/env bash
# Fails when the support library or the domain layer includes or links Qt,
# when the support library includes the domain, when the shell's widgets,
# preferences or account panels include the application above them, when
# the shell includes a service's own files, or when one service includes
# another's (what services share lives in the kit and common/).
set -u
root=$1; shift
status=0
# <QString>, <QtCore/QString> and <qstring.h> alike.
hits=$(grep -rlE '#\s*include\s*[<"](Q[A-Za-z]|Qt[A-Za-z]+/|q[a-z0-9_]+\.h[">])' "$root/support" "$root/src/core" 2>/dev/null)
if [ -n "$hits" ]; then
  echo "Qt headers included outside the shell:"; echo "$hits"; status=1
fi
hits=$(grep -rnE '#\s*include\s*"(core|app|ui_elements|preferences|integration_editing)/' "$root/support" 2>/dev/null)
if [ -n "$hits" ]; then
  echo "The support library includes a layer above it:"; echo "$hits"; status=1
fi
hits=$(grep -rnE '#\s*include\s*"app/' "$root/src/ui_elements" "$root/src/preferences" "$root/src/integration_editing" 2>/dev/null)
if [ -n "$hits" ]; then
  echo "A part of the shell includes the application above it:"; echo "$hits"; status=1
fi
services=$root/src/core/integrations/address_based
hits=$(grep -rnE '#\s*include\s*"core/integrations/address_based/[^/"]+/' \
         "$root/src/app" "$root/src/ui_elements" "$root/src/preferences" "$root/src/integration_editing" 2>/dev/null |
       grep -v 'address_based/common/')
if [ -n "$hits" ]; then
  echo "The shell names a service:"; echo "$hits"; status=1
fi
for folder in "$services"/*/; do
  service=$(basename "$folder")
  [ "$service" = common ] && continue
  hits=$(grep -rnE '#\s*include\s*"core/integrations/address_based/[^/"]+/' "$folder" |
         grep -vE "address_based/($service|common)/")
  if [ -n "$hits" ]; then
    echo "The service $service includes another service:"; echo "$hits"; status=1
  fi
done
for lib in "$@"; do
  if [ ! -s "$lib" ]; then
    echo "$lib is missing: its symbols cannot be checked"; status=1; continue
  fi
  if nm -C "$lib" 2>/dev/null | grep -qE ' U Q[A-Z][A-Za-z]+::'; then
    echo "$lib refers to Qt symbols"; status=1
  fi
done
[ $status -eq 0 ] && echo "zvcore and norvo_core are free of Qt, zvcore of the domain; the layers include only downwards; the shell and each service name no service"
exit $status
