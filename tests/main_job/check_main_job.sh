#!/usr/bin/env bash
# The main job on what a newcomer gives it: a mistyped option, files it cannot use, arecord's
# default output, Ctrl-C in a live run, and ALSA devices (ALSA's own file and null plugins in a
# configuration written here, no sound card) that play speech or fail mid-stream. Each case checks
# the exit status and the line the user reads.
#   check_main_job.sh <source dir> <java> <java.library.path> <classpath> <engine> <manifest>
#                     <speech clip.wav> <work dir>
set -uo pipefail
source_dir=$1 java=$2 libs=$3 classpath=$4 engine=$5 manifest=$6 clip=$7 work=$8
mkdir -p "$work"
rm -f "$work"/*
failures=0
host=("$java" -Djava.library.path="$libs" -cp "$classpath" velmar.speech.tools.WakeWordHost
      --engine "$engine" --manifest "$manifest" --log "$work/host.log")

# expect <name> <status> <file with the output> <text it must contain>
expect() {
  local name=$1 want=$2 status=$3 output=$4 text=$5
  if [ "$status" != "$want" ] || ! grep -qF -- "$text" "$output"; then
    echo "FAILED: $name: exit $status (want $want), output:"
    sed 's/^/    /' "$output"
    echo "    (wanted a line with: $text)"
    failures=$((failures + 1))
  else
    echo "ok: $name"
  fi
}

# A WAV header for a PCM stream: wav_header <rate> <bits> <data bytes> [list], where list puts an
# odd-sized LIST chunk (and its pad byte) between the format and the data.
wav_header() {
  local rate=$1 bits=$2 size=$3 list=${4:-} align=$(($2 / 8))
  le32() { printf "$(printf '\\x%02x\\x%02x\\x%02x\\x%02x' $(($1 & 255)) $((($1 >> 8) & 255)) \
                      $((($1 >> 16) & 255)) $((($1 >> 24) & 255)))"; }
  printf 'RIFF'; le32 $((size + 36)); printf 'WAVEfmt '; le32 16
  printf '\x01\x00\x01\x00'; le32 "$rate"; le32 $((rate * align))
  printf "$(printf '\\x%02x\\x00\\x%02x\\x00' "$align" "$bits")"
  [ -n "$list" ] && { printf 'LIST'; le32 3; printf 'abc\x00'; }
  printf 'data'; le32 "$size"
}

"$source_dir/scripts/run.sh" --bogus >"$work/out" 2>&1
expect "run.sh rejects an unknown option with its own usage" 2 $? "$work/out" "usage: scripts/run.sh"

echo "hello" >"$work/text.wav"
"${host[@]}" --wav "$work/text.wav" >"$work/out" 2>&1
expect "a file that is not a WAV" 1 $? "$work/out" "wakeword: $work/text.wav is not a WAV file"

{ wav_header 8000 8 8000; head -c 8000 /dev/zero | tr '\0' '\200'; } >"$work/8k.wav"
"${host[@]}" --wav "$work/8k.wav" >"$work/out" 2>&1
expect "an 8 kHz 8-bit WAV" 1 $? "$work/out" "8000 Hz, 8-bit, 1 channel, not 16 kHz mono 16-bit PCM WAV"

head -c 20044 "$clip" >"$work/cut.wav"
"${host[@]}" --wav "$work/cut.wav" >"$work/out" 2>&1
expect "a WAV file cut short" 0 $? "$work/out" "is cut short: its header promises"

# arecord without format options writes an 8 kHz unsigned 8-bit WAV stream.
{ wav_header 8000 8 2147483647; head -c 16000 /dev/zero | tr '\0' '\200'; } >"$work/arecord.wav"
"${host[@]}" --live - <"$work/arecord.wav" >"$work/out" 2>&1
expect "arecord's default WAV stream on standard input" 1 $? "$work/out" \
  "wakeword: standard input is a WAV stream of 8000 Hz mono 8-bit unsigned PCM, not 16 kHz mono 16-bit PCM: record with arecord -r 16000 -f S16_LE -c 1"

# A good WAV stream (with a chunk the reader must skip) is played.
{ wav_header 16000 16 2147483647 list; tail -c +45 "$clip"; } >"$work/stream.wav"
"${host[@]}" --live - <"$work/stream.wav" >"$work/out" 2>&1
expect "a 16 kHz WAV stream on standard input" 0 $? "$work/out" 'PURPLE_ELEPHANT "purple elephant"  wake word'

# The same without its header (arecord -t raw): played, with a warning.
head -c 32000 /dev/zero | tr '\0' '\200' >"$work/u8.raw"
"${host[@]}" --live - <"$work/u8.raw" >"$work/out" 2>&1
expect "raw 8-bit audio on standard input" 0 $? "$work/out" \
  "wakeword: warning: standard input does not look like 16-bit little-endian PCM"

# Ctrl-C in a live run: the summary line still comes, and the exit status says SIGINT. Job
# control puts the program in a process group of its own, where SIGINT is not ignored.
mkfifo "$work/mic"
set -m
"${host[@]}" --live - <"$work/mic" >"$work/out" 2>&1 &
program=$!
set +m
exec 3>"$work/mic"  # a microphone that says nothing for a second, then stays open and quiet
head -c 32000 /dev/zero >&3
for _ in $(seq 300); do grep -q '^input ' "$work/out" && break; sleep 0.1; done
grep -q "^input " "$work/out" || { echo "FAILED: the live run never said it was listening"; failures=$((failures + 1)); }
kill -INT "$program"
wait "$program"
expect "Ctrl-C in a live run" 130 $? "$work/out" \
  "done      0 wake words and 0 local commands heard (interrupted)"
exec 3>&-

cat >"$work/asound.conf" <<EOF
pcm.silence { type null }
pcm.speech { type file slave.pcm "silence" file "/dev/null" infile "$clip" format "raw" }
pcm.breaks { type file slave.pcm "silence" file "/dev/full" infile "$clip" format "raw" }
EOF
export ALSA_CONFIG_PATH=$work/asound.conf
"${host[@]}" --mic speech --seconds 5 >"$work/out" 2>&1
expect "an ALSA device playing a wake phrase" 0 $? "$work/out" 'PURPLE_ELEPHANT "purple elephant"  wake word'
"${host[@]}" --mic breaks --seconds 4 >"$work/out" 2>&1
expect "an ALSA device failing mid-stream" 0 $? "$work/out" \
  "input     capture from 'breaks' stopped: Input/output error; the service restarts the recording"
expect "an ALSA device opened again" 0 0 "$work/out" "input     capture from 'breaks' opened again"
"${host[@]}" --mic nothing >"$work/out" 2>&1
expect "an ALSA device that does not exist" 1 $? "$work/out" \
  "wakeword: no ALSA device named 'nothing' (arecord -L lists them)"

[ "$failures" -eq 0 ] && echo "main job: all cases passed"
exit $((failures > 0))
