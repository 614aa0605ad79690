#!/usr/bin/env bash
# Installs the Debian packages that building, running and testing Norvo need.
# Checks with dpkg first, so a second run costs a fraction of a second.
#   scripts/deps.sh build   - what building and running the program needs
#   scripts/deps.sh test    - the above plus what the test suite needs
#   scripts/deps.sh fuzz    - the above plus clang and libFuzzer for fuzz/run.sh
#   scripts/deps.sh package - what building and checking the Debian package needs
#   scripts/deps.sh bench   - the test packages plus the peers of bench/run_all.py
set -euo pipefail
what=${1:-build}

build_pkgs=(
  cmake g++ pkg-config ccache
  libcurl4-openssl-dev     # HTTP transport
  libssl-dev               # random state and PKCE digests of OAuth2 logins
  nlohmann-json3-dev       # JSON replies of the services
  libpugixml-dev           # XML replies and XPath
  libplist-dev             # the database and the preferences are property lists
  libsecret-1-dev          # credentials live in the desktop's key store
  libicu-dev               # locale-aware date and time styles
  qt6-base-dev             # the desktop shell (Widgets, D-Bus)
  libx11-dev libxss-dev    # global hot keys and input idle time on X11
  gettext                  # translations, English text as the message id
  libqt6svg6               # Qt draws the SVG icons of the tray and the window
)
test_pkgs=(
  libgtest-dev libgmock-dev  # unit tests
  libbenchmark-dev         # the benchmarks, built and run once on tiny data
  libcpp-httplib-dev       # loopback fake servers for the services
  xvfb xauth               # shell tests on a real X server
  dbus dbus-x11 gnome-keyring  # a session bus and a Secret Service for the key store tests
  python3                  # the example server of the Generic protocol
  libplist-utils           # plistutil reads the database file as an independent reader
  trayer xdotool imagemagick  # the end-to-end test: a tray host, clicks, screenshots
)
package_pkgs=(
  desktop-file-utils appstream  # validators of the desktop entry and the AppStream data
  dpkg-dev file lintian    # CPack's dependency lookup (dpkg-shlibdeps) and the package check
)
bench_pkgs=(
  timewarrior              # the peer of the CSV export
  libplist-utils           # the property-list floor beside our own reader
  linux-perf valgrind heaptrack  # finding where the time and memory go
)
fuzz_pkgs=(
  clang libclang-rt-14-dev # libFuzzer and the sanitizer runtimes, only for the fuzz step
)

pkgs=("${build_pkgs[@]}")
# The test suite installs into a temporary prefix and builds the package.
[ "$what" = test ] && pkgs+=("${test_pkgs[@]}" "${package_pkgs[@]}")
[ "$what" = fuzz ] && pkgs+=("${test_pkgs[@]}" "${package_pkgs[@]}" "${fuzz_pkgs[@]}")
[ "$what" = package ] && pkgs+=("${package_pkgs[@]}")
[ "$what" = bench ] && pkgs+=("${test_pkgs[@]}" "${package_pkgs[@]}" "${bench_pkgs[@]}")

missing=()
for p in "${pkgs[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
[ ${#missing[@]} -eq 0 ] && exit 0

echo "Installing: ${missing[*]}"
SUDO=""
[ "$(id -u)" -ne 0 ] && SUDO="sudo"
$SUDO apt-get update -qq
DEBIAN_FRONTEND=noninteractive $SUDO apt-get install -y -qq --no-install-recommends "${missing[@]}"
