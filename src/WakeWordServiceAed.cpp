// Audio event detection ("presence"): its model set, loaded from the static manifest and optionally
// extended by a custom sounds configuration, its decoder, and the switch that tells the engine and
// the input path whether detection is on.
#define LOG_TAG "WakeWordService"
#define ATRACE_TAG ATRACE_TAG_AUDIO

#include <log/log.h>
#include <utils/Trace.h>

#include "NorvoIds.h"
#include "WakeWordService.h"

namespace velmar {

using android::status_t;

namespace {

constexpr const char* kRebuildSignature =
        "android::status_t velmar::WakeWordService::setAudioEventDetectionMode(bool)";
constexpr const char* kAedModeEvent = "AcousticEventDetectionEnabled";
// The presence data the Java side may ask for; static storage, never freed.
constexpr const char* kAudioPresenceData = "{}";

}  // namespace

status_t WakeWordService::setAudioEventDetectionMode(bool enabled) {
    ATRACE_NAME(__PRETTY_FUNCTION__);
    if (mAedStaticModelManifestPath.empty()) {
        ALOGE("%s : Parameter %s cannot be empty.", kRebuildSignature,
              "mAedStaticModelManifestPath");
        return android::BAD_VALUE;
    }
    // Every rebuild passes through "no decoder": detection off first, then the decoder goes, and
    // the model set too unless a custom configuration lives in it.
    notifyAedModeChange(false);
    destroyAedCustomModel();
    destroyAedDecoderAndStaticModel(true, mAedCustomModelPath.empty());

    status_t status;
    if (!mAedModelSetCreated) {
        status = NorvoModelSet_New(kAudioPresenceModelSetId, mAedStaticModelManifestPath.c_str(),
                                   "");
        if (status != NORVO_SUCCESS) {
            ALOGE("%s : %s", kRebuildSignature, "Error creating AED model set.");
            return status;
        }
        mAedModelSetCreated = true;
    }
    if (!mAedCustomModelPath.empty()) {
        status = NorvoModelSet_SetAedCustomSoundConfig(kAudioPresenceModelSetId, kNorvoKeywordSet,
                                                       mAedCustomModelPath.c_str());
        if (status != NORVO_SUCCESS) {
            ALOGE("%s : %s", kRebuildSignature, "Could not set AED Custom Sounds config.");
            return status;
        }
        ALOGI("AED Custom Sounds config applied successfully.");
    }
    if (enabled && !mAedDecoderCreated) {
        ALOGI("setAudioEventDetectionMode: enabled is true, creating Decoder");
        if (mThreeChannelInput) {
            NorvoMultichannelAudioFormat format =
                    NorvoDecoder_NewNorvoMultichannelAudioFormat_Default();
            setThreeChannelFormat(format);
            status = NorvoDecoder_NewMultichannelAudioDecoder(kAudioPresenceDecoderId,
                                                              kAudioPresenceModelSetId,
                                                              kNorvoKeywordSet, 0, 0, 0, 0, 0, 0,
                                                              format);
        } else {
            status = NorvoDecoder_NewPcmInt16(kAudioPresenceDecoderId, kAudioPresenceModelSetId,
                                              kNorvoKeywordSet, 0, 0, 0, 0);
        }
        if (status != NORVO_SUCCESS) {
            ALOGE("%s : %s", kRebuildSignature, "Error creating AED decoder.");
            return status;
        }
        mAedDecoderCreated = true;
        reportDecoderStatus(mAedStaticDecoderStatusCallback, true);
        if (!mAedCustomModelPath.empty()) {
            reportDecoderStatus(mAedCustomDecoderStatusCallback, true);
        }
        notifyAedModeChange(true);
        ALOGI("setAudioEventDetectionMode: created AED Decoder");
    }
    status_t priority = setNorvoDecoderThreadPriority(kAudioPresenceDecoderId,
                                                      mDecoderThreadPriority);
    if (priority != android::NO_ERROR) {
        ALOGW("Could not set AED decoder thread priority (Error %d)", priority);
    }
    return android::NO_ERROR;
}

status_t WakeWordService::notifyAedModeChange(bool enabled) {
    ATRACE_NAME(__PRETTY_FUNCTION__);
    if (mInitStatus != android::NO_ERROR) {
        ALOGE("notifyAedModeChange: WakeWordService not initialized.");
        return mInitStatus;
    }
    if (enabled == mAedEnabled) return android::NO_ERROR;
    // The engine's answer does not change the switch: it is logged by the push.
    pushClientEventToNorvo(kAedModeEvent, enabled ? 1 : 0, kAudioPresenceDecoderId);
    ALOGI("%s", enabled ? "notifyAedModeChange: Turning on audio event detection"
                        : "notifyAedModeChange: Turning off audio event detection");
    mAedEnabled = enabled;
    return android::NO_ERROR;
}

status_t WakeWordService::setAedStaticModel(const char* manifestPath) {
    ATRACE_NAME(__PRETTY_FUNCTION__);
    mAedStaticModelManifestPath = manifestPath == nullptr ? "" : manifestPath;
    // A new static model has its own sounds: the custom configuration of the old one is dropped.
    mAedCustomModelPath.clear();
    return setAudioEventDetectionMode(mAedEnabled);
}

status_t WakeWordService::setAedCustomModel(const char* customModelPath) {
    ATRACE_NAME(__PRETTY_FUNCTION__);
    mAedCustomModelPath = customModelPath == nullptr ? "" : customModelPath;
    return setAudioEventDetectionMode(mAedEnabled);
}

void WakeWordService::destroyAedCustomModel() {
    ATRACE_NAME(__PRETTY_FUNCTION__);
    // The custom configuration lives in the model set: only the report is due here.
    reportDecoderStatus(mAedCustomDecoderStatusCallback, false);
}

void WakeWordService::destroyAedDecoderAndStaticModel(bool deleteDecoder, bool deleteModelSet) {
    ATRACE_NAME(__PRETTY_FUNCTION__);
    if (deleteDecoder && mAedDecoderCreated) {
        mAedDecoderCreated = false;
        if (NorvoDecoder_Delete(kAudioPresenceDecoderId) != NORVO_SUCCESS) {
            ALOGE("Error deleting AED static model.");
        }
        ALOGI("destroyAedDecoderAndStaticModel: destroyed AED Decoder");
    }
    if (deleteModelSet && mAedModelSetCreated) {
        mAedModelSetCreated = false;
        if (NorvoModelSet_Delete(kAudioPresenceModelSetId) != NORVO_SUCCESS) {
            ALOGE("Error deleting NorvoModelSet for AED static model.");
        }
        ALOGI("destroyAedDecoderAndStaticModel: destroyed AED Model Set");
    }
    reportDecoderStatus(mAedStaticDecoderStatusCallback, false);
}

status_t WakeWordService::detectAudioPresenceData(void* buffer, size_t sampleCount,
                                                  uint64_t firstSampleIndex) {
    return detectAudioData(buffer, sampleCount, firstSampleIndex, kAudioPresenceDecoderId);
}

status_t WakeWordService::getAudioPresenceData(const char*& json) {
    ATRACE_NAME(__PRETTY_FUNCTION__);
    if (mInitStatus != android::NO_ERROR) {
        ALOGE("getAudioPresenceData: WakeWordService not initialized.");
        return mInitStatus;
    }
    json = kAudioPresenceData;
    return android::NO_ERROR;
}

}  // namespace velmar
