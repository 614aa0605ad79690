#!/usr/bin/env bash
# Builds Norvo with its tests and runs every test. Installs missing Debian
# packages first, then runs the suite inside a private D-Bus session with an
# unlocked gnome-keyring (for the key store tests) and a virtual X server
# (for the shell tests).
#   scripts/test.sh             - the normal build
#   scripts/test.sh --sanitize  - the same with AddressSanitizer and UBSan
#   scripts/test.sh --tsan      - the library and domain tests with ThreadSanitizer
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/deps.sh test

builddir=build-tests
only=()
# Unoptimized and without debug information: the suite builds in a
# fraction of the time and runs fast enough. Configure a tree of your own
# with -DCMAKE_BUILD_TYPE=Debug to debug a test.
flags=(-DCMAKE_BUILD_TYPE=Debug "-DCMAKE_CXX_FLAGS_DEBUG=-O0 -g0" "-DCMAKE_C_FLAGS_DEBUG=-O0 -g0" -DNORVO_BUILD_TESTS=ON
       -DNORVO_BUILD_BENCH=ON -DNORVO_UNITY_BUILD=ON)
if [ "${1:-}" = "--sanitize" ]; then
  builddir=build-asan
  flags+=(-DNORVO_SANITIZE=ON -DCMAKE_BUILD_TYPE=Debug "-DCMAKE_CXX_FLAGS_DEBUG=-O1 -g" "-DCMAKE_C_FLAGS_DEBUG=-O1 -g")
  export LSAN_OPTIONS="suppressions=$PWD/tests/lsan.supp:print_suppressions=0"
  export UBSAN_OPTIONS="print_stacktrace=1:halt_on_error=1"
fi
if [ "${1:-}" = "--tsan" ]; then
  # Threads meet in the domain: its tests, without the shell and its toolkit.
  builddir=build-tsan
  flags=(-DCMAKE_BUILD_TYPE=Debug "-DCMAKE_CXX_FLAGS_DEBUG=-O1 -g" "-DCMAKE_C_FLAGS_DEBUG=-O1 -g" -DNORVO_BUILD_TESTS=ON
         -DNORVO_BUILD_SHELL=OFF -DNORVO_UNITY_BUILD=ON -DNORVO_TSAN=ON)
  export TSAN_OPTIONS="halt_on_error=1:second_deadlock_stack=1"
  only=(-L core)
fi
[ -n "${NORVO_WERROR:-}" ] && flags+=(-DNORVO_WERROR=ON)

cmake -S . -B "$builddir" "${flags[@]}" >/dev/null
cmake --build "$builddir" -j"$(nproc)"

# The key store and the files of the tests live in a throw-away home.
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
export HOME="$scratch/home" XDG_DATA_HOME="$scratch/data" XDG_CONFIG_HOME="$scratch/config" \
       XDG_CACHE_HOME="$scratch/cache" XDG_RUNTIME_DIR="$scratch/run"
mkdir -p "$HOME" "$XDG_DATA_HOME" "$XDG_CONFIG_HOME" "$XDG_CACHE_HOME" "$XDG_RUNTIME_DIR"
chmod 700 "$XDG_RUNTIME_DIR"

# Every benchmark once on tiny data, so that they keep working; their
# figures mean nothing here and no time fails the run.
if [ -z "${1:-}" ]; then
  python3 bench/run_all.py --build "$builddir" --size tiny --runs 1 --idle 1 >"$scratch/bench.txt" 2>&1 ||
    { cat "$scratch/bench.txt"; echo "a benchmark failed to run" >&2; exit 1; }
  echo "benchmarks: each ran once on tiny data"
fi

export QT_QPA_PLATFORM=${QT_QPA_PLATFORM:-xcb}

# -noreset: the X server would otherwise reset whenever its last client
# goes, and a test starting at that moment could not connect.
dbus-run-session -- bash -c '
  echo -n norvo-tests | gnome-keyring-daemon --unlock --components=secrets >/dev/null 2>&1 || true
  xvfb-run -a -s "-screen 0 1280x800x24 -noreset" ctest --test-dir "$0" --output-on-failure --timeout 120 -j"$(nproc)" "$@"
' "$builddir" "${only[@]}"
