#!/usr/bin/env bash
# Builds an evaluation set with the English voices of Debian's synthesisers (flite, festival,
# espeak-ng) and measures the PocketSphinx engine on it under 17 acoustic conditions: clean; white,
# pink and brown noise and babble at 20, 10 and 5 dB SNR; reverberation, alone and with pink noise
# at 20 dB; narrow band (8 kHz); 20 dB quieter. Then sweeps each keyword's threshold on the tuning
# voices, reports every group with the chosen thresholds, and draws recall against false alarms
# per keyword (build/eval/<manifest>/det.png). Prints markdown tables, also kept in
# build/eval/<manifest>/report.md. About 20 minutes on two cores the first time; run it by hand,
# not in CI. One decode 10 decades below the thresholds serves every table (see engine_eval's
# --floor; its "Check" line says how far that is from decoding at the thresholds themselves, and
# --floor 0 decodes at them exactly).
#   scripts/evaluate.sh [manifest] [engine_eval options...]
#   scripts/evaluate.sh --quick [manifest] [engine_eval options...]    one voice per group, four
#                                                                      conditions: a trial run
#   scripts/evaluate.sh --recordings DIR [manifest] [engine_eval options...]
#     default manifest: engine/pocketsphinx/models/default.manifest
#     e.g. scripts/evaluate.sh engine/pocketsphinx/models/default.manifest --conditions clean,pink10
#
# Voices, in three groups:
#   tuning:   flite kal16, flite slt, flite awb, festival kal (8 kHz)
#   held-out: flite kal (8 kHz), flite rms, festival kal (16 kHz), festival slt (HTS)
#   formant:  espeak-ng en (British), en-us, en+m3, en+f3, en+klatt
# kal and slt exist both in flite's and in festival's renderings; each side has a different
# rendering of each: tuning has kal at 16 kHz from flite and at 8 kHz from festival, held-out the
# other two; slt is flite's on the tuning side and festival's HTS voice on the held-out side. The
# other two recorded speakers, awb and rms, are one per side. Festival's ked voice is not used.
#
# The set (clips in build/eval/clips, named by a hash of what they say and how, made only when
# missing; the playlist in build/eval/<manifest>/):
#   per voice, each wake phrase of the manifest said alone at four speeds and pitches, each followed
#   after a pause by a short request; inside two carrier sentences; at the very start of a clip
#   that goes on with a request (the decoder's session starts there); each local command said alone
#   at the same four speeds and pitches; half of the near-miss sentences for wake phrases and half
#   of the sentences using command words; about two minutes (formant voices: 45 s) of unrelated
#   everyday talk and licence text.
#   babble: six talkers (two from each group of recorded voices, two espeak-ng voices not used
#   otherwise) reading another licence text, mixed together.
# Speeds are the synthesisers' own (duration stretch 0.8 to 1.25, or speaking rate); pitch shifts
# are sox's (up to two semitones, formants moving with the pitch: within the spread of adult voices).
# Every clip is scaled to the same speech level (-23 dBFS RMS), so an SNR means the same for all.
#
# --recordings DIR: your own recordings. DIR holds WAV files and labels.txt, one line per file:
#   <file.wav> <KEYWORD|none>      e.g.  hey-1.wav PURPLE_ELEPHANT     kitchen-talk.wav none
# (files in other formats or rates are converted with sox to 16 kHz mono). Prints recall and false
# alarms per keyword, clean, and suggests a threshold per keyword from the same recordings (the
# more everyday speech labelled none, the safer the suggestion).
set -euo pipefail
cd "$(dirname "$0")/.."
started=$SECONDS

recordings=""
quick=false
case "${1:-}" in
  --recordings) recordings=${2:?"--recordings needs a folder"}; shift 2 ;;
  --quick) quick=true; shift ;;
