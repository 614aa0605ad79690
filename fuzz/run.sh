#!/usr/bin/env bash
# Builds the fuzz targets with clang (ASan, UBSan, LSan) into build-fuzz and
# runs each one for a fixed number of inputs, starting from its corpus in
# fuzz/corpus/<target>. A crash, a hang, a leak or a sanitizer report fails.
#   fuzz/run.sh            - every target, FUZZ_RUNS inputs each (default 2000)
#   fuzz/run.sh TARGET...  - only these
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/deps.sh fuzz
runs=${FUZZ_RUNS:-2000}
build=${FUZZ_BUILD_DIR:-build-fuzz}
targets=("$@")
[ ${#targets[@]} -eq 0 ] && targets=(property_list_fuzzer json_key_path_fuzzer integrations_database_fuzzer
                                     project_dictionary_fuzzer service_reply_fuzzer)

# Light optimization and line tables only: the targets build in about half
# the time of an optimized build with full debug information, and the
# sanitizers' reports still name file and line.
cmake -S . -B "$build" -DCMAKE_BUILD_TYPE=Debug -DCMAKE_CXX_FLAGS_DEBUG="-O1 -gline-tables-only" \
  -DCMAKE_C_FLAGS_DEBUG="-O1 -gline-tables-only" -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ \
  -DNORVO_BUILD_FUZZ=ON -DNORVO_BUILD_TESTS=OFF -DNORVO_BUILD_SHELL=OFF -DNORVO_UNITY_BUILD=ON -DNORVO_WERROR="${NORVO_WERROR:-OFF}" >/dev/null
cmake --build "$build" --target "${targets[@]}" -j"${FUZZ_JOBS:-2}"

export ASAN_OPTIONS=detect_leaks=1:abort_on_error=1
export UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1
for target in "${targets[@]}"; do
  corpus=fuzz/corpus/${target%_fuzzer}
  # New inputs go to a scratch folder, so that the corpus in the tree stays small.
  scratch=$(mktemp -d)
  echo "== $target: $runs runs"
  "$build/fuzz/$target" -runs="$runs" -timeout=10 -rss_limit_mb=2048 -max_len=65536 \
    -artifact_prefix="$build/fuzz/$target-" "$scratch" "$corpus"
  rm -rf "$scratch"
done
