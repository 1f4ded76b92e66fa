// Any bytes as a WAV file, through the injector and the media layer: an injection either refuses
// the file or plays every sample the file holds, in order, in blocks of the push size (only the
// last one short), and always ends. libsndfile reading the same file is the reference.
#include <WakeWordInjector.h>
#include <sndfile.h>
#include <sys/mman.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

#include "FuzzLog.h"

// The injector paces itself at real-time speed with usleep(); here the pace does not matter and
// a million runs could not wait for it. The service library's call resolves to this definition.
extern "C" int usleep(useconds_t) {
    return 0;
}

namespace {

constexpr unsigned kSamplesPerPush = 128;

struct Played {
    std::vector<int16_t> samples;  // written by the injector thread only while injecting
    size_t shortBlocks = 0;
    bool afterShortBlock = false;
};

int gFd = -1;
std::string gPath;
Played gPlayed;
android::sp<velmar::WakeWordInjector> gInjector;

void require(bool condition, const char* what) {
    if (!condition) {
        __builtin_fprintf(stderr, "fuzz check failed: %s\n", what);
        abort();
    }
}

void onBlock(void* user, int16_t* samples, size_t count, bool toPlayback) {
    auto* played = static_cast<Played*>(user);
    require(count > 0 && count <= kSamplesPerPush, "blocks hold 1 to 128 samples");
    require(!toPlayback, "the playback flag is the one asked for");
    require(!played->afterShortBlock, "only the last block is short");
    if (count < kSamplesPerPush) played->afterShortBlock = true;
    played->samples.insert(played->samples.end(), samples, samples + count);
}

// What libsndfile reads from the file as 16-bit samples, or false when it cannot open it as
// one-channel audio.
bool reference(std::vector<int16_t>* samples) {
    SF_INFO info{};
    SNDFILE* file = sf_open(gPath.c_str(), SFM_READ, &info);
    if (file == nullptr) return false;
    const bool mono = info.channels == 1;
    short block[512];
    sf_count_t got = 0;
    while (mono && (got = sf_read_short(file, block, 512)) > 0) {
        samples->insert(samples->end(), block, block + got);
    }
    sf_close(file);
    return mono;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    wws_fuzz::silenceLogs();
    gFd = memfd_create("wav", 0);
    require(gFd >= 0, "memfd_create");
    gPath = "/proc/self/fd/" + std::to_string(gFd);
    gInjector = new velmar::WakeWordInjector(kSamplesPerPush, onBlock, &gPlayed);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    require(ftruncate(gFd, 0) == 0 && pwrite(gFd, data, size, 0) == static_cast<ssize_t>(size),
            "writing the input file");
    gPlayed = Played();
    const android::status_t status = gInjector->doInjectWaveFileInRealTime(gPath.c_str(), false);
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (gInjector->isInjecting()) {
        require(std::chrono::steady_clock::now() < deadline, "the injection ends");
        std::this_thread::yield();
    }
    gInjector->stopInjection();  // joins the finished thread, so its writes are visible here

    std::vector<int16_t> expected;
    const bool playable = reference(&expected);
    if (status != android::NO_ERROR) {
        require(gPlayed.samples.empty(), "a refused file plays nothing");
        return 0;
    }
    require(playable, "only files libsndfile reads as mono audio are played");
    require(gPlayed.samples == expected, "every sample is played once, in order");
    return 0;
}