esac
manifest=engine/pocketsphinx/models/default.manifest
if [ $# -gt 0 ] && [ "${1#--}" = "$1" ]; then manifest=$1; shift; fi
[ -r "$manifest" ] || { echo "evaluate: cannot read $manifest" >&2; exit 2; }

bash scripts/setup.sh eval
cmake_options=()
[ -f build/CMakeCache.txt ] || cmake_options=(-DWWS_BUILD_TESTS=OFF)
cmake -S . -B build -DCMAKE_BUILD_TYPE=RelWithDebInfo ${cmake_options[@]+"${cmake_options[@]}"} \
  >/dev/null
cmake --build build -j "$(nproc 2>/dev/null || echo 2)" --target engine_eval >/dev/null

name=$(basename "$manifest" .manifest)
phrases() {  # phrases wake|command: "<NAME> <words>" lines of the manifest
  awk -v kind="$1" '$1 == kind { name = $2; $1 = $2 = $3 = ""; sub(/^ +/, ""); print name, $0 }' \
    "$manifest"
}

# ---- your own recordings ----
if [ -n "$recordings" ]; then
  [ -r "$recordings/labels.txt" ] ||
    { echo "evaluate: $recordings/labels.txt is missing (lines: <file.wav> <KEYWORD|none>)" >&2; exit 2; }
  out=build/eval/recordings-$name
  rm -rf "$out"
  mkdir -p "$out/wav"
  {
    echo "group recordings"
    n=0
    while read -r file label _; do
      case "$file" in ''|'#'*) continue ;; esac
      label=${label%$'\r'}
      n=$((n + 1))
      wav=wav/$n.wav
      sox -q -G "$recordings/$file" -b 16 -c 1 -r 16000 "$out/$wav" ||
        { echo "evaluate: cannot convert $recordings/$file" >&2; exit 1; }
      kind=$(awk -v k="$label" '($1 == "wake" || $1 == "command") && $2 == k { print $1 }' "$manifest")
      if [ "$label" = none ]; then
        echo "speech $wav"
      elif [ "$kind" = wake ]; then
        echo "inside $label $wav"
      elif [ "$kind" = command ]; then
        echo "command $label $wav"
      else
        echo "evaluate: $file: '$label' is neither 'none' nor a keyword of $manifest" >&2
        exit 2
      fi
    done < "$recordings/labels.txt"
  } > "$out/playlist.txt"
  echo "evaluate: $(grep -c -v -e '^group' -e '^speech' "$out/playlist.txt") keyword recordings, $(grep -c '^speech' "$out/playlist.txt") others; decoding" >&2
  nice -n 10 ./build/tools/engine_eval --manifest "$manifest" --playlist "$out/playlist.txt" \
    --conditions clean --tune recordings "$@" | tee "$out/report.md"
  echo "evaluate: done in $(((SECONDS - started) / 60)) min $(((SECONDS - started) % 60)) s" >&2
  exit 0
fi

# ---- voices ----
voices=(
  "flite:kal16 tuning" "flite:slt tuning" "flite:awb tuning" "festival:kal8k tuning"
  "flite:kal held-out" "flite:rms held-out" "festival:kal16k held-out" "festival:slt held-out"
  "espeak:en formant" "espeak:en-us formant" "espeak:en+m3 formant" "espeak:en+f3 formant"
  "espeak:en+klatt formant"
)
# Babble: two talkers from each group of recorded voices and two formant voices the set does not
# use, reading a text no voice of the set reads.
babblers=(flite:awb flite:kal16 flite:rms festival:slt espeak:en-029 espeak:en-us+m7)
conditions=()
playlist=playlist.txt
if $quick; then
  voices=("flite:kal16 tuning" "festival:slt held-out" "espeak:en-us formant")
  conditions=(--conditions clean,pink10,babble10,reverb)
  playlist=playlist-quick.txt
fi
if [ ! -f build/voices/kallpc8k/festvox/kal_diphone.scm ]; then
  echo "evaluate: festival's 8 kHz kal voice is missing (see scripts/setup.sh); going without it" >&2
  for i in "${!voices[@]}"; do
    [ "${voices[$i]%% *}" = festival:kal8k ] && unset "voices[$i]"
  done
  voices=("${voices[@]}")
fi

