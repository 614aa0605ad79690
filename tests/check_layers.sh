#!/usr/bin/env bash
# Fails when the support library or the domain layer includes or links Qt,
# when the shell includes a service's own files, or when one service
# includes another's (what services share lives in the kit and common/).
set -u
root=$1; shift
status=0
hits=$(grep -rlE '#\s*include\s*[<"]Q[A-Za-z]' "$root/support" "$root/src/core" 2>/dev/null)
if [ -n "$hits" ]; then
  echo "Qt headers included outside the shell:"; echo "$hits"; status=1
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
  if nm -C "$lib" 2>/dev/null | grep -qE ' U Q[A-Z][A-Za-z]+::'; then
    echo "$lib refers to Qt symbols"; status=1
  fi
done
[ $status -eq 0 ] && echo "zvcore and norvo_core are free of Qt; the shell and each service name no service"
exit $status
