// The start of a live input (a pipe from arecord, or a file played as a microphone), read before
// it is played: a WAV stream's header is checked like a WAV file's, and raw input is taken as
// 16 kHz 16-bit little-endian mono PCM, with a warning when its first second cannot be that.
// Host tools only.
#ifndef VELMAR_TOOLS_LIVE_INPUT_H
#define VELMAR_TOOLS_LIVE_INPUT_H

#include <cstdint>
#include <string>
#include <vector>

namespace velmar {
namespace tools {

struct LiveInput {
    std::string error;             // not empty: the input cannot be used; one line saying why
    std::string format;            // what the input is, for the user
    std::string warning;           // raw input that does not look like 16-bit PCM; or empty
    std::vector<int16_t> samples;  // audio already read (raw input), to be played first
};

// Reads from fd (blocking) until the format is known: a WAV stream up to its data, raw input up to
// about a second of audio (less if the input ends or pauses longer). A terminal or an input that
// ends at once is an error. name is how messages call it.
LiveInput readLiveInput(int fd, const std::string& name);

// The warning for raw samples that cannot be a microphone's 16-bit PCM, or "" (also for too little
// audio to tell).
std::string rawPcmWarning(const std::vector<int16_t>& samples, const std::string& name);

}  // namespace tools
}  // namespace velmar

#endif  // VELMAR_TOOLS_LIVE_INPUT_H
