// How closely a real-time WAV injection keeps to real time: a 10 s mono 16 kHz file is injected
// and the wall time from start to the end of the injection is compared with the file's duration.
//   ./build/bench/injector_pacing_bench
// Reported counters: wall_s (seconds), over_real_pct (how much slower than real time, percent).
#include <benchmark/benchmark.h>

#include <atomic>
#include <chrono>
#include <thread>

#include "WakeWordInjector.h"
#include "WavFile.h"

namespace {

std::atomic<uint64_t> gSamples{0};
void countSamples(void*, int16_t*, size_t count, bool) {
    gSamples += count;
}

void BM_InjectTenSecondsInRealTime(benchmark::State& state) {
    const int seconds = 10;
    const int rate = static_cast<int>(state.range(0));
    std::string path =
            wws_test::writeWav("pacing_" + std::to_string(rate) + ".wav",
                               wws_test::rampSamples(static_cast<size_t>(rate) * seconds), rate);
    double wall = 0;
    for (auto _ : state) {
        gSamples = 0;
        android::sp<velmar::WakeWordInjector> injector =
                new velmar::WakeWordInjector(128, countSamples, nullptr);
        auto start = std::chrono::steady_clock::now();
        if (injector->doInjectWaveFileInRealTime(path.c_str(), false) != 0) {
            state.SkipWithError("injection refused");
            return;
        }
        while (injector->isInjecting()) std::this_thread::sleep_for(std::chrono::microseconds(200));
        wall = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        state.SetIterationTime(wall);
    }
    state.counters["wall_s"] = wall;
    state.counters["over_real_pct"] = (wall - seconds) / seconds * 100.0;
    state.counters["samples"] = static_cast<double>(gSamples.load());
}

BENCHMARK(BM_InjectTenSecondsInRealTime)
        ->Arg(16000)
        ->Arg(48000)
        ->UseManualTime()
        ->Iterations(1)
        ->Unit(benchmark::kSecond);

}  // namespace

BENCHMARK_MAIN();
