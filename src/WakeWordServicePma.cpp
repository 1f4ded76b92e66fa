// The PMA decoder: a further decoder on the playback audio, with its own model path, lock and
// status callback. Loading a model performs no engine work (setPmaModel), so the decoder never
// becomes ready here and playback audio is not pushed to it; the life cycle around it is whole.
#define LOG_TAG "WakeWordService"
#define ATRACE_TAG ATRACE_TAG_AUDIO

#include <log/log.h>
#include <utils/Trace.h>

#include "NorvoIds.h"
#include "WakeWordService.h"

namespace velmar {

using android::status_t;

status_t WakeWordService::initializePmaDecoder(const char* manifestPath) {
    ATRACE_NAME(__PRETTY_FUNCTION__);
    std::lock_guard<std::mutex> guard(mPmaLock);
    if (mInitStatus != android::NO_ERROR) {
        ALOGE("initializePmaDecoder: WakeWordService not initialized.");
        return mInitStatus;
    }
    if (mPmaDecoderReady) return android::NO_ERROR;
    if (manifestPath != nullptr && manifestPath[0] != '\0') {
        ALOGD("Using custom Norvo PMA model \"%s\"", manifestPath);
    } else {
        ALOGD("PMA Model is invalid, disabling");
    }
    setPmaModel(manifestPath);
    ALOGD("Initialized PMA Decoder.");
    return android::NO_ERROR;
}

status_t WakeWordService::setPmaModel(const char* /*manifestPath*/) {
    // This system defines no engine work for loading a PMA model (which model set, which decoder
    // kind, which format): the step reports success and the decoder stays absent.
    return android::NO_ERROR;
}

void WakeWordService::destroyPmaModel() {
    ATRACE_NAME(__PRETTY_FUNCTION__);
    {
        std::lock_guard<std::mutex> guard(mPmaLock);
        if (mPmaDecoderReady) {
            mPmaDecoderReady = false;
            if (NorvoDecoder_Delete(kPmaDecoderId) != NORVO_SUCCESS) {
                ALOGE("Error deleting PMA decoder.");
            }
            if (NorvoModelSet_Delete(kPmaModelSetId) != NORVO_SUCCESS) {
                ALOGE("Error deleting NorvoModelSet for PMA");
            }
        }
    }
    // Reported after the lock is released: the callback reaches Java.
    reportDecoderStatus(mPmaDecoderStatusCallback, false);
}

status_t WakeWordService::switchPmaModel(const char* manifestPath) {
    ATRACE_NAME(__PRETTY_FUNCTION__);
    destroyPmaModel();
    status_t status = initializePmaDecoder(manifestPath);
    if (status != android::NO_ERROR) {
        ALOGE("Failed to switch to PMA model specified by the new manifest path. Reverting back "
              "to the previous model.");
        initializePmaDecoder(mPmaModelPath.c_str());
        return status;
    }
    mPmaModelPath = manifestPath == nullptr ? "" : manifestPath;
    ALOGD("Successfully switched PMA model to use the manifest path: '%s'", mPmaModelPath.c_str());
    return android::NO_ERROR;
}

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
