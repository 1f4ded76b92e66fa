#!/usr/bin/env bash
# The PocketSphinx engine's benchmarks, with their figures printed. Run by hand on a quiet machine;
# the whole set takes about two minutes (the latency benchmark plays its audio in real time).
#   scripts/bench.sh                    all three
#   scripts/bench.sh rtf|latency|bridge one of them
#     rtf      one decoder's real-time factor (Google Benchmark, build/bench/engine_rtf_bench)
#     latency  end of a spoken wake phrase to the Java listener, through the microphone path
#     bridge   an engine result to the Java listener, the bridge alone
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup.sh >/dev/null
cmake -S . -B build -DCMAKE_BUILD_TYPE=RelWithDebInfo -DWWS_BUILD_TESTS=ON >/dev/null
cmake --build build -j "$(nproc 2>/dev/null || echo 2)" --target engine_rtf_bench wakeword_bench \
    >/dev/null

java=(java -Djava.library.path=build
      -cp build/wakewordservice.jar:build/wakeword-tools.jar:build/bench/wakeword-bench.jar)
engine=(--engine build/engine/pocketsphinx/libnorvo.so
        --manifest engine/pocketsphinx/models/default.manifest)
[ $# -eq 0 ] && set -- rtf latency bridge
for what in "$@"; do
    case "$what" in
        rtf) ./build/bench/engine_rtf_bench ;;
        latency) "${java[@]}" velmar.speech.bench.DetectionLatencyBenchmark "${engine[@]}" \
                     --clips build/clips --log build/latency-bench.log ;;
        bridge) "${java[@]}" velmar.speech.bench.BridgeCostBenchmark "${engine[@]}" \
                    --log build/bridge-bench.log ;;
        *) echo "unknown benchmark: $what (rtf, latency or bridge)" >&2; exit 2 ;;
    esac
done
