#!/usr/bin/env bash
# Builds Norvo and starts it. Installs missing Debian packages first.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/deps.sh build
cmake -S . -B build -DCMAKE_BUILD_TYPE=RelWithDebInfo -DNORVO_BUILD_TESTS=OFF >/dev/null
cmake --build build --target norvo -j"$(nproc)"
exec build/src/norvo "$@"
