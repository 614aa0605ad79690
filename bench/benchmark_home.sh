# Sourced by the benchmark scripts that run the real program: a throw-away
# home under $scratch with its own runtime folder (the single-instance socket
# lives there, so another Norvo on the machine neither stops this one nor is
# disturbed), and preferences with one local project, "Writing". Extra
# preference keys, as property-list XML, come on standard input.
#   benchmark_home <<<'<key>...</key>...'
benchmark_writing_project=6f1c0b7e-2f52-4c44-9a51-1f3d2a7c9e10

benchmark_home() {
  export HOME="$scratch/home" XDG_DATA_HOME="$scratch/data" XDG_CONFIG_HOME="$scratch/config" \
         XDG_CACHE_HOME="$scratch/cache" XDG_RUNTIME_DIR="$scratch/run"
  mkdir -p "$HOME" "$XDG_DATA_HOME/com.tesselwick.norvo" "$XDG_CACHE_HOME" \
           "$XDG_CONFIG_HOME/com.tesselwick.norvo" "$XDG_RUNTIME_DIR"
  chmod 700 "$XDG_RUNTIME_DIR"
  local extra
  extra=$(cat)
  cat > "$XDG_CONFIG_HOME/com.tesselwick.norvo/Preferences.plist" <<PLIST
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
      <key>KDIntegrationProjectID</key><string>$benchmark_writing_project</string>
      <key>KDIntegrationProjectTime</key><integer>0</integer>
    </dict>
  </array>
$extra
</dict>
</plist>
PLIST
}
