#include "WavFile.h"

#include <stdlib.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>

namespace wws_test {

namespace {

const std::string& tempDir() {
    static const std::string dir = [] {
        char pattern[] = "/tmp/wws-test-XXXXXX";
        const char* made = mkdtemp(pattern);
        std::string path = made == nullptr ? "/tmp" : made;
        if (made != nullptr) {
            static std::string toRemove;
            toRemove = path;
            atexit([] { std::filesystem::remove_all(toRemove); });
        }
        return path;
    }();
    return dir;
}

}  // namespace

std::string tempPath(const std::string& name) {
    return tempDir() + "/" + name;
}

std::string writeWav(const std::string& name, const std::vector<int16_t>& samples, int sampleRate,
                     int channels, int format) {
    std::string path = tempPath(name);
    SF_INFO info{};
    info.samplerate = sampleRate;
    info.channels = channels;
    info.format = SF_FORMAT_WAV | format;
    SNDFILE* file = sf_open(path.c_str(), SFM_WRITE, &info);
    if (file == nullptr) return "";
    sf_writef_short(file, samples.data(), static_cast<sf_count_t>(samples.size() / channels));
    sf_close(file);
    return path;
}

std::vector<int16_t> rampSamples(size_t count, int16_t first) {
    std::vector<int16_t> samples(count);
    for (size_t i = 0; i < count; ++i)
        samples[i] = static_cast<int16_t>(first + static_cast<int16_t>(i));
    return samples;
}

}  // namespace wws_test
