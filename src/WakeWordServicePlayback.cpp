// Playback-side controls: whether playback audio reaches its detector, and text-to-speech state.
#define LOG_TAG "WakeWordService"
#define ATRACE_TAG ATRACE_TAG_AUDIO

#include <log/log.h>
#include <utils/Trace.h>

#include "WakeWordService.h"

namespace velmar {

using android::status_t;

bool WakeWordService::setPushDataToPlaybackDetectorEnabled(bool enabled) {
    ATRACE_NAME(__PRETTY_FUNCTION__);
    const bool previous = mPushDataToPlaybackDetector;
    if (mInitStatus != android::NO_ERROR) {
        ALOGE("setPushDataToPlaybackDetectorEnabled: WakeWordService not initialized.");
        return previous;
    }
    if (enabled != previous) {
        ALOGD("%s", enabled ? "Turning on pushing data to the playback detector"
                            : "Turning off pushing data to the playback detector");
        mPushDataToPlaybackDetector = enabled;
    }
    return previous;
}

status_t WakeWordService::notifyTtsState(bool isPlaying) {
    ATRACE_NAME(__PRETTY_FUNCTION__);
    if (mInitStatus != android::NO_ERROR) {
        ALOGE("notifyTtsState: WakeWordService not initialized.");
        return mInitStatus;
    }
    ALOGD("notifyTtsState: isPlaying: %d", isPlaying);
    std::lock_guard<std::mutex> guard(mPlaybackNotifierLock);
    if (mPlaybackStatusNotifier == nullptr) {
        ALOGE("notifyTtsState: mPlaybackStatusNotifier is null.");
        return 22;  // positive, as callers of this operation have always received
    }
    mPlaybackStatusNotifier->notifyTtsState(isPlaying);
    return android::NO_ERROR;
}

}  // namespace velmar