# Speaks text into a 16 kHz mono WAV: speak <voice> <stretch> <cents> <wav> <text>. stretch > 1 is
# slower; cents shifts the pitch (sox).
speak() {
  local voice=$1 stretch=$2 cents=$3 wav=$4 text=$5
  local raw=$wav.raw.wav effects=()
  case $voice in
    flite:*)
      nice -n 10 flite -voice "${voice#flite:}" --setf "duration_stretch=$stretch" -t "$text" \
        -o "$raw" || true ;;
    espeak:*)
      nice -n 10 espeak-ng -v "${voice#espeak:}" -w "$raw" \
        -s "$(awk -v s="$stretch" 'BEGIN { printf "%d", 175 / s }')" "$text" || true ;;
    festival:*)
      local setup
      case ${voice#festival:} in
        kal16k) setup="(voice_kal_diphone) (Parameter.set 'Duration_Stretch (* 1.1 $stretch))" ;;
        # The 8 kHz kal voice has the 16 kHz one's name; it is loaded from its own folder.
        kal8k) setup="(set! kal_diphone_dir \"$PWD/build/voices/kallpc8k/\")
                      (set! kal_index_file (path-append kal_diphone_dir \"group/kallpc8k.group\"))
                      (load (path-append kal_diphone_dir \"festvox/kal_diphone.scm\"))
                      (voice_kal_diphone) (Parameter.set 'Duration_Stretch (* 1.1 $stretch))" ;;
        # The HTS voice ignores Duration_Stretch; its engine takes a speaking rate.
        slt) setup="(voice_cmu_us_slt_arctic_hts)
                    (set! hts_engine_params (append hts_engine_params
                                                    (list (list \"-r\" (/ 1.0 $stretch)))))" ;;
      esac
      printf '%s\n(utt.save.wave (SynthText "%s") "%s" (quote riff))\n' "$setup" "$text" "$raw" \
        > "$wav.scm"
      nice -n 10 festival -b "$wav.scm" 2>/dev/null || true
      rm -f "$wav.scm" ;;
  esac
  [ "$cents" != 0 ] && effects=(pitch "$cents")
  if [ ! -s "$raw" ] ||
     ! nice -n 10 sox -q -G "$raw" -b 16 -c 1 -r 16000 "$wav.part.wav" ${effects[@]+"${effects[@]}"}; then
    echo "evaluate: $voice could not say '$text'" >&2
    rm -f "$raw" "$wav.part.wav"
    return 1
  fi
  rm -f "$raw"
  mv "$wav.part.wav" "$wav"
}

# ---- what is said ----
requests=("what time is it" "turn on the kitchen lights" "play some quiet music"
          "set a timer for ten minutes" "how is the weather tomorrow"
          "add milk to the shopping list")
carriers=("I told my sister that @ is a funny name for a band"
          "yesterday we talked about @ for almost an hour"
          "she wrote @ on the whiteboard before the meeting"
          "do you think @ would be a good title for the book")
variants=("1.0 0" "0.8 200" "1.25 -200" "0.9 -100")  # duration stretch, pitch shift in cents
near_wake=(
  "the orange icicle melted quickly" "apple and orange by cycle courier"
  "he painted a purple eleven on the door" "she wore a purple elegant dress to the party"
  "the purple elevator stopped at every floor" "a purple envelope arrived this morning"
  "the old elephant at the zoo is very gentle" "the child rode an orange tricycle in the garden"
  "we rode past the orange groves by bicycle" "purple and orange are my favourite colours"
  "her bicycle is orange and blue" "the simple element of the design was the colour"
  "she kept a pearl elephant on the shelf" "an orange bus picked us up at the station"
)
near_command=(
  "the bus stop is around the corner" "please do not stop the music yet"
  "we made a short stop in the village" "the clock stopped at noon"
  "non stop flights are more expensive" "I cannot stop laughing at that film"
  "the top shelf is full of old books" "they shop at the market on saturdays"
  "the stopwatch is in the drawer" "they had to cancel the concert"
  "the cancellation fee is quite high" "the council meets on monday evening"
  "we cancelled our newspaper subscription" "light a candle on the kitchen table"
  "she will cancel the order tomorrow" "do not cancel your plans because of the rain"
  "the cancel button is grey" "a short snooze after lunch"
  "the cat likes to snooze in the sun" "he hit the snooze button twice this morning"
  "the dog snoozed through the whole film" "we listen to the news at nine"
  "my new shoes are still wet" "snow is falling on the hills"
)
# Sentences of a text, one a line, in the characters every synthesiser reads alike.
sentences() {
  tr '\n' ' ' | sed -e 's/[^A-Za-z0-9 .,;:()-]/ /g' -e 's/  */ /g' |
    sed -e 's/\([.;:]\) /\1\n/g' | awk 'length($0) > 25 && length($0) < 400'
}
unrelated() {
  {
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
  } | sentences
}

mkdir -p build/eval/clips
out=build/eval/$name
mkdir -p "$out"
declare -A queued
jobs_list=()
# clip <voice> <stretch> <cents> <text>: the clip's path relative to $out, queued for synthesis
# when it does not exist yet.
clip() {
  local key
  key=$(printf '%s|%s|%s|%s' "$1" "$2" "$3" "$4" | md5sum)
  key=${key%% *}
  clip_path=../clips/$key.wav
  if [ ! -s "build/eval/clips/$key.wav" ] && [ -z "${queued[$key]:-}" ]; then
    queued[$key]=1
    jobs_list+=("$1"$'\t'"$2"$'\t'"$3"$'\t'"build/eval/clips/$key.wav"$'\t'"$4")
  fi
}

mapfile -t wake_lines < <(phrases wake)
mapfile -t command_lines < <(phrases command)
mapfile -t speech < <(unrelated)
s=0
{
  for v in "${!voices[@]}"; do
    voice=${voices[$v]%% *}
    group=${voices[$v]#* }
    echo "group $group"
    echo "voice $voice"
    for p in "${!wake_lines[@]}"; do
      keyword=${wake_lines[$p]%% *}
      words=${wake_lines[$p]#* }
      for i in "${!variants[@]}"; do
        read -r stretch cents <<<"${variants[$i]}"
        clip "$voice" "$stretch" "$cents" "$words"; phrase=$clip_path
        clip "$voice" 1.0 0 "${requests[$(((v + p + i) % ${#requests[@]}))]}"
        echo "wake $keyword $phrase $clip_path"
      done
      for j in 0 2; do
        carrier=${carriers[$(((v + p + j) % ${#carriers[@]}))]}
        clip "$voice" 1.0 0 "${carrier/@/$words}"
        echo "inside $keyword $clip_path"
      done
      clip "$voice" 1.0 0 "$words, ${requests[$(((v + 3 * p) % ${#requests[@]}))]}"
      echo "start $keyword $clip_path"
    done
    for line in "${command_lines[@]}"; do
      for variant in "${variants[@]}"; do
        read -r stretch cents <<<"$variant"
        clip "$voice" "$stretch" "$cents" "${line#* }"
        echo "command ${line%% *} $clip_path"
      done
    done
    for i in "${!near_wake[@]}"; do
      [ $(((i + v) % 2)) -eq 0 ] || continue
      clip "$voice" 1.0 0 "${near_wake[$i]}"
      echo "nearmiss wake $clip_path"
    done
    for i in "${!near_command[@]}"; do
      [ $(((i + v) % 2)) -eq 0 ] || continue
      clip "$voice" 1.0 0 "${near_command[$i]}"
      echo "nearmiss command $clip_path"
    done
    # About two minutes of unrelated speech (formant voices: 45 s), each voice its own sentences.
    budget=2200
    [ "$group" = formant ] && budget=800
    while [ "$budget" -gt 0 ] && [ "$s" -lt "${#speech[@]}" ]; do
      clip "$voice" 1.0 0 "${speech[$s]}"
      echo "speech $clip_path"
      budget=$((budget - ${#speech[$s]}))
      s=$((s + 1))
    done
  done
} > "$out/$playlist.new"
# Babble: six talkers, each reading its own part of another licence text.
mapfile -t babble_text < <(sentences < /usr/share/common-licenses/GPL-2)
babble_clips=()
for t in "${!babblers[@]}"; do
  talker=()
  for ((i = t; i < ${#babble_text[@]} && ${#talker[@]} < 12; i += ${#babblers[@]})); do
    clip "${babblers[$t]}" 1.0 0 "${babble_text[$i]}"
    talker+=("$out/$clip_path")
  done
  babble_clips+=("${talker[*]}")
done

total=${#jobs_list[@]}
if [ "$total" -gt 0 ]; then
  echo "evaluate: synthesising $total clips into build/eval/clips" >&2
  done_count=0
  for job in "${jobs_list[@]}"; do
    IFS=$'\t' read -r voice stretch cents wav text <<<"$job"
    speak "$voice" "$stretch" "$cents" "$wav" "$text" &
    while [ "$(jobs -rp | wc -l)" -ge 2 ]; do wait -n; done
    done_count=$((done_count + 1))
    if [ $((done_count % 100)) -eq 0 ]; then
      echo "evaluate: synthesising $done_count/$total" >&2
    fi
  done
  while [ "$(jobs -rp | wc -l)" -gt 0 ]; do wait -n; done
  echo "evaluate: synthesising $total/$total" >&2
fi
mv "$out/$playlist.new" "$out/$playlist"
if [ ! -s build/eval/babble.wav ] || [ "$total" -gt 0 ]; then
  parts=()
  for t in "${!babble_clips[@]}"; do
    # shellcheck disable=SC2086  # one talker's clips, paths without blanks
    sox -q ${babble_clips[$t]} "$out/babble-$t.wav"
    parts+=("$out/babble-$t.wav")
  done
  sox -q -m "${parts[@]}" build/eval/babble.wav trim 0 90 norm -3
  rm -f "${parts[@]}"
fi

echo "evaluate: $(grep -c -e '^wake' -e '^inside' -e '^start' "$out/$playlist") wake phrases, $(grep -c '^command' "$out/$playlist") local commands, $(grep -c '^nearmiss' "$out/$playlist") near misses, $(grep -c '^speech' "$out/$playlist") unrelated sentences; decoding" >&2
report=$out/report.md
$quick && report=$out/report-quick.md
nice -n 10 ./build/tools/engine_eval --manifest "$manifest" --playlist "$out/$playlist" \
  --babble build/eval/babble.wav --level -23 --tune tuning --det "$out" \
  ${conditions[@]+"${conditions[@]}"} "$@" | tee "$report"
(cd "$out" && gnuplot det.gp)
echo "evaluate: recall against false alarms per keyword in $out/det.png; tables in $report" >&2
echo "evaluate: done in $(((SECONDS - started) / 60)) min $(((SECONDS - started) % 60)) s" >&2
