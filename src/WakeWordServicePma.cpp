// The PMA decoder: a further decoder on the playback audio, with its own model path, lock and
// status callback.
#define LOG_TAG "WakeWordService"
#define ATRACE_TAG ATRACE_TAG_AUDIO

#include <log/log.h>
#include <utils/Trace.h>

#include "NorvoIds.h"
#include "WakeWordService.h"

namespace velmar {

using android::status_t;

status_t WakeWordService::pushAudioToPmaDecoder(void* buffer, size_t sampleCount,
                                                uint64_t firstSampleIndex) {
    // The playback thread never waits for a model change: a buffer that arrives during one is
    // simply not offered to PMA.
    std::unique_lock<std::mutex> lock(mPmaLock, std::try_to_lock);
    if (!lock.owns_lock()) return android::NO_ERROR;
    if (!mPmaDecoderReady.load(std::memory_order_relaxed)) return android::NO_ERROR;
    return detectAudioData(buffer, sampleCount, firstSampleIndex, kPmaDecoderId);
}

}  // namespace velmar
