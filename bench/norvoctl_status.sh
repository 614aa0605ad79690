#!/usr/bin/env bash
# Measures the round trip of `norvoctl status` as a status bar sees it: the
# client starts, asks the running Norvo over the session bus, prints and
# ends (the target: under 50 ms). Norvo runs offscreen on a private bus in a
# throw-away home, with its timer running on a local project; then it also
# measures `norvoctl status --json` and `norvoctl search`.
#   bench/norvoctl_status.sh [build folder, default build-bench] [runs, default 200]
set -euo pipefail
cd "$(dirname "$0")/.."
build=$(realpath "${1:-build-bench}")
runs=${2:-200}
norvo="$build/src/norvo"
norvoctl="$build/src/norvoctl/norvoctl"
for program in "$norvo" "$norvoctl"; do
  [ -x "$program" ] || { echo "no executable at $program (build the norvo and norvoctl targets)" >&2; exit 1; }
done

if [ -z "${NORVO_BENCH_BUS:-}" ]; then
  exec env NORVO_BENCH_BUS=1 dbus-run-session -- "$0" "$build" "$runs"
fi

scratch=$(mktemp -d)
# Norvo saves its files as it ends: wait for it before removing its home.
trap 'if kill "${pid:-0}" 2>/dev/null; then wait "$pid" 2>/dev/null || true; fi; rm -rf "$scratch" || true' EXIT
source bench/benchmark_home.sh
export QT_QPA_PLATFORM=offscreen
benchmark_home </dev/null

"$norvo" >"$scratch/norvo.log" 2>&1 &
pid=$!
for _ in $(seq 100); do
  "$norvoctl" status >/dev/null 2>&1 && break
  sleep 0.1
done
"$norvoctl" start writing >/dev/null

# Wall time of each whole run of the client, in microseconds.
measure() {
  local what=$1
  shift
  local samples="$scratch/samples"
  : >"$samples"
  for _ in $(seq "$runs"); do
    local start end
    start=$(date +%s%N)
    "$norvoctl" "$@" >/dev/null
    end=$(date +%s%N)
    echo $(((end - start) / 1000)) >>"$samples"
  done
  sort -n "$samples" | awk -v what="$what" '
    { value[NR] = $1; sum += $1 }
    END { printf "%-28s median %6.1f ms   p95 %6.1f ms   max %6.1f ms   mean %6.1f ms   (%d runs)\n",
                 what, value[int((NR + 1) / 2)] / 1000, value[int(NR * 0.95)] / 1000, value[NR] / 1000,
                 sum / NR / 1000, NR }'
}

measure "norvoctl status" status
# The key that bench/run_all.py reads: the median of plain "status", in seconds.
sort -n "$scratch/samples" | awk '{ value[NR] = $1 } END { printf "round_trip_s=%.6f\n", value[int((NR + 1) / 2)] / 1e6 }'
measure "norvoctl status --json" status --json
measure "norvoctl search writing" search writing
"$norvoctl" stop >/dev/null
