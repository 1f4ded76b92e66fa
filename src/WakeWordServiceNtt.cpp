// Natural turn taking: the separate NTT decoder ("wws_ntt" on its own model set) for wake-word
// models without turn taking, the NTT mode, the audio push, and computer-vision and
// speaker-localization events placed in the input audio's sample indices.
//
// With a unified wake-word model the input decoder does turn taking itself: configuration and
// computer-vision events go to it, and no separate decoder exists.
#define LOG_TAG "WakeWordService"
#define ATRACE_TAG ATRACE_TAG_AUDIO

#include <log/log.h>
#include <utils/Trace.h>

#include "NorvoIds.h"
#include "WakeWordService.h"

namespace velmar {

using android::status_t;

namespace {

constexpr const char* kDefaultNttManifest = "/system/local/models/NTT/norvo.manifest";
constexpr int kNttDecoderThreadPriority = 1;
constexpr int64_t kFramesPerMs = 16;  // 16000 Hz

// Age of a client time stamp in milliseconds. The time stamp enters the subtraction as its low 32
// bits read as a signed number; the age is kept to 32 bits, so it stays right when the monotonic
// clock has run past 2^31 ms.
int32_t ageMs(int64_t clientTimestamp) {
    const int64_t nowMs = getTimeNs() / 1000000;
    return static_cast<int32_t>(nowMs - static_cast<int32_t>(clientTimestamp));
}

int64_t framesAgo(uint64_t frameCount, int32_t ageMs) {
    return static_cast<int64_t>(frameCount) - kFramesPerMs * ageMs;
}

}  // namespace

status_t WakeWordService::initializeNttDecoder(const char* manifestPath) {
    ATRACE_NAME(__PRETTY_FUNCTION__);
    if (mInitStatus != android::NO_ERROR) {
        ALOGE("initializeNttDecoder: WakeWordService not initialized.");
        return mInitStatus;
    }
    if (mNttDecoderReady) return android::NO_ERROR;
    const char* path = kDefaultNttManifest;
    if (manifestPath != nullptr && manifestPath[0] != '\0') {
        ALOGD("Using custom Norvo NTT model \"%s\"", manifestPath);
        path = manifestPath;
    } else {
        ALOGD("Using default Norvo NTT model");
    }
    status_t status = setNttModel(path);
    if (status != android::NO_ERROR) {
        ALOGE("Error setting Norvo NTT model.");
        return status;
    }
    ALOGD("Initialized NTT Decoder.");
    return android::NO_ERROR;
}

status_t WakeWordService::setNttModel(const char* manifestPath) {
    ATRACE_NAME(__PRETTY_FUNCTION__);
    std::lock_guard<std::mutex> guard(mNttLock);
    NorvoMultichannelAudioFormat format = NorvoDecoder_NewNorvoMultichannelAudioFormat_Default();
    if (mThreeChannelInput) setThreeChannelFormat(format);
    status_t status = NorvoModelSet_New(kNttModelSetId, manifestPath, "");
    if (status != NORVO_SUCCESS) {
        ALOGE("Error creating NTT NorvoModelSet.");
        return status;
    }
    mNttModelSetCreated = true;
    status = NorvoDecoder_NewSpotterAudioDecoder(kNttDecoderId, kNttModelSetId, kNorvoKeywordSet,
                                                 format, "{}");
    if (status != NORVO_SUCCESS) {
        ALOGE("Error creating NorvoDecoder '%s'", kNttDecoderId);
        return status;
    }
    mNttDecoderReady = true;
    reportDecoderStatus(mNttDecoderStatusCallback, true);
    // The configuration survives re-creation: each new decoder gets the one last chosen.
    status = NorvoDecoder_SetNttConfiguration(kNttDecoderId, mNttConfiguration);
    if (status != NORVO_SUCCESS) ALOGE("Error setting NTT configuration (%d)", status);
    status_t priority = setNorvoDecoderThreadPriority(kNttDecoderId, kNttDecoderThreadPriority);
    if (priority != android::NO_ERROR) {
        ALOGW("Could not set decoder thread priority for %s (Error %d)", kNttDecoderId, priority);
    }
    return status;
}

void WakeWordService::destroyNttModel() {
    ATRACE_NAME(__PRETTY_FUNCTION__);
    // The flag drops first, so that the input path stops pushing before the decoder goes. A push
    // that read the flag just before still names the decoder by id; the engine answers it with a
    // status (logged by the push), never with freed state.
    if (mNttDecoderReady) {
        mNttDecoderReady = false;
        if (NorvoDecoder_Delete(kNttDecoderId) != NORVO_SUCCESS) {
            ALOGE("Error deleting NTT decoder.");
        }
    }
    if (NorvoModelSet_Delete(kNttModelSetId) != NORVO_SUCCESS) {
        ALOGE("Error deleting NorvoModelSet for NTT");
    }
    mNttModelSetCreated = false;
    reportDecoderStatus(mNttDecoderStatusCallback, false);
}

status_t WakeWordService::switchNttModel(const char* nttModelManifestPath) {
    ATRACE_NAME(__PRETTY_FUNCTION__);
    if (mNttSupportedInWwModel) return android::NO_ERROR;  // the input decoder does turn taking
    destroyNttModel();
    status_t status = initializeNttDecoder(nttModelManifestPath);
    if (status != android::NO_ERROR) {
        ALOGE("Failed to switch to NTT model specified by the new manifest path. Reverting back "
              "to the previous model.");
        // A model set whose decoder could not be made stays loaded; it is dropped so that the
        // previous model can be loaded again under the same id. Any other failure made nothing,
        // and the revert is a plain one.
        if (mNttModelSetCreated && !mNttDecoderReady) {
            NorvoModelSet_Delete(kNttModelSetId);
            mNttModelSetCreated = false;
        }
        initializeNttDecoder(mNttModelPath.c_str());
        return status;
    }
    mNttModelPath = nttModelManifestPath == nullptr ? "" : nttModelManifestPath;
    ALOGD("Successfully switched NTT model to use the manifest path: '%s'", mNttModelPath.c_str());
    return android::NO_ERROR;
}

status_t WakeWordService::setNttDetectionMode(bool enabled, int mode) {
    ATRACE_NAME(__PRETTY_FUNCTION__);
    if (mInitStatus != android::NO_ERROR) {
        ALOGE("setNttDetectionMode: WakeWordService not initialized.");
        return mInitStatus;
    }
    status_t status = android::NO_ERROR;
    if (enabled) {
        if (!mNttSupportedInWwModel && !mNttDecoderReady) {
            status = initializeNttDecoder(mNttModelPath.c_str());
            if (!mNttDecoderReady) {
                ALOGE("Error : NTT decoder not initialized.");
                return status;
            }
            status = android::NO_ERROR;
        }
        switch (mode) {
            case 0:
                ALOGD("setNttDetectionMode : Setting Norvo configuration to CONVERSATION");
                mNttConfiguration = NORVO_NTT_CONFIGURATION_CONVERSATION;
                break;
            case 1:
                ALOGD("setNttDetectionMode : Setting Norvo configuration to PROMPT");
                mNttConfiguration = NORVO_NTT_CONFIGURATION_PROMPT;
                break;
            case 2:
                ALOGD("setNttDetectionMode : Setting Norvo configuration to VISUAL_ATTENTION.");
                mNttConfiguration = NORVO_NTT_CONFIGURATION_VISUAL_ATTENTION;
                break;
            case 3:
                ALOGD("setNttDetectionMode : Setting Norvo configuration to LISTENING.");
                mNttConfiguration = NORVO_NTT_CONFIGURATION_LISTENING;
                break;
            default:
                ALOGE("setNttDetectionMode: Invalid NTT Mode supplied. Setting the Norvo "
                      "configuration for NTT to DISABLED.");
                mNttConfiguration = NORVO_NTT_CONFIGURATION_DISABLED;
                mNttDetectionEnabled = false;
                if (!mPreloadNttModel) destroyNttModel();
                break;
        }
    } else {
        ALOGD("setNttDetectionMode : Setting Norvo configuration to DISABLED.");
        mNttConfiguration = NORVO_NTT_CONFIGURATION_DISABLED;
        if (!mPreloadNttModel) destroyNttModel();
    }

    const char* target = mNttSupportedInWwModel ? kInputDecoderId
                         : mNttDecoderReady     ? kNttDecoderId
                                                : nullptr;
    if (target != nullptr) status = NorvoDecoder_SetNttConfiguration(target, mNttConfiguration);
    if (status != android::NO_ERROR) ALOGE("Error setting NTT configuration (%d)", status);
    // An invalid mode with NTT asked on ends with the push switched on again, configured DISABLED.
    mNttDetectionEnabled = enabled;
    return status;
}

status_t WakeWordService::pushAudioToNttDecoder(void* buffer, size_t sampleCount,
                                                uint64_t firstSampleIndex) {
    // With a unified model the input decoder already hears this audio.
    if (!mNttDecoderReady.load(std::memory_order_relaxed)) return android::NO_ERROR;
    return detectAudioData(buffer, sampleCount, firstSampleIndex, kNttDecoderId);
}

status_t WakeWordService::onCVEvent(const char* eventJson, int64_t clientTimestamp) {
    ATRACE_NAME(__PRETTY_FUNCTION__);
    if (!mNttSupportedInWwModel && !mNttDecoderReady) {
        ALOGD("onCVEvent: Ignoring CV event; NTT Decoder is not loaded on non-unified model");
        return android::NO_ERROR;
    }
    const int32_t delta = ageMs(clientTimestamp);
    ALOGD("onCVEvent: Received CV event in native layer: %s, msec delta: %d", eventJson, delta);
    if (mInitStatus != android::NO_ERROR) {
        ALOGE("onCVEvent: WakeWordService not initialized.");
        return mInitStatus;
    }
    NorvoNttEvent event{};
    event.kind = NORVO_NTT_EVENT_COMPUTER_VISION;
    event.start = framesAgo(mInputFrameCount.load(std::memory_order_relaxed), delta);
    event.end = event.start + 1;
    event.text = eventJson;
    event.timestamp = clientTimestamp;
    status_t status = NorvoDecoder_PushNttEvent(
            mNttSupportedInWwModel ? kInputDecoderId : kNttDecoderId, &event);
    if (status != NORVO_SUCCESS) {
        ALOGE("Error pushing NTT event (%d)", status);
        return status;
    }
    return android::NO_ERROR;
}

status_t WakeWordService::onSpeakerLocalizationEvent(const char* eventJson,
                                                     int64_t clientBeginTimestamp,
                                                     int64_t clientEndTimestamp) {
    ATRACE_NAME(__PRETTY_FUNCTION__);
    // Only the separate decoder takes these; a unified model does not.
    if (!mNttDecoderReady) {
        ALOGD("onSpeakerLocalizationEvent: Ignoring SpeakerLocalization event; NTT Decoder is not "
              "loaded");
        return android::NO_ERROR;
    }
    const int32_t beginDelta = ageMs(clientBeginTimestamp);
    const int32_t endDelta = ageMs(clientEndTimestamp);
    ALOGD("onSpeakerLocalizationEvent: Received event in native layer: %s, msec delta at start: "
          "%d, msec delta at end: %d",
          eventJson, beginDelta, endDelta);
    if (mInitStatus != android::NO_ERROR) {
        ALOGE("onSpeakerLocalizationEvent: WakeWordService not initialized.");
        return mInitStatus;
    }
    const uint64_t frames = mInputFrameCount.load(std::memory_order_relaxed);
    NorvoNttEvent event{};  // the time stamp field is unused for this kind and left zero
    event.kind = NORVO_NTT_EVENT_SPEAKER_LOCALIZATION;
    event.start = framesAgo(frames, beginDelta);
    event.end = framesAgo(frames, endDelta) + 1;
    event.text = eventJson;
    return NorvoDecoder_PushNttEvent(kNttDecoderId, &event);
}

}  // namespace velmar
