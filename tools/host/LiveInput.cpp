#include "LiveInput.h"

#include <poll.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>

namespace velmar {
namespace tools {

namespace {

constexpr uint32_t kRate = 16000;
constexpr char kAdvice[] = "record with arecord -r 16000 -f S16_LE -c 1";

int64_t nowMs() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec * 1000LL + now.tv_nsec / 1000000;
}

// Reads up to size bytes; stops early at end of input, on an error, or (deadlineMs >= 0) when
// nothing arrives before the deadline. Returns how many bytes it read.
size_t readUpTo(int fd, uint8_t* data, size_t size, int64_t deadlineMs = -1) {
    size_t done = 0;
    while (done < size) {
        if (deadlineMs >= 0) {
            int64_t left = deadlineMs - nowMs();
            pollfd readable{fd, POLLIN, 0};
            int ready = left > 0 ? poll(&readable, 1, static_cast<int>(left)) : 0;
            if (ready < 0 && errno == EINTR) continue;
            if (ready <= 0) break;
        }
        ssize_t got = read(fd, data + done, size - done);
        if (got < 0 && errno == EINTR) continue;
        if (got <= 0) break;
        done += static_cast<size_t>(got);
    }
    return done;
}

uint32_t le32(const uint8_t* p) {
    return p[0] | (p[1] << 8) | (p[2] << 16) | (static_cast<uint32_t>(p[3]) << 24);
}

uint16_t le16(const uint8_t* p) {
    return static_cast<uint16_t>(p[0] | (p[1] << 8));
}

std::string describe(uint16_t tag, uint16_t channels, uint32_t rate, uint16_t bits) {
    std::string encoding;
    switch (tag) {
        case 1: encoding = bits == 8 ? "8-bit unsigned PCM" : std::to_string(bits) + "-bit PCM"; break;
        case 3: encoding = std::to_string(bits) + "-bit float"; break;
        case 6: encoding = "A-law"; break;
        case 7: encoding = "mu-law"; break;
        default: encoding = "format " + std::to_string(tag); break;
    }
    std::string layout = channels == 1   ? "mono"
                         : channels == 2 ? "stereo"
                                         : std::to_string(channels) + "-channel";
    return std::to_string(rate) + " Hz " + layout + " " + encoding;
}

// Reads a WAV stream's chunks up to its data. The data chunk's size is not checked: a recorder
// writing to a pipe cannot know it and puts a placeholder there.
LiveInput readWavHeader(int fd, const std::string& name) {
    LiveInput input;
    bool haveFormat = false;
    uint16_t tag = 0, channels = 0, bits = 0;
    uint32_t rate = 0;
    for (;;) {
        uint8_t header[8];
        if (readUpTo(fd, header, sizeof(header)) < sizeof(header)) {
            input.error = name + " is a WAV stream that ends before its audio";
            return input;
        }
        uint32_t size = le32(header + 4);
        if (memcmp(header, "data", 4) == 0) break;
        // Chunks are padded to an even size. The format's first bytes are kept, the rest skipped.
        const bool format = memcmp(header, "fmt ", 4) == 0;
        if (format && size < 16) {
            input.error = name + " is a WAV stream with a broken format chunk";
            return input;
        }
        uint8_t body[64] = {};
        uint64_t left = static_cast<uint64_t>(size) + (size & 1u);
        bool complete = true;
        for (bool first = true; left > 0 && complete; first = false) {
            uint8_t scratch[sizeof(body)];
            size_t step = static_cast<size_t>(std::min<uint64_t>(left, sizeof(body)));
            complete = readUpTo(fd, first ? body : scratch, step) == step;
            left -= step;
        }
        if (!complete) {
            input.error = name + " is a WAV stream that ends before its audio";
            return input;
        }
        if (format) {
            haveFormat = true;
            tag = le16(body);
            channels = le16(body + 2);
            rate = le32(body + 4);
            bits = le16(body + 14);
            if (tag == 0xFFFE && size >= 26) tag = le16(body + 24);  // WAVE_FORMAT_EXTENSIBLE
        }
    }
    if (!haveFormat) {
        input.error = name + " is a WAV stream without a format chunk";
    } else if (tag != 1 || channels != 1 || rate != kRate || bits != 16) {
        input.error = name + " is a WAV stream of " + describe(tag, channels, rate, bits) +
                      ", not 16 kHz mono 16-bit PCM: " + kAdvice;
    } else {
        input.format = "a WAV stream of 16 kHz mono 16-bit PCM";
    }
    return input;
}

}  // namespace

std::string rawPcmWarning(const std::vector<int16_t>& samples, const std::string& name) {
    if (samples.size() < kRate / 10) return "";
    double sum = 0;
    for (int16_t s : samples) sum += static_cast<double>(s) * s;
    double rms = std::sqrt(sum / static_cast<double>(samples.size()));
    // Speech from a microphone stays well below -10 dBFS over a second. 8-bit or unsigned audio
    // read as signed 16-bit sits near full scale, and byte-swapped audio spreads over all of it.
    if (rms < 10000) return "";
    std::string level = std::to_string(std::lround(20 * std::log10(rms / 32768)));
    return name + " does not look like 16-bit little-endian PCM (its first second is at " + level +
           " dBFS, as 8-bit, unsigned or big-endian audio read as 16-bit is): " + kAdvice +
           ", or send a WAV stream";
}

LiveInput readLiveInput(int fd, const std::string& name) {
    if (isatty(fd)) {
        LiveInput input;
        input.error = name + " is a terminal, not audio: pipe a recorder into it (arecord -q -r "
                             "16000 -f S16_LE -c 1 | scripts/run.sh --live -), or use --mic";
        return input;
    }
    uint8_t start[12];
    size_t got = readUpTo(fd, start, sizeof(start));
    if (got == 0) {
        LiveInput input;
        input.error = name + " ended before any audio (did the recorder start?)";
        return input;
    }
    if (got == sizeof(start) && memcmp(start, "RIFF", 4) == 0 && memcmp(start + 8, "WAVE", 4) == 0) {
        return readWavHeader(fd, name);
    }
    LiveInput input;
    input.format = "raw 16 kHz mono 16-bit PCM";
    // About a second, or what comes within a second and a half: enough to judge the signal without
    // holding a slow pipe back for long.
    std::vector<uint8_t> bytes(start, start + got);
    bytes.resize(2 * kRate);
    const int64_t deadline = nowMs() + 1500;
    if (got == sizeof(start)) got += readUpTo(fd, bytes.data() + got, bytes.size() - got, deadline);
    if (got % 2 != 0) got += readUpTo(fd, bytes.data() + got, 1, deadline);  // a whole sample
    bytes.resize(got);
    input.samples.resize(got / 2);
    for (size_t i = 0; i < input.samples.size(); ++i) {
        input.samples[i] = static_cast<int16_t>(bytes[2 * i] | (bytes[2 * i + 1] << 8));
    }
    input.warning = rawPcmWarning(input.samples, name);
    return input;
}

}  // namespace tools
}  // namespace velmar
