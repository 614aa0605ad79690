#!/usr/bin/env bash
# Measures a running Norvo while the user does nothing: the time from exec
# to the timer window shown and, when norvoctl is built beside it, to the
# projects read (the database is read behind the window); then the CPU time
# and wake-ups with the timer stopped and with it running on a local
# project, and the resident memory. Starts its own X server unless DISPLAY
# is set and its own session bus unless there is one, and uses a throw-away
# home, with a copy of the given database when there is one. Prints
# key=value lines after the readable ones.
#   bench/idle_cpu.sh [path/to/norvo] [seconds per phase, default 60] [Integrations.edb]
set -euo pipefail
cd "$(dirname "$0")/.."
norvo=$(realpath "${1:-build-bench/src/norvo}")
seconds=${2:-60}
database=${3:+$(realpath "$3")}
[ -x "$norvo" ] || { echo "no executable at $norvo (build the norvo target first)" >&2; exit 1; }

if [ -z "${DISPLAY:-}" ]; then
  # An X server of its own. With -displayfd it picks a free display and
  # names it only once it takes connections; xvfb-run's guess of a free
  # number can lose to a server of a run just before, and then Norvo finds
  # no display at all.
  exec 4< <(exec Xvfb -displayfd 1 -screen 0 1280x800x24 -noreset -nolisten tcp 2>/dev/null)
  xvfb=$!
  read -r -t 20 -u 4 number || { echo "the X server did not start" >&2; exit 1; }
  status=0
  DISPLAY=":$number" "$0" "$norvo" "$seconds" ${database:+"$database"} || status=$?
  kill "$xvfb" 2>/dev/null || true
  exit "$status"
fi
if [ -z "${DBUS_SESSION_BUS_ADDRESS:-}" ]; then
  exec dbus-run-session -- "$0" "$norvo" "$seconds" ${database:+"$database"}
fi
norvoctl="$(dirname "$norvo")/norvoctl/norvoctl"

scratch=$(mktemp -d)
# Norvo saves its files as it ends: wait for it before removing its home.
trap 'if kill "${pid:-0}" 2>/dev/null; then wait "$pid" 2>/dev/null || true; fi; rm -rf "$scratch" || true' EXIT
source bench/benchmark_home.sh
# One local project, current, and Ctrl+Alt+T as the hot key that starts and
# stops the timer (Qt::Key_T, Qt::ControlModifier | Qt::AltModifier).
benchmark_home <<KEYS
  <key>KDIntegrationCenterCurrentProject</key>
  <array><string>KD_NORVO_LOCAL_INTEGRATION</string><string>$benchmark_writing_project</string></array>
  <key>ShortcutRecorder KeyboardShortcut</key>
  <dict>
    <key>keyCode</key><integer>84</integer>
    <key>modifierFlags</key><integer>201326592</integer>
    <key>keyChars</key><string>t</string>
    <key>keyCharsIgnoringModifiers</key><string>t</string>
  </dict>
KEYS
[ -n "$database" ] && cp "$database" "$XDG_DATA_HOME/com.tesselwick.norvo/Integrations.edb"

started=$(date +%s.%N)
"$norvo" >"$scratch/norvo.log" 2>&1 &
pid=$!
shown=""
for _ in $(seq 3000); do
  if xdotool search --onlyvisible --name '^Norvo$' >/dev/null 2>&1; then shown=$(date +%s.%N); break; fi
  sleep 0.01
done
[ -n "$shown" ] || { echo "the timer window did not show" >&2; exit 1; }
start_s=$(awk -v a="$started" -v b="$shown" 'BEGIN { printf "%.3f", b - a }')
echo "start-up         $start_s s to the timer window"
projects_s=""
if [ -x "$norvoctl" ]; then
  for _ in $(seq 1200); do
    if "$norvoctl" status --json 2>/dev/null | grep -q '"loading":false'; then
      projects_s=$(awk -v a="$started" -v b="$(date +%s.%N)" 'BEGIN { printf "%.3f", b - a }')
      break
    fi
    # Each look starts a process; fewer of them leave the machine to the read.
    sleep 0.1
  done
  echo "start-up         $projects_s s to the projects read"
fi
sleep 3

ticks=$(getconf CLK_TCK)
cpu_ticks() { awk '{print $14 + $15}' "/proc/$pid/stat"; }
# Every switch of every thread of the process: a thread that sleeps and
# wakes is one voluntary switch.
switches() { cat /proc/"$pid"/task/*/status 2>/dev/null | awk '/^voluntary_ctxt_switches/ { n += $2 } END { print n + 0 }'; }
keys=""
measure() {
  local before after woken_before woken_after
  before=$(cpu_ticks); woken_before=$(switches)
  sleep "$seconds"
  after=$(cpu_ticks); woken_after=$(switches)
  awk -v used=$((after - before)) -v ticks="$ticks" -v seconds="$seconds" -v what="$1" -v woken=$((woken_after - woken_before)) \
    'BEGIN { printf "%-16s %6.3f%% of one core (%d ticks of 1/%d s in %d s), %.1f wake-ups per second\n", what, 100 * used / ticks / seconds, used, ticks, seconds, woken / seconds }'
  keys="$keys$(awk -v used=$((after - before)) -v ticks="$ticks" -v seconds="$seconds" -v what="$2" -v woken=$((woken_after - woken_before)) \
    'BEGIN { printf "%s_cpu_percent=%.4f\n%s_wakeups_per_s=%.2f\n", what, 100 * used / ticks / seconds, what, woken / seconds }')
"
}

measure "timer stopped" stopped
xdotool key ctrl+alt+t
sleep 2
measure "timer running" running
xdotool key ctrl+alt+t
sleep 1
rss=$(awk '/VmRSS/ {print $2}' "/proc/$pid/status")
echo "resident memory  $((rss / 1024)) MB"
printf 'start_s=%s\n%srss_mb=%s\n' "$start_s" "$keys" "$((rss / 1024))"
if [ -n "$projects_s" ]; then printf 'projects_s=%s\n' "$projects_s"; fi
# The time that the run added to the project shows that the timer ran.
kill -TERM "$pid"; wait "$pid" 2>/dev/null || true
tr -d '\n\t ' <"$XDG_CONFIG_HOME/com.tesselwick.norvo/Preferences.plist" |
  grep -o 'KDIntegrationProjectTime</key><integer>[0-9]*' | sed 's/.*<integer>/tracked seconds  /' || true
