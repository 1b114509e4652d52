#!/usr/bin/env bash
# tandrel-cli convert shows its progress, and Ctrl-C (SIGINT) in the middle of a
# conversion stops it: exit code 1, a message, and no half-written output file.
set -u
cli=$(realpath "$1")
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
fail() { echo "FAIL: $*"; echo "--- stderr:"; cat "$work/err" 2>/dev/null; exit 1; }

# Half an hour of 8-channel 96 kHz silence as a sparse raw file: made at once and
# costing no disk, yet converting it to 44.1 kHz takes far longer than the test
# waits before it interrupts.
truncate -s $((96000 * 8 * 2 * 1800)) "$work/in.raw"

# A whole conversion of a short file: progress lines, exit 0, a file.
head -c $((8000 * 2 * 10)) /dev/urandom > "$work/short.raw"
"$cli" convert "$work/short.raw" "$work/short.wav" --raw 8000,1,s16le 2>"$work/err" || fail "a short conversion failed"
[ -s "$work/short.wav" ] || fail "no output file"
grep -q "100%" "$work/err" || fail "no progress shown"

"$cli" convert "$work/in.raw" "$work/out.wav" --raw 96000,8,s16le --rate 44100 2>"$work/err" &
pid=$!
# Wait until the job has written part of its output, then interrupt it.
for _ in $(seq 200); do
  [ -s "$work/out.wav" ] && break
  sleep 0.05
done
[ -s "$work/out.wav" ] || fail "the conversion never started writing"
kill -INT "$pid"
wait "$pid"
code=$?
[ "$code" -eq 1 ] || fail "exit code $code after Ctrl-C, expected 1"
[ ! -e "$work/out.wav" ] || fail "the partial output file was left behind"
grep -q "stopped" "$work/err" || fail "no word that the conversion stopped"
echo "ok"
