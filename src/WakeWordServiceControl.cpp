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

}  // namespace velmar
