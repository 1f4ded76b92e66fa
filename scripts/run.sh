#!/usr/bin/env bash
# The main job: builds what it needs (installing missing Debian packages first), then runs the host
# program on the PocketSphinx engine. It creates the wake-word service through its Java natives,
# feeds it speech, and prints each detection as Java receives it.
set -euo pipefail
cd "$(dirname "$0")/.."

usage() {
  cat <<'EOF'
usage: scripts/run.sh [options] [FILE.wav]
  (no input)          inject the sample utterance, build/samples/utterance.wav
  FILE.wav, --wav F   inject your own 16 kHz mono 16-bit WAV file, in real time
  --live -|FILE       play 16 kHz mono 16-bit PCM (a WAV stream, or raw) from standard input or
                      a file on the microphone, live:
                        arecord -q -r 16000 -f S16_LE -c 1 | scripts/run.sh --live -
  --mic [DEVICE]      capture from an ALSA device (default: "default") through the service's
                      own recording, which restarts it when the device stops
  --seconds S         end a live run after S seconds (otherwise at the end of the input, or Ctrl-C)
  --manifest FILE     the model set (default engine/pocketsphinx/models/default.manifest)
  --wake-words A,B    the wake words to listen for (default: every wake line of the manifest)
  --verbose           library log lines on stderr as well as in build/wakeword-host.log
EOF
}

# Options first, so that a mistake is reported before anything is installed or built.
args=()
input=""
manifest=engine/pocketsphinx/models/default.manifest
needs() { [ $# -ge 2 ] && [ -n "$2" ] || { echo "run: $1 needs a value" >&2; usage >&2; exit 2; }; }
one_input() { [ -z "$input" ] || { echo "run: give one input" >&2; usage >&2; exit 2; }; input=$1; }
while [ $# -gt 0 ]; do
  case "$1" in
    -h|--help) usage; exit 0 ;;
    --live) needs "$@"; one_input live; args+=(--live "$2"); shift 2 ;;
    --wav) needs "$@"; one_input wav; args+=(--wav "$2"); shift 2 ;;
    --mic)
      one_input mic
      if [ $# -ge 2 ] && [ "${2#-}" = "$2" ]; then args+=(--mic "$2"); shift 2
      else args+=(--mic default); shift; fi ;;
    --manifest) needs "$@"; manifest=$2; shift 2 ;;
    --seconds|--wake-words) needs "$@"; args+=("$1" "$2"); shift 2 ;;
    --verbose) args+=(--verbose); shift ;;
    -*) echo "run: unknown option $1" >&2; usage >&2; exit 2 ;;
    *) one_input wav; args+=(--wav "$1"); shift ;;
  esac
done

mkdir -p build
# Nothing here may read standard input: in live mode it carries the audio.
bash scripts/setup.sh run </dev/null >&2
if [ ! -f build/wakeword-tools.jar ]; then
  echo "run: building (the first build takes a few minutes; log in build/run-build.log)" >&2
fi
# A first build leaves the tests out: their packages come with scripts/test.sh, which turns them on.
configure=(-DCMAKE_BUILD_TYPE=RelWithDebInfo)
[ -f build/CMakeCache.txt ] || configure+=(-DWWS_BUILD_TESTS=OFF)
if ! { cmake -S . -B build "${configure[@]}" &&
       cmake --build build -j "$(nproc 2>/dev/null || echo 2)" --target wakeword_tools; } \
       </dev/null >build/run-build.log 2>&1; then
  tail -n 30 build/run-build.log >&2
  echo "run: the build failed; see build/run-build.log" >&2
  exit 1
fi

if [ -z "$input" ]; then
  args+=(--wav build/samples/utterance.wav)
  echo "run: the sample says \"$(cat build/samples/utterance.txt)\": expect both wake words and STOP"
fi

exec java -Djava.library.path=build -cp build/wakewordservice.jar:build/wakeword-tools.jar \
  velmar.speech.tools.WakeWordHost --engine build/engine/pocketsphinx/libnorvo.so \
  --manifest "$manifest" --log build/wakeword-host.log "${args[@]}"
