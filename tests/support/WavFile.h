// Writing WAV files for tests, through libsndfile, in a temporary folder removed at exit.
#pragma once

#include <sndfile.h>

#include <cstdint>
#include <string>
#include <vector>

namespace wws_test {

// A fresh path in the test's temporary folder.
std::string tempPath(const std::string& name);

// Writes interleaved samples as a WAV file; format is an SF_FORMAT_PCM_* subtype.
std::string writeWav(const std::string& name, const std::vector<int16_t>& samples, int sampleRate,
                     int channels = 1, int format = SF_FORMAT_PCM_16);

// Samples 0, 1, 2, ... wrapping at 16 bits: every sample identifies its own position.
std::vector<int16_t> rampSamples(size_t count, int16_t first = 0);

}  // namespace wws_test
