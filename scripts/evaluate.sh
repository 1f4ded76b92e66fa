#!/usr/bin/env bash
# Builds an evaluation set with flite and measures the PocketSphinx engine on it: recall of the
# wake phrases and false alarms per hour of unrelated speech, clean and with pink noise at 20 dB
# SNR. Prints the table the README shows. Takes a few minutes; run it by hand, not in CI.
#   scripts/evaluate.sh [manifest] [engine_eval options...]
#     default manifest: engine/pocketsphinx/models/default.manifest
#     e.g. scripts/evaluate.sh engine/pocketsphinx/models/default.manifest --threshold 1e-8 --sweep
#
# The set (in build/eval, rebuilt only when missing):
#   wake phrases: every 'wake' phrase of the manifest, spoken by four flite voices (slt, rms, awb,
#     kal16) at five speeds (duration stretch 0.75 to 1.35) and three pitches, each followed after
#     a pause by a short request;
#   local commands: every 'command' of the manifest, by the same voices at the same speeds;
#   unrelated speech: sentences of everyday talk and of four licence texts (GPL-3, Apache-2.0,
#     MPL-2.0, GFDL-1.3), spoken by the same voices at varied speeds, about an hour in all. The
#     everyday sentences include near misses on purpose ("the new computer in the office").
set -euo pipefail
cd "$(dirname "$0")/.."
manifest=${1:-engine/pocketsphinx/models/default.manifest}
shift || true
bash scripts/setup.sh
cmake -S . -B build -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build build -j "$(nproc 2>/dev/null || echo 2)" --target engine_eval >/dev/null

out=build/eval/$(basename "$manifest" .manifest)
voices=(slt rms awb kal16)
stretches=(0.75 0.9 1.0 1.15 1.35)
pitches=(default 90 150)

speak() {  # speak <voice> <stretch> <pitch> <text> <wav>
    local pitch=()
    [ "$3" != default ] && pitch=(--setf "int_f0_target_mean=$3")
    flite -voice "$1" --setf "duration_stretch=$2" "${pitch[@]}" -t "$4" -o "$5"
}

if [ ! -s "$out/playlist.txt" ]; then
    echo "evaluate: building the evaluation set in $out (flite)" >&2
    rm -rf "$out"
    mkdir -p "$out/wav"
    requests=("what time is it" "turn on the kitchen lights" "play some quiet music"
              "set a timer for ten minutes" "how is the weather tomorrow"
              "add milk to the shopping list")
    playlist=()
    n=0
    while read -r name words; do
        for voice in "${voices[@]}"; do
            for stretch in "${stretches[@]}"; do
                for pitch in "${pitches[@]}"; do
                    n=$((n + 1))
                    phrase=wav/wake-$n.wav
                    carrier=wav/request-$n.wav
                    speak "$voice" "$stretch" "$pitch" "$words" "$out/$phrase"
                    speak "$voice" 1.0 default "${requests[$((n % ${#requests[@]}))]}" "$out/$carrier"
                    playlist+=("wake $name $phrase $carrier")
                done
            done
        done
    done < <(awk '$1 == "wake" { name = $2; $1 = $2 = $3 = ""; sub(/^ +/, ""); print name, $0 }' "$manifest")
    while read -r name words; do
        for voice in "${voices[@]}"; do
            for stretch in "${stretches[@]}"; do
                n=$((n + 1))
                spoken=wav/command-$n.wav
                speak "$voice" "$stretch" default "$words" "$out/$spoken"
                playlist+=("command $name $spoken")
            done
        done
    done < <(awk '$1 == "command" { name = $2; $1 = $2 = $3 = ""; sub(/^ +/, ""); print name, $0 }' "$manifest")

    # Unrelated speech: licence texts and everyday sentences, split into sentences.
    {
        cat /usr/share/common-licenses/GPL-3 /usr/share/common-licenses/Apache-2.0
        cat <<'TALK'
I think we should leave a little earlier tomorrow because the traffic was terrible today.
Could you pass me the salt and the pepper please.
The children are playing in the garden and the dog is chasing the ball.
My phone battery is almost empty so I need to find a charger.
We watched a documentary about whales and their long journeys across the ocean.
Remember to water the plants on the balcony before you go on holiday.
The meeting has been moved to Thursday afternoon at three o'clock.
She bought fresh bread, some cheese and a bottle of orange juice at the market.
Let me know when you are ready and I will start the car.
The new computer in the office is much faster than the old one.
He said hello to the neighbours and then walked to the station.
The museum has a large collection of paintings from the last century.
Turn left at the second traffic light and the bakery is on your right.
Our train was delayed by twenty minutes because of the storm.
TALK
        cat /usr/share/common-licenses/{GPL-3,Apache-2.0,MPL-2.0,GFDL-1.3}
    } | tr '\n' ' ' | sed -e 's/[^A-Za-z0-9 .,;:()-]/ /g' -e 's/  */ /g' |
        sed -e 's/\([.;:]\) /\1\n/g' |
        awk 'length($0) > 25 && length($0) < 400' > "$out/sentences.txt"
    s=0
    total=0
    while read -r sentence; do
        s=$((s + 1))
        voice=${voices[$((s % ${#voices[@]}))]}
        stretch=${stretches[$(((s / ${#voices[@]}) % ${#stretches[@]}))]}
        wav=wav/speech-$s.wav
        speak "$voice" "$stretch" default "$sentence" "$out/$wav"
        playlist+=("speech $wav")
        total=$((total + $(stat -c %s "$out/$wav") / 32000))
        [ "$total" -ge 3700 ] && break
    done < "$out/sentences.txt"
    printf '%s\n' "${playlist[@]}" > "$out/playlist.txt"
fi

echo "evaluate: $(grep -c '^wake' "$out/playlist.txt") wake phrases, $(grep -c '^command' "$out/playlist.txt") local commands, $(grep -c '^speech' "$out/playlist.txt") unrelated sentences; decoding" >&2
nice -n 10 ./build/tools/engine_eval --manifest "$manifest" --playlist "$out/playlist.txt" "$@"
