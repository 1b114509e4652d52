#!/usr/bin/env bash
# tandrel-cli export into an encoder program (flac): Ctrl-C in the middle stops the
# job with exit code 1, leaves no half-written file, and leaves no encoder running.
set -u
cli=$(realpath "$1")
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
# The user's own preferences and data stay out of it.
export XDG_CONFIG_HOME="$work/config" XDG_DATA_HOME="$work/data"
fail() { echo "FAIL: $*"; echo "--- stderr:"; cat "$work/err" 2>/dev/null; exit 1; }

# Half an hour of stereo silence as a sparse raw file: far more than the test waits.
truncate -s $((44100 * 2 * 2 * 1800)) "$work/in.raw"

# The export writes under a passing name beside the target until it is complete.
partial="$work/.out.exporting.flac"
"$cli" export "$work/in.raw" "$work/out.flac" --raw 44100,2,s16le 2>"$work/err" &
pid=$!
for _ in $(seq 200); do
  [ -s "$partial" ] && break
  sleep 0.05
done
[ -s "$partial" ] || fail "the export never started writing"
[ ! -e "$work/out.flac" ] || fail "the target was written before the export was complete"
pgrep -f "$partial" >/dev/null || fail "no encoder was seen running"
kill -INT "$pid"
wait "$pid"
code=$?
[ "$code" -eq 1 ] || fail "exit code $code after Ctrl-C, expected 1"
[ ! -e "$work/out.flac" ] && [ ! -e "$partial" ] || fail "the partial output file was left behind"
grep -q "stopped" "$work/err" || fail "no word that the export stopped"
if pgrep -f "$partial" >/dev/null; then fail "the encoder is still running"; fi
echo "ok"
