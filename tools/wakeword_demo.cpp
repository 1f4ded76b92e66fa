// Host program: runs a wake-word service on the fake engine. It creates and initialises the
// service, injects a generated one-second WAV file in which the engine is scripted to hear a wake
// word, prints the result the engine reports from its own thread, dumps the service and destroys
// it, printing what happened at each step.
//   wakeword_demo [wav-path]   (default: a file it writes to a temporary folder)
// Exits 0 when the engine reported exactly one wake word.
#include <asp/HostAudioSignalProcessor.h>
#include <norvo_fake/FakeNorvo.h>
#include <sndfile.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <string>
#include <thread>
#include <vector>

#include "NorvoIds.h"
#include "WakeWordService.h"

using android::sp;
using velmar::AudioStream;
using velmar::AudioStreamFormat;
using velmar::WakeWordService;

namespace {

constexpr int16_t kWakeWordMarker = 31000;  // the sample the fake engine is scripted to hear
std::atomic<int> gResults{0};

void onWakeWord(NorvoDecoderId decoderId, NorvoEnumeratedResult* result) {
    printf("  engine reported \"%s\" on decoder %s, samples %lld..%lld, %u metadata bytes\n",
           result->keyword, decoderId, static_cast<long long>(result->beginSampleIndex),
           static_cast<long long>(result->endSampleIndex), result->blob.size);
    ++gResults;
}

bool writeUtterance(const std::string& path) {
    SF_INFO info{};
    info.samplerate = 16000;
    info.channels = 1;
    info.format = SF_FORMAT_WAV | SF_FORMAT_PCM_16;
    SNDFILE* file = sf_open(path.c_str(), SFM_WRITE, &info);
    if (file == nullptr) return false;
    std::vector<short> samples(16000);
    for (size_t i = 0; i < samples.size(); ++i) samples[i] = static_cast<short>((i * 37) % 2000);
    samples[12000] = kWakeWordMarker;
    sf_writef_short(file, samples.data(), static_cast<sf_count_t>(samples.size()));
    sf_close(file);
    return true;
}

}  // namespace

int main(int argc, char** argv) {
    // The device's audio signal processor, which the service watches.
    android::sp<asp::host::AudioSignalProcessorService> processor = asp::host::publishService();
    std::string wav = argc > 1 ? argv[1] : "";
    std::string folder;
    if (wav.empty()) {
        char pattern[] = "/tmp/wakeword-demo-XXXXXX";
        if (mkdtemp(pattern) == nullptr) return 1;
        folder = pattern;
        wav = folder + "/utterance.wav";
        if (!writeUtterance(wav)) {
            fprintf(stderr, "cannot write %s\n", wav.c_str());
            return 1;
        }
    }
    struct RemoveGenerated {
        ~RemoveGenerated() {
            if (folder.empty()) return;
            unlink(file.c_str());
            rmdir(folder.c_str());
        }
        const std::string& folder;
        const std::string& file;
    } removeGenerated{folder, wav};
    norvo_fake::scriptKeyword(velmar::kInputDecoderId, kWakeWordMarker, "HEYVELMAR",
                              std::vector<uint8_t>{'{', '}'});

    const char* wakeWords[] = {"HEYVELMAR"};
    sp<AudioStream> stream = new AudioStream(AudioStreamFormat{AUDIO_FORMAT_PCM_16_BIT, 16000, 1});
    printf("creating the service (fake engine)\n");
    sp<WakeWordService> service = new WakeWordService(
            "velmar.speech.wakewordservice", onWakeWord, nullptr, nullptr, nullptr, nullptr,
            nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
            nullptr, stream, nullptr, "/system/local/models/WW/norvo.manifest", nullptr, nullptr,
            nullptr, nullptr, wakeWords, 1, false, false, false, false, false, false, false, false,
            -19, 320, 0, 9);
    printf("initialize: status %d\n", service->mInitStatus);
    printf("engine calls during initialize: %zu\n", norvo_fake::calls().size());
    for (const norvo_fake::Call& call : norvo_fake::calls()) printf("  %s\n", call.op.c_str());
    if (service->mInitStatus != 0) return 1;

    printf("injecting %s\n", wav.c_str());
    android::status_t status = service->injectWaveFile(wav.c_str(), false);
    if (status != 0) {
        printf("injection refused: %d\n", status);
        return 1;
    }
    auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    while (service->mInjector->isInjecting() && std::chrono::steady_clock::now() < deadline) {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    printf("injection done: %llu frames pushed in %zu sample events\n",
           static_cast<unsigned long long>(service->mInputFrameCount.load()),
           norvo_fake::pushedMetadata(velmar::kInputDecoderId).size());
    printf("wake words reported: %d\n", gResults.load());

    printf("dump:\n");
    fflush(stdout);
    service->dump(STDOUT_FILENO, android::Vector<android::String16>());

    size_t before = norvo_fake::calls().size();
    service->release();
    service.clear();
    std::vector<norvo_fake::Call> calls = norvo_fake::calls();
    printf("destroyed: %zu engine calls during teardown\n", calls.size() - before);
    for (size_t i = before; i < calls.size(); ++i) printf("  %s\n", calls[i].op.c_str());
    return gResults.load() == 1 ? 0 : 1;
}
