// Cost of one microphone buffer through the service's input path (bound check, mirror write,
// sample event, engine push, counting), with the engine's push doing nothing, beside a plain
// memcpy of the same buffer.
//   ./build/bench/input_path_bench
// Arguments: frames per buffer, channels. 160 frames is 10 ms at 16 kHz.
#include <benchmark/benchmark.h>
#include <norvo_fake/FakeNorvo.h>

#include <cstring>
#include <vector>

#include "AudioFeed.h"
#include "ServiceFactory.h"

namespace {

void BM_MicrophoneBuffer(benchmark::State& state) {
    const size_t frames = static_cast<size_t>(state.range(0));
    const bool threeChannels = state.range(1) == 3;
    norvo_fake::reset();
    norvo_fake::setAudioPushesIgnored(true);
    wws_test::ServiceConfig config;
    config.threeChannelInput = threeChannels;
    config.audioStream = wws_test::makeStream();
    android::sp<velmar::WakeWordService> service = wws_test::createService(config);
    if (service->mInitStatus != 0 || !service->mInputModelReady) {
        state.SkipWithError("service did not start");
        return;
    }
    std::vector<int16_t> samples(frames * velmar::gChannelCount, 3);
    for (auto _ : state) {
        wws_test::deliverInput(*service, samples, frames);
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * samples.size() * 2));
    norvo_fake::reset();
}

void BM_MemcpyOfTheSameBuffer(benchmark::State& state) {
    const size_t bytes = static_cast<size_t>(state.range(0) * state.range(1)) * sizeof(int16_t);
    std::vector<uint8_t> from(bytes, 3);
    std::vector<uint8_t> to(bytes);
    for (auto _ : state) {
        memcpy(to.data(), from.data(), bytes);
        benchmark::DoNotOptimize(to.data());
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * bytes));
}

void Shapes(benchmark::internal::Benchmark* b) {
    for (int channels : {1, 3}) {
        for (int frames : {160, 480, 1600}) b->Args({frames, channels});
    }
}

BENCHMARK(BM_MicrophoneBuffer)->Apply(Shapes)->ArgNames({"frames", "channels"});
BENCHMARK(BM_MemcpyOfTheSameBuffer)->Apply(Shapes)->ArgNames({"frames", "channels"});

}  // namespace

BENCHMARK_MAIN();
