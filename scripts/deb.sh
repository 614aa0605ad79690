#!/usr/bin/env bash
# Builds the Debian package: a release build in build-deb with Debian's
# hardening flags, then CPack, then lintian (which fails on errors).
# The package lands in build-deb/norvo_<version>_<architecture>.deb.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/deps.sh package
# CMake reads CFLAGS, CXXFLAGS and LDFLAGS but not CPPFLAGS, which carries
# _FORTIFY_SOURCE.
CFLAGS="$(dpkg-buildflags --get CFLAGS) $(dpkg-buildflags --get CPPFLAGS)"
CXXFLAGS="$(dpkg-buildflags --get CXXFLAGS) $(dpkg-buildflags --get CPPFLAGS)"
LDFLAGS="$(dpkg-buildflags --get LDFLAGS)"
export CFLAGS CXXFLAGS LDFLAGS
cmake -S . -B build-deb -DCMAKE_BUILD_TYPE=Release -DNORVO_BUILD_TESTS=OFF >/dev/null
cmake --build build-deb -j"$(nproc)"
(cd build-deb && cpack -G DEB)
lintian --fail-on error build-deb/norvo_*.deb
