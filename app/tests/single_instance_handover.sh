#!/usr/bin/env bash
# A running Tandrel takes the arguments of a second start: the second process
# must leave within 2 seconds without a window, and the first must receive them.
# Runs the real program on a private X server (Xvfb) when one is at hand, else
# on Qt's off-screen platform.
set -u
tandrel=$(realpath "$1")
work=$(mktemp -d)
primary=""
xvfb=""
cleanup() {
  [ -n "$primary" ] && kill "$primary" 2>/dev/null && wait "$primary" 2>/dev/null
  [ -n "$xvfb" ] && kill "$xvfb" 2>/dev/null && wait "$xvfb" 2>/dev/null
  rm -rf "$work"
}
trap cleanup EXIT
fail() { echo "FAIL: $*"; echo "--- first instance's log:"; cat "$work/primary.log"; exit 1; }

export XDG_RUNTIME_DIR="$work/run" XDG_CONFIG_HOME="$work/config" XDG_DATA_HOME="$work/data" TMPDIR="$work/tmp"
mkdir -p "$XDG_RUNTIME_DIR" "$TMPDIR" && chmod 700 "$XDG_RUNTIME_DIR"
export TANDREL_LOG=1
unset QT_QPA_PLATFORM

if command -v Xvfb >/dev/null; then
  Xvfb -displayfd 3 -nolisten tcp -screen 0 1280x800x24 3>"$work/display" 2>/dev/null &
  xvfb=$!
  for _ in $(seq 100); do [ -s "$work/display" ] && break; sleep 0.1; done
  [ -s "$work/display" ] || fail "Xvfb did not start"
  export DISPLAY=":$(cat "$work/display")"
else
  export QT_QPA_PLATFORM=offscreen
fi

"$tandrel" >"$work/primary.log" 2>&1 &
primary=$!
socket="$XDG_RUNTIME_DIR/tandrel-$(id -un).sock"
for _ in $(seq 200); do
  [ -S "$socket" ] && grep -q '^tandrel: arguments:' "$work/primary.log" && break
  kill -0 "$primary" 2>/dev/null || fail "the first tandrel ended early"
  sleep 0.1
done
[ -S "$socket" ] || fail "no single-instance socket at $socket"

# A relative path must reach the first instance as the file the user meant.
cd "$work"
start=$(date +%s%N)
DISPLAY= QT_QPA_PLATFORM= timeout 10 "$tandrel" x.tdpj >"$work/second.log" 2>&1
rc=$?
elapsed_ms=$(( ($(date +%s%N) - start) / 1000000 ))
[ $rc -eq 0 ] || { cat "$work/second.log"; fail "second tandrel exited with $rc"; }
[ $elapsed_ms -lt 2000 ] || fail "second tandrel took ${elapsed_ms} ms to leave"
grep -q 'handed the arguments' "$work/second.log" || { cat "$work/second.log"; fail "second tandrel did not hand over"; }

for _ in $(seq 50); do
  grep -qF "arguments: \"$work/x.tdpj\"" "$work/primary.log" && break
  sleep 0.1
done
grep -qF "arguments: \"$work/x.tdpj\"" "$work/primary.log" || fail "the first tandrel did not receive the argument"

kill "$primary"
wait "$primary"
primary=""
[ -e "$socket" ] && fail "the socket outlived the program"
echo "second start left after ${elapsed_ms} ms; the first received $work/x.tdpj"
