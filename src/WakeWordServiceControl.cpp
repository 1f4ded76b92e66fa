// Detection control: switching capture for detection on and off, and client events to the engine.
#define LOG_TAG "WakeWordService"
#define ATRACE_TAG ATRACE_TAG_AUDIO

#include <log/log.h>
#include <utils/Trace.h>

#include "NorvoIds.h"
#include "WakeWordService.h"

namespace velmar {

using android::status_t;

status_t WakeWordService::setDetectorEnabled(bool enabled) {
    ATRACE_NAME(__PRETTY_FUNCTION__);
    if (mInitStatus != android::NO_ERROR) {
        ALOGE("setDetectorEnabled: WakeWordService not initialized.");
        return mInitStatus;
    }
    if (enabled == mDetectorEnabled) return android::NO_ERROR;
    if (enabled) {
        ALOGI("Enabling wake word detection.");
        if (mAudioInput == nullptr) return android::INVALID_OPERATION;  // capture never set up
        status_t status = mAudioInput->start();
        if (status != android::NO_ERROR) return status;
        mDetectorEnabled = true;
    } else {
        ALOGI("Disabling wake word detection.");
        if (mAudioInput != nullptr) mAudioInput->stop();
        mDetectorEnabled = false;
    }
    return android::NO_ERROR;
}

status_t WakeWordService::getDetectorEnabled(bool* const enabled) {
    ATRACE_NAME(__PRETTY_FUNCTION__);
    if (mInitStatus != android::NO_ERROR) {
        ALOGE("getDetectorEnabled: WakeWordService not initialized.");
        return mInitStatus;
    }
    if (enabled == nullptr) return android::BAD_VALUE;
    *enabled = mDetectorEnabled;
    return android::NO_ERROR;
}

status_t WakeWordService::pushClientEventToNorvo(const char* name, int64_t value,
                                                 const NorvoString decoderId) {
    ATRACE_NAME(__PRETTY_FUNCTION__);
    NorvoClientEvent event{name, value};
    NorvoClientEventBatch batch{1, &event};
    status_t status = NorvoDecoder_PushClientEvents(decoderId, &batch, 1);
    if (status != NORVO_SUCCESS) {
        ALOGE("Error push client event to norvo.");
    } else {
        ALOGD("event %s with value %lldand decoderId %s has been pushed into Norvo", name,
              static_cast<long long>(value), decoderId);
    }
    return status;
}

status_t WakeWordService::pushClientEventToNorvo(const char* name, int64_t value) {
    return pushClientEventToNorvo(name, value, kInputDecoderId);
}

void WakeWordService::AspEventCallback(void* userData, const char* event, int64_t value) {
    WakeWordService* service = static_cast<WakeWordService*>(userData);
    // Forwarding path: each push logs its own failure; nothing to report back to the monitor.
    service->pushClientEventToNorvo(event, value, kInputDecoderId);
    if (service->mNttDecoderReady) service->pushClientEventToNorvo(event, value, kNttDecoderId);
}

status_t WakeWordService::setWWDetectionEnabled(const bool enabled) {
    ATRACE_NAME(__PRETTY_FUNCTION__);
    if (mInitStatus != android::NO_ERROR) {
        ALOGE("setWWDetectionEnabled: WakeWordService not initialized.");
        return mInitStatus;
    }
    // Held throughout, so that one caller's session ends never interleave with another's change.
    std::lock_guard<std::mutex> guard(mWWDetectionLock);
    if (enabled == mWWDetectionEnabled) return android::NO_ERROR;
    ALOGD("setWWDetectionEnabled: WW detection status : %d", enabled);
    mWWDetectionEnabled = enabled;
    if (!enabled) {
        ALOGI("setWWDetectionEnabled: Calling SessionEnd on main & playback Norvo decoders");
        for (const char* decoderId : {kInputDecoderId, kPlaybackDecoderId}) {
            status_t status = NorvoDecoder_SessionEnd(decoderId);
            ALOGI("setWWDetectionEnabled: SessionEnd decoder:%s result:%d", decoderId, status);
        }
    }
    return android::NO_ERROR;
}

status_t WakeWordService::setWWDetectionEnabledForLpm(bool /*enabled*/, int /*value*/) {
    ATRACE_NAME(__PRETTY_FUNCTION__);
    return android::NO_ERROR;
}

status_t WakeWordService::setNorvoProperty(const char* name, int64_t value) {
    ATRACE_NAME(__PRETTY_FUNCTION__);
    if (mInitStatus != android::NO_ERROR) {
        ALOGE("setNorvoProperty: WakeWordService not initialized.");
        return mInitStatus;
    }
    status_t status = pushClientEventToNorvo(name, value, kInputDecoderId);
    // A unified model hears the event through the input decoder; a separate NTT decoder needs its
    // own copy.
    if (status == NORVO_SUCCESS && mNttDecoderReady) {
        status = pushClientEventToNorvo(name, value, kNttDecoderId);
    }
    return status;
}

status_t WakeWordService::setNorvoAcousticProperty(const char* name, int64_t value) {
    ATRACE_NAME(__PRETTY_FUNCTION__);
    if (mInitStatus != android::NO_ERROR) {
        ALOGE("setNorvoAcousticProperty: WakeWordService not initialized.");
        return mInitStatus;
    }
    return pushClientEventToNorvo(name, value, kAudioPresenceDecoderId);
}

status_t WakeWordService::setFingerprintDatabase(const char* database) {
    ATRACE_NAME(__PRETTY_FUNCTION__);
    if (mInitStatus != android::NO_ERROR) {
        ALOGE("setFingerprintDatabase: WakeWordService not initialized.");
        return mInitStatus;
    }
    status_t status = NorvoDecoder_SetFingerprintDatabase(kInputDecoderId, database);
    if (status != NORVO_SUCCESS) {
        ALOGE("Error setting fingerpint database");
        return status;
    }
    return android::NO_ERROR;
}

status_t WakeWordService::getNorvoLibraryAttributes(const char*& attributes) {
    ATRACE_NAME(__PRETTY_FUNCTION__);
    attributes = nullptr;
    if (mInitStatus != android::NO_ERROR) {
        ALOGE("getNorvoLibraryAttributes: WakeWordService not initialized.");
        return mInitStatus;
    }
    attributes = NorvoApi_GetAttributes();
    return android::NO_ERROR;
}

}  // namespace velmar
