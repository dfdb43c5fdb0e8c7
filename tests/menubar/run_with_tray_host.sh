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

. "$(dirname "$0")/start_xvfb.sh"

trayer --edge top --align right --widthtype request --height 24 --transparent false 2>"$work/trayer.log" &
tray_pid=$!

export QT_QPA_PLATFORM=xcb
export PULSEBAR_TRAY_TEST=1
export XDG_RUNTIME_DIR="$work"
# No session bus: without a StatusNotifierWatcher the items go to the XEmbed tray.
unset DBUS_SESSION_BUS_ADDRESS
"$binary" --gtest_filter='TrayHost*:TrayX11*'
