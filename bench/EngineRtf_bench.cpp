// Real-time factor of the PocketSphinx engine: the time one decoder spends per second of speech.
//   Decoder: through the C entry points, 20 ms pushes of the sample utterance (speech with the
//     default model's wake phrases and pauses) for a minute of audio; the decoder thread's CPU
//     time and the wall time until everything is decoded, each divided by the audio's length.
// Run by hand on a quiet machine: ./build/bench/engine_rtf_bench
#include <benchmark/benchmark.h>
#include <norvo/NorvoApi.h>
#include <norvo_ps/NorvoPs.h>
#include <sndfile.h>

#include <chrono>
#include <cstdio>
#include <vector>

namespace {

const char* const kModelSet = "bench_modelset";
const char* const kDecoder = "bench_decoder";

// A minute of the sample utterance, repeated.
const std::vector<int16_t>& minuteOfSpeech() {
    static std::vector<int16_t> audio = [] {
        SF_INFO info{};
        SNDFILE* file = sf_open(WWS_SAMPLE_UTTERANCE, SFM_READ, &info);
        std::vector<int16_t> clip(file == nullptr ? 0 : static_cast<size_t>(info.frames));
        if (file != nullptr) {
            sf_readf_short(file, clip.data(), info.frames);
            sf_close(file);
        }
        std::vector<int16_t> minute;
        while (!clip.empty() && minute.size() < 60 * 16000) {
            minute.insert(minute.end(), clip.begin(), clip.end());
        }
        return minute;
    }();
    return audio;
}

void BM_DecoderRealTimeFactor(benchmark::State& state) {
    const std::vector<int16_t>& audio = minuteOfSpeech();
    if (audio.empty()) {
        state.SkipWithError("cannot read " WWS_SAMPLE_UTTERANCE);
        return;
    }
    if (NorvoModelSet_New(kModelSet, WWS_DEFAULT_MANIFEST, "") != NORVO_SUCCESS ||
        NorvoDecoder_NewSpotterAudioDecoder(kDecoder, kModelSet, "norvo",
                                            NorvoDecoder_NewNorvoMultichannelAudioFormat_Default(),
                                            "{}") != NORVO_SUCCESS) {
        state.SkipWithError("cannot create the decoder");
        return;
    }
    uint64_t next = 0;
    double cpuSeconds = 0, wallSeconds = 0, audioSeconds = 0;
    for (auto _ : state) {
        norvo_ps::DecoderStats before;
        norvo_ps::decoderStats(kDecoder, &before);
        auto started = std::chrono::steady_clock::now();
        char metadata[128];
        for (size_t at = 0; at < audio.size(); at += 320, next += 320) {
            snprintf(metadata, sizeof(metadata),
                     "{ \"sample_count\":320, \"first_sample_index\":%llu }",
                     static_cast<unsigned long long>(next));
            NorvoAudioEvent event{"samples", metadata, audio.data() + at, 0};
            NorvoDecoder_PushAudioEvent(kDecoder, &event);
            if (at % (10 * 16000) == 0) norvo_ps::waitUntilDecoded(kDecoder, 60000);
        }
        norvo_ps::waitUntilDecoded(kDecoder, 60000);
        wallSeconds +=
                std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();
        norvo_ps::DecoderStats after;
        norvo_ps::decoderStats(kDecoder, &after);
        cpuSeconds += (after.decodeCpuNs - before.decodeCpuNs) / 1e9;
        audioSeconds += (after.decodedFrames - before.decodedFrames) / 16000.0;
    }
    state.counters["rtf_cpu"] = cpuSeconds / audioSeconds;
    state.counters["rtf_wall"] = wallSeconds / audioSeconds;
    state.counters["audio_s"] = audioSeconds;
    norvo_ps::DecoderStats stats;
    norvo_ps::decoderStats(kDecoder, &stats);
    // Anything dropped would flatter the figures: the pushes wait for the decoder every 10 s.
    state.counters["dropped_frames"] = static_cast<double>(stats.droppedFrames);
    NorvoDecoder_Delete(kDecoder);
    NorvoModelSet_Delete(kModelSet);
}
BENCHMARK(BM_DecoderRealTimeFactor)->Iterations(3)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
