#!/usr/bin/env bash
# Starts the real tarnbridge on a small tree in a real X11 server, waits for its window, presses
# Ctrl+Q, and requires a clean exit with nothing on stderr.
set -euo pipefail
binary="$1"
scratch="$(mktemp -d)"
trap 'rm -rf "$scratch"' EXIT

# A private home, so that the run reads and writes none of the user's settings or state.
export HOME="$scratch/home"
export XDG_RUNTIME_DIR="$scratch/runtime"
export TARNBRIDGE_STATE_DIR="$scratch/state"
# Only matters for a sanitized build: libdbus's own unfreed buffers are not our leak.
export LSAN_OPTIONS="suppressions=$(dirname "$(readlink -f "$0")")/lsan.supp:print_suppressions=0${LSAN_OPTIONS:+:$LSAN_OPTIONS}"
unset XDG_CONFIG_HOME XDG_DATA_HOME XDG_CACHE_HOME XDG_STATE_HOME QT_QPA_PLATFORM
mkdir -p "$HOME/tree/a/b" "$XDG_RUNTIME_DIR"
chmod 700 "$XDG_RUNTIME_DIR"
head -c 200000 /dev/zero >"$HOME/tree/a/film.mkv"
head -c 5000 /dev/zero >"$HOME/tree/a/b/notes.txt"

cat >"$scratch/session.sh" <<'SESSION'
#!/usr/bin/env bash
set -u
"$1" "$HOME/tree" 2>"$2" &
pid=$!
window=""
for _ in $(seq 1 300); do
  window="$(xdotool search --pid "$pid" --name '^Tarnbridge$' 2>/dev/null | head -n 1 || true)"
  [ -n "$window" ] && break
  sleep 0.1
done
if [ -z "$window" ]; then
  echo "no window appeared" >&2
  kill "$pid"
  exit 3
fi
sleep 1 # let the scan of PATH start and the window settle
xdotool windowfocus --sync "$window"
xdotool key --clearmodifiers ctrl+q
for _ in $(seq 1 150); do
  kill -0 "$pid" 2>/dev/null || break
  sleep 0.1
done
if kill -0 "$pid" 2>/dev/null; then
  echo "Ctrl+Q did not end the program" >&2
  kill "$pid"
  exit 4
fi
wait "$pid"
SESSION
chmod +x "$scratch/session.sh"

status=0
xvfb-run -a -s "-screen 0 1440x900x24" "$scratch/session.sh" "$binary" "$scratch/stderr" || status=$?
if [ -s "$scratch/stderr" ]; then
  echo "tarnbridge wrote to stderr:" >&2
  cat "$scratch/stderr" >&2
  exit 1
fi
if [ "$status" -ne 0 ]; then
  echo "tarnbridge ended with status $status" >&2
  exit 1
fi
echo "window opened and closed cleanly"
