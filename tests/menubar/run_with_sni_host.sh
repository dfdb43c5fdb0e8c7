#!/usr/bin/env bash
# Runs the SNIHost* cases of the given test binary against real StatusNotifierItem hosts: a private
# session bus, a private X server (Xvfb), status-notifier-watcher and gtk-sni-tray-standalone.
set -euo pipefail
binary="$1"
if [ -z "${PULSEBAR_IN_PRIVATE_BUS:-}" ]; then
  export PULSEBAR_IN_PRIVATE_BUS=1
  exec dbus-run-session -- "$0" "$@"
fi
work="$(mktemp -d)"
pids=()
cleanup() {
  for pid in "${pids[@]}"; do kill "$pid" 2>/dev/null || true; done
  wait 2>/dev/null || true
  rm -rf "$work"
}
trap cleanup EXIT

. "$(dirname "$0")/start_xvfb.sh"
pids+=("$xvfb_pid")
export XDG_RUNTIME_DIR="$work"
export XDG_CURRENT_DESKTOP=XFCE

status-notifier-watcher >"$work/watcher.log" 2>&1 &
pids+=($!)
gtk-sni-tray-standalone >"$work/host.log" 2>&1 &
pids+=($!)

export PULSEBAR_SNI_TEST=1
"$binary" --gtest_filter='SNIHost*'
