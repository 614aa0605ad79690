#!/usr/bin/env bash
# Measures the CPU time that a running Norvo uses while the user does
# nothing: first with the timer stopped, then with the timer running on a
# local project (the target: under 0.5% of one core). Starts its own X
# server unless DISPLAY is set, and uses a throw-away home.
#   bench/idle_cpu.sh [path/to/norvo] [seconds per phase, default 60]
set -euo pipefail
cd "$(dirname "$0")/.."
norvo=$(realpath "${1:-build-bench/src/norvo}")
seconds=${2:-60}
[ -x "$norvo" ] || { echo "no executable at $norvo (build the norvo target first)" >&2; exit 1; }

if [ -z "${DISPLAY:-}" ]; then
  exec xvfb-run -a -s "-screen 0 1280x800x24" "$0" "$norvo" "$seconds"
fi

scratch=$(mktemp -d)
trap 'kill "${pid:-0}" 2>/dev/null || true; rm -rf "$scratch"' EXIT
export HOME="$scratch/home" XDG_DATA_HOME="$scratch/data" XDG_CONFIG_HOME="$scratch/config" \
       XDG_CACHE_HOME="$scratch/cache"
mkdir -p "$HOME" "$XDG_DATA_HOME" "$XDG_CACHE_HOME" "$XDG_CONFIG_HOME/com.tesselwick.norvo"

# One local project, current, and Ctrl+Alt+T as the hot key that starts and
# stops the timer (Qt::Key_T, Qt::ControlModifier | Qt::AltModifier).
cat > "$XDG_CONFIG_HOME/com.tesselwick.norvo/Preferences.plist" <<'PLIST'
<?xml version="1.0" encoding="UTF-8"?>
<!DOCTYPE plist PUBLIC "-//Apple//DTD PLIST 1.0//EN" "http://www.apple.com/DTDs/PropertyList-1.0.dtd">
<plist version="1.0">
<dict>
  <key>ZVReleaseNotes847</key><true/>
  <key>ZVConnectionProbeAddress</key><string>http://127.0.0.1:9/</string>
  <key>KDNorvoIntegration</key>
  <array>
    <dict>
      <key>KDIntegrationProjectName</key><string>Writing</string>
      <key>KDIntegrationProjectID</key><string>6f1c0b7e-2f52-4c44-9a51-1f3d2a7c9e10</string>
      <key>KDIntegrationProjectTime</key><integer>0</integer>
    </dict>
  </array>
  <key>KDIntegrationCenterCurrentProject</key>
  <array><string>KD_NORVO_LOCAL_INTEGRATION</string><string>6f1c0b7e-2f52-4c44-9a51-1f3d2a7c9e10</string></array>
  <key>ShortcutRecorder KeyboardShortcut</key>
  <dict>
    <key>keyCode</key><integer>84</integer>
    <key>modifierFlags</key><integer>201326592</integer>
    <key>keyChars</key><string>t</string>
    <key>keyCharsIgnoringModifiers</key><string>t</string>
  </dict>
</dict>
</plist>
PLIST

"$norvo" >"$scratch/norvo.log" 2>&1 &
pid=$!
for _ in $(seq 50); do
  xdotool search --onlyvisible --name '^Norvo$' >/dev/null 2>&1 && break
  sleep 0.2
done
sleep 3

ticks=$(getconf CLK_TCK)
cpu_ticks() { awk '{print $14 + $15}' "/proc/$pid/stat"; }
measure() {
  local before after
  before=$(cpu_ticks)
  sleep "$seconds"
  after=$(cpu_ticks)
  awk -v used=$((after - before)) -v ticks="$ticks" -v seconds="$seconds" -v what="$1" \
    'BEGIN { printf "%-16s %6.3f%% of one core (%d ticks of 1/%d s in %d s)\n", what, 100 * used / ticks / seconds, used, ticks, seconds }'
}

measure "timer stopped"
xdotool key ctrl+alt+t
sleep 2
measure "timer running"
xdotool key ctrl+alt+t
sleep 1
rss=$(awk '/VmRSS/ {print $2}' "/proc/$pid/status")
echo "resident memory  $((rss / 1024)) MB"
# The time that the run added to the project shows that the timer ran.
kill -TERM "$pid"; wait "$pid" 2>/dev/null || true
tr -d '\n\t ' <"$XDG_CONFIG_HOME/com.tesselwick.norvo/Preferences.plist" |
  grep -o 'KDIntegrationProjectTime</key><integer>[0-9]*' | sed 's/.*<integer>/tracked seconds  /' || true
