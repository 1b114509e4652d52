#!/usr/bin/env bash
# tandrel-cli devices and play against a JACK server of the test's own (dummy
# driver, no sound card needed): the server is listed, a file plays to its end on
# the device chosen by name, an unknown name is refused, and Ctrl-C stops a long
# play at once.
set -u
cli=$(realpath "$1")
work=$(mktemp -d)
server="tandrel-cli-test-$$"
jackd_pid=
cleanup() {
  [ -n "$jackd_pid" ] && kill "$jackd_pid" 2>/dev/null && wait "$jackd_pid" 2>/dev/null
  rm -rf "$work"
}
trap cleanup EXIT
fail() { echo "FAIL: $*"; echo "--- stdout:"; cat "$work/out" 2>/dev/null; echo "--- stderr:"; cat "$work/err" 2>/dev/null; exit 1; }

command -v jackd >/dev/null || fail "jackd is missing (Debian's jackd2)"
jackd -n "$server" -r -d dummy -r 48000 -p 1024 >"$work/jackd.log" 2>&1 </dev/null &
jackd_pid=$!
export JACK_DEFAULT_SERVER="$server" JACK_NO_START_SERVER=1
jack_wait -w -t 10 >/dev/null || fail "the JACK server did not start"

# One second of a tone.
sox -n -r 48000 -c 2 -b 16 "$work/tone.wav" synth 1 sine 440 vol 0.4 || fail "could not make the test file"

"$cli" devices >"$work/out" 2>"$work/err" || fail "devices failed"
grep -q "^Playback devices:" "$work/out" || fail "no playback list"
grep -q "system (JACK): 2 outputs, 48000 Hz" "$work/out" || fail "the JACK server's device is not listed"
grep -q "Default Playback Device (now system (JACK))" "$work/out" || fail "the default is not the JACK server"

start=$(date +%s%N)
"$cli" play "$work/tone.wav" --device "system (JACK)" >"$work/out" 2>"$work/err" </dev/null || fail "play failed"
elapsed=$(( ($(date +%s%N) - start) / 1000000 ))
grep -q "Playing .* on system (JACK)" "$work/out" || fail "no word of what plays where"
# A second of sound takes a second to play, and not much more.
[ "$elapsed" -ge 900 ] && [ "$elapsed" -lt 6000 ] || fail "one second played in ${elapsed} ms"

"$cli" play "$work/tone.wav" --device "No Such Device" >"$work/out" 2>"$work/err" </dev/null
code=$?
[ "$code" -eq 3 ] || fail "an unknown device gave exit code $code"
grep -q "no playback device \"No Such Device\"" "$work/err" || fail "no word of the unknown device"

# A long play: its ports are wired to the server's while it plays, and Ctrl-C ends it.
truncate -s $((48000 * 60 * 4)) "$work/long.raw"
"$cli" play "$work/long.raw" --raw 48000,2,s16le >"$work/out" 2>"$work/err" </dev/null &
pid=$!
wired=
for _ in $(seq 100); do
  if jack_lsp -c 2>/dev/null | grep -A2 "^Tandrel[^:]*:outport 0" | grep -q "system:playback_1"; then wired=1; break; fi
  sleep 0.05
done
[ -n "$wired" ] || { kill "$pid"; fail "the player's outputs never reached the server's playback ports"; }
kill -INT "$pid"
start=$(date +%s%N)
wait "$pid"
code=$?
elapsed=$(( ($(date +%s%N) - start) / 1000000 ))
[ "$code" -eq 1 ] || fail "exit code $code after Ctrl-C, expected 1"
[ "$elapsed" -lt 3000 ] || fail "Ctrl-C took ${elapsed} ms to stop the play"
grep -q "stopped at" "$work/err" || fail "no word that the play stopped"
echo "ok"
