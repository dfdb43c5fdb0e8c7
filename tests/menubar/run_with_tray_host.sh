#!/usr/bin/env bash
# Runs the Tray* cases of the given test binary on a private X server (Xvfb) with a real system-tray
# host (trayer, which speaks the XEmbed tray protocol), then stops both.
set -euo pipefail
binary="$1"
work="$(mktemp -d)"
xvfb_pid=""
tray_pid=""
cleanup() {
  [ -n "$tray_pid" ] && kill "$tray_pid" 2>/dev/null || true
  [ -n "$xvfb_pid" ] && kill "$xvfb_pid" 2>/dev/null || true
  wait 2>/dev/null || true
  rm -rf "$work"
}
trap cleanup EXIT

# -displayfd picks a free display number and writes it once the server accepts connections.
Xvfb -displayfd 3 -screen 0 1280x800x24 -nolisten tcp 3>"$work/display" 2>"$work/xvfb.log" &
xvfb_pid=$!
for _ in $(seq 1 100); do
  [ -s "$work/display" ] && break
  sleep 0.1
done
if [ ! -s "$work/display" ]; then
  echo "Xvfb did not start:" >&2
  cat "$work/xvfb.log" >&2
  exit 1
fi
export DISPLAY=":$(head -n1 "$work/display")"

trayer --edge top --align right --widthtype request --height 24 --transparent false 2>"$work/trayer.log" &
tray_pid=$!

export QT_QPA_PLATFORM=xcb
export PULSEBAR_TRAY_TEST=1
export XDG_RUNTIME_DIR="$work"
# No session bus: without a StatusNotifierWatcher the items go to the XEmbed tray.
unset DBUS_SESSION_BUS_ADDRESS
"$binary" --gtest_filter='TrayHost*:TrayX11*'
