#!/usr/bin/env bash
# The main job: builds what it needs (installing missing Debian packages first), then runs the host
# program on the PocketSphinx engine. It creates the wake-word service through its Java natives,
# feeds it speech, and prints each detection as Java receives it.
#   scripts/run.sh                    inject the sample utterance, build/samples/utterance.wav
#   scripts/run.sh my.wav             inject your own 16 kHz mono 16-bit WAV file
#   arecord -q -r 16000 -f S16_LE -c 1 | scripts/run.sh --live -
#                                     listen to a microphone (raw PCM on standard input)
#   scripts/run.sh --live speech.raw  the same from a raw PCM file, in real time
# Options: --manifest FILE (default engine/pocketsphinx/models/default.manifest),
#          --wake-words A,B, --verbose (library log lines on stderr as well as in the log file).
set -euo pipefail
cd "$(dirname "$0")/.."
mkdir -p build
# Nothing here may read standard input: in live mode it carries the audio.
bash scripts/setup.sh </dev/null >&2
if [ ! -f build/wakeword-tools.jar ]; then
    echo "run: building (the first build takes a few minutes; log in build/run-build.log)" >&2
fi
if ! { cmake -S . -B build -DCMAKE_BUILD_TYPE=RelWithDebInfo &&
       cmake --build build -j "$(nproc 2>/dev/null || echo 2)" --target wakeword_tools; } \
       </dev/null >build/run-build.log 2>&1; then
    tail -n 30 build/run-build.log >&2
    echo "run: the build failed; see build/run-build.log" >&2
    exit 1
fi

args=()
input=""
manifest=engine/pocketsphinx/models/default.manifest
while [ $# -gt 0 ]; do
    case "$1" in
        --live) input=live; args+=(--live "${2:?--live needs - or a file}"); shift 2 ;;
        --wav) input=wav; args+=(--wav "${2:?--wav needs a file}"); shift 2 ;;
        --manifest) manifest=${2:?--manifest needs a file}; shift 2 ;;
        --*) args+=("$1"); [ "$1" != --verbose ] && { args+=("${2:?$1 needs a value}"); shift; }; shift ;;
        *) input=wav; args+=(--wav "$1"); shift ;;
    esac
done
[ -z "$input" ] && args+=(--wav build/samples/utterance.wav)

exec java -Djava.library.path=build -cp build/wakewordservice.jar:build/wakeword-tools.jar \
    velmar.speech.tools.WakeWordHost --engine build/engine/pocketsphinx/libnorvo.so \
    --manifest "$manifest" --log build/wakeword-host.log "${args[@]}"
