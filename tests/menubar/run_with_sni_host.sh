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

Xvfb -displayfd 3 -screen 0 1280x800x24 -nolisten tcp 3>"$work/display" 2>"$work/xvfb.log" &
pids+=($!)
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
export XDG_RUNTIME_DIR="$work"
export XDG_CURRENT_DESKTOP=XFCE

status-notifier-watcher >"$work/watcher.log" 2>&1 &
pids+=($!)
gtk-sni-tray-standalone >"$work/host.log" 2>&1 &
pids+=($!)

export PULSEBAR_SNI_TEST=1
"$binary" --gtest_filter='SNIHost*'
