// Feeding buffers into a service's capture callback and reading back what it mirrored.
#pragma once

#include <audiostream/AudioStream.h>
#include <media/AudioRecord.h>

#include <string>
#include <vector>

#include "WakeWordService.h"

namespace wws_test {

// Delivers samples (frameCount frames) through the microphone AudioRecord callback, as the
// platform's callback thread would.
inline void deliverInput(velmar::WakeWordService& service, std::vector<int16_t>& samples,
                         size_t frameCount) {
    android::AudioRecord::Buffer buffer;
    buffer.frameCount = frameCount;
    buffer.size = samples.size() * sizeof(int16_t);
    buffer.raw = samples.data();
    velmar::WakeWordService::audioRecordCallbackFn(android::AudioRecord::EVENT_MORE_DATA, &service,
                                                   &buffer);
}

// Delivers mono samples through the playback AudioRecord callback, as the platform's callback
// thread would.
inline void deliverPlayback(velmar::WakeWordService& service, std::vector<int16_t>& samples) {
    android::AudioRecord::Buffer buffer;
    buffer.frameCount = samples.size();
    buffer.size = samples.size() * sizeof(int16_t);
    buffer.raw = samples.data();
    velmar::WakeWordService::playbackAudioRecordCallbackFn(android::AudioRecord::EVENT_MORE_DATA,
                                                           &service, &buffer);
}

// A reader positioned at the stream's current end: it sees what is written from now on.
inline android::sp<velmar::AudioStreamReader> readerAtEnd(
        const android::sp<velmar::AudioStream>& stream) {
    android::sp<velmar::AudioStreamReader> reader;
    stream->openReader(reader);
    return reader;
}

// Everything the reader can read now, as 16-bit samples.
inline std::vector<int16_t> drain(const android::sp<velmar::AudioStreamReader>& reader) {
    std::vector<int16_t> samples(reader->available() / sizeof(int16_t));
    ssize_t n = reader->read(samples.data(), samples.size() * sizeof(int16_t));
    samples.resize(n > 0 ? static_cast<size_t>(n) / sizeof(int16_t) : 0);
    return samples;
}

inline std::string sampleEvent(unsigned count, unsigned long long first) {
    return "{ \"sample_count\":" + std::to_string(count) +
           ", \"first_sample_index\":" + std::to_string(first) + " }";
}

}  // namespace wws_test
