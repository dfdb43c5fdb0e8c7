# Sourced by the tray test scripts: starts a private X server in the background, sets DISPLAY and
# leaves its process id in xvfb_pid. Needs $work, a folder of the caller's.
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
