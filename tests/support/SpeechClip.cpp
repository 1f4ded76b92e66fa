#include "SpeechClip.h"

#include <gtest/gtest.h>
#include <sndfile.h>

#include <algorithm>

namespace wws_test {

std::vector<int16_t> speechClip(const std::string& name) {
    std::string path = std::string(WWS_CLIPS_DIR) + "/" + name + ".wav";
    SF_INFO info{};
    SNDFILE* file = sf_open(path.c_str(), SFM_READ, &info);
    if (file == nullptr || info.samplerate != 16000 || info.channels != 1) {
        ADD_FAILURE() << "cannot read " << path << " as 16 kHz mono";
        if (file != nullptr) sf_close(file);
        return {};
    }
    std::vector<int16_t> clip(static_cast<size_t>(info.frames));
    sf_readf_short(file, clip.data(), info.frames);
    sf_close(file);
    const size_t frame = 160;
    std::vector<double> energy;
    for (size_t at = 0; at + frame <= clip.size(); at += frame) {
        double sum = 0;
        for (size_t i = at; i < at + frame; ++i) sum += double(clip[i]) * clip[i];
        energy.push_back(sum / frame);
    }
    double loudest = energy.empty() ? 0 : *std::max_element(energy.begin(), energy.end());
    size_t first = 0, last = energy.size();
    while (first < last && energy[first] < loudest * 1e-3) ++first;
    while (last > first && energy[last - 1] < loudest * 1e-3) --last;
    return std::vector<int16_t>(clip.begin() + first * frame, clip.begin() + last * frame);
}

void SpeechStream::silence(double seconds) {
    mSamples.insert(mSamples.end(), static_cast<size_t>(seconds * 16000), 0);
}

void SpeechStream::roomNoise(double seconds) {
    uint32_t state = 2463534242u;
    for (size_t i = 0; i < static_cast<size_t>(seconds * 16000); ++i) {
        state ^= state << 13;
        state ^= state >> 17;
        state ^= state << 5;
        mSamples.push_back(static_cast<int16_t>(static_cast<int>(state % 61) - 30));
    }
}

Placed SpeechStream::add(const std::vector<int16_t>& clip) {
    Placed placed{static_cast<int64_t>(mSamples.size()), 0};
    mSamples.insert(mSamples.end(), clip.begin(), clip.end());
    placed.end = static_cast<int64_t>(mSamples.size()) - 1;
    return placed;
}

std::vector<int16_t> SpeechStream::threeChannels() const {
    std::vector<int16_t> interleaved(mSamples.size() * 3);
    for (size_t i = 0; i < mSamples.size(); ++i) {
        interleaved[3 * i] = mSamples[i];
        interleaved[3 * i + 1] = static_cast<int16_t>((i * 7919) % 20000 - 10000);  // noise
        interleaved[3 * i + 2] = static_cast<int16_t>(i % 2 ? 12000 : -12000);      // a tone
    }
    return interleaved;
}

}  // namespace wws_test
