// Speech for the real engine's tests: clips that flite speaks at build time (build/clips), trimmed
// to their speech, and streams built from them with the speech at known places.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace wws_test {

// The clip build/clips/<name>.wav (16 kHz mono), from its first to its last 10 ms frame within
// 30 dB of its loudest. Empty (with a test failure) when it cannot be read.
std::vector<int16_t> speechClip(const std::string& name);

// Where a clip landed in a stream: first and last sample, inclusive.
struct Placed {
    int64_t begin;
    int64_t end;
};

class SpeechStream {
  public:
    void silence(double seconds);
    // A quiet room: noise some 50 dB below speech, where digital silence would be too easy to
    // tell from speech.
    void roomNoise(double seconds);
    Placed add(const std::vector<int16_t>& clip);
    const std::vector<int16_t>& samples() const { return mSamples; }
    // The samples as a three-channel interleaved stream: the speech in channel 0, other signals
    // in channels 1 and 2.
    std::vector<int16_t> threeChannels() const;

  private:
    std::vector<int16_t> mSamples;
};

}  // namespace wws_test
