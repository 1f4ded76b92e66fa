// The playback path: audio the device itself plays reaches the playback decoder (and the PMA
// decoder) with its own frame counter, and the playback states of music, text-to-speech and
// alarms reach the engine as client events.
//
// Real-time rules for everything reached from playbackAudioRecordCallbackFn and
// playbackAudioCallbackFn: no heap allocation, no blocking lock, no blocking; logging only on
// failure. The PMA push only ever try-locks.
#define LOG_TAG "WakeWordService"
#define ATRACE_TAG ATRACE_TAG_AUDIO

#include <log/log.h>
#include <media/AudioRecord.h>
#include <utils/Trace.h>

#include "NorvoIds.h"
#include "WakeWordService.h"

namespace velmar {

using android::status_t;

namespace {
// Client events per reported stream type; a text-to-speech type equal to music reports as music.
constexpr const char* kMusicEvent = "AudioPlayerState";
constexpr const char* kTtsEvent = "TTSPlayerState";
constexpr const char* kAlarmEvent = "AlarmState";
// Returned when there is no notifier to tell: positive, as callers of this operation receive it.
constexpr status_t kNoNotifier = 22;
}  // namespace

status_t WakeWordService::enablePlaybackDetector() {
    ATRACE_NAME(__PRETTY_FUNCTION__);
    ALOGD("Creating PlaybackStatusNotifier");
    if (mPlaybackStatusNotifier == nullptr) {
        mPlaybackStatusNotifier =
                new PlaybackStatusNotifier(playbackNotifierCallbackFn, this, mTtsStreamType);
        mPlaybackStatusNotifier->startMonitor();
    }
    ALOGD("%s", mPlaybackViaAudioRecord ? "Initialize playback for wakeword service"
                                        : "Will NOT initialize playback for wakeword service");
    return android::NO_ERROR;
}

void WakeWordService::playbackDestroy() {
    ATRACE_NAME(__PRETTY_FUNCTION__);
    // Runs during teardown only, when no Java call can race it: no lock.
    if (mPlaybackStatusNotifier != nullptr) {
        mPlaybackStatusNotifier->stopMonitor();
        mPlaybackStatusNotifier.clear();
    }
}

void WakeWordService::playbackAudioRecordCallbackFn(int event, void* user, void* info) {
    audioRecordCallbackHandler(event, user, info, processAudioFromPlayback, "playback");
}

status_t WakeWordService::processAudioFromPlayback(WakeWordService* service, void* buffer,
                                                   size_t frameCount) {
    ATRACE_NAME(__PRETTY_FUNCTION__);
    // While a file is injected, live playback would interleave with it (an injected playback file
    // enters below, through the injector's callback).
    LiveBufferInFlight inFlight(service);
    if (service->mInjector == nullptr || service->mInjector->isInjecting()) {
        return android::NO_ERROR;
    }
    return service->processAudioDataFromPlayback(buffer, frameCount, 0);
}

void WakeWordService::playbackAudioCallbackFn(void* user, int16_t* samples, size_t frameCount,
                                              uint32_t /*bytePosition*/) {
    processAudioFromPlayback(static_cast<WakeWordService*>(user), samples, frameCount);
}

status_t WakeWordService::processAudioDataFromPlayback(void* buffer, size_t frameCount,
                                                       uint32_t /*position*/) {
    ATRACE_NAME(__PRETTY_FUNCTION__);
    const uint64_t index = mPlaybackFrameCount.load(std::memory_order_relaxed);
    // Without the playback decoder there is nothing to relate the frames to: neither pushed nor
    // counted.
    if (!mPlaybackModelReady.load(std::memory_order_relaxed)) return android::NO_ERROR;
    status_t status = android::NO_ERROR;
    if (mPushDataToPlaybackDetector.load(std::memory_order_relaxed)) {
        status = detectAudioDataFromPlayback(buffer, frameCount, index);
        status = pushAudioToPmaDecoder(buffer, frameCount, index);
    }
    // Counted whether pushed or not, so that indices stay continuous when pushing resumes.
    mPlaybackFrameCount.fetch_add(frameCount, std::memory_order_relaxed);
    return status;
}

status_t WakeWordService::detectAudioDataFromPlayback(void* buffer, size_t sampleCount,
                                                      uint64_t firstSampleIndex) {
    return detectAudioData(buffer, sampleCount, firstSampleIndex, kPlaybackDecoderId);
}

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

void WakeWordService::playbackNotifierCallbackFn(void* user, bool active, int streamType) {
    static_cast<WakeWordService*>(user)->processPlaybackNotifierCallback(active, streamType);
}

status_t WakeWordService::processPlaybackNotifierCallback(bool active, int streamType) {
    ATRACE_NAME(__PRETTY_FUNCTION__);
    const char* event = nullptr;
    if (streamType == AUDIO_STREAM_MUSIC) {
        event = kMusicEvent;
    } else if (streamType == mTtsStreamType) {
        event = kTtsEvent;
    } else if (streamType == AUDIO_STREAM_ALARM) {
        event = kAlarmEvent;
    } else {
        return android::NO_ERROR;
    }
    const int64_t value = active ? 1 : 0;
    status_t status = pushClientEventToNorvo(event, value, kInputDecoderId);
    // A unified model hears the state through the input decoder; a separate NTT decoder needs it
    // too, unless the input decoder already refused it.
    if (status == NORVO_SUCCESS && mNttDecoderReady) {
        status = pushClientEventToNorvo(event, value, kNttDecoderId);
    }
    return status;
}

status_t WakeWordService::notifyTtsState(bool isPlaying) {
    ATRACE_NAME(__PRETTY_FUNCTION__);
    if (mInitStatus != android::NO_ERROR) {
        ALOGE("notifyTtsState: WakeWordService not initialized.");
        return mInitStatus;
    }
    ALOGD("notifyTtsState: isPlaying: %d", isPlaying);
    // The notifier runs the callback, and with it the engine's client events, under its own state
    // lock while this one is held: the two locks are always taken in this order.
    std::lock_guard<std::mutex> guard(mPlaybackNotifierLock);
    if (mPlaybackStatusNotifier == nullptr) {
        ALOGE("notifyTtsState: mPlaybackStatusNotifier is null.");
        return kNoNotifier;
    }
    mPlaybackStatusNotifier->notifyTtsState(isPlaying);
    return android::NO_ERROR;
}

}  // namespace velmar
