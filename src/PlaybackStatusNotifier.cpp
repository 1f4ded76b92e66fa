#define LOG_TAG "PlaybackStatusNotifier"

#include "PlaybackStatusNotifier.h"

#include <log/log.h>
#include <media/AudioSystem.h>

namespace velmar {

namespace {
constexpr int32_t kThreadPriority = 10;      // ANDROID_PRIORITY_BACKGROUND
constexpr nsecs_t kPollingPeriodNs = 100000000;  // 100 ms
}  // namespace

PlaybackStatusNotifier::PlaybackStatusNotifier(Callback callback, void* user, int ttsStreamType)
    : android::Thread(true /*canCallJava*/),
      mCallback(callback),
      mMonitoring(false),
      mUserData(user),
      mMusicState{true, false, AUDIO_STREAM_MUSIC},
      mTtsState{true, false, ttsStreamType},
      mAlarmState{true, false, AUDIO_STREAM_ALARM} {}

PlaybackStatusNotifier::~PlaybackStatusNotifier() {
    stopMonitor();
}

void PlaybackStatusNotifier::startMonitor() {
    android::Mutex::Autolock lock(mLock);
    ALOGD("startMonitor()");
    mMonitoring = true;
    if (isRunning()) {
        ALOGE("PlaybackStatusNotifer has already started");
        return;
    }
    // Text-to-speech is never polled: this one sample is all the platform is asked.
    checkPlaybackStatus(mTtsState);
    if (run("PlaybackStatusNotifer", kThreadPriority, 0) == android::NO_ERROR) {
        ALOGD("PlaybackStatusNotifer has been started");
    } else {
        ALOGE("Error starting thread");
    }
}

void PlaybackStatusNotifier::stopMonitor() {
    android::Mutex::Autolock lock(mLock);
    ALOGD("stopMonitor()");
    // The exit is requested before the loop can see monitoring off, so that the thread never
    // re-enters its loop without monitoring in between.
    const bool running = isRunning();
    if (running) requestExit();
    mMonitoring = false;
    {
        // Ends the polling pause at once: a stop never waits out the 100 ms.
        android::Mutex::Autolock wake(mWakeLock);
        mWake.signal();
    }
    if (running) {
        android::status_t status = requestExitAndWait();
        if (status != android::NO_ERROR) ALOGE("Error stopping thread: %d", status);
    }
}

void PlaybackStatusNotifier::notifyTtsState(bool active) {
    ALOGD("notifyTtsState: %d", active);
    android::Mutex::Autolock lock(mStateLock);
    if (active != mTtsState.reportedActive) {
        mTtsState.active = active;
        mCallback(mUserData, active, mTtsState.streamType);
        mTtsState.reportedActive = active;
        ALOGI("notifyTtsState: State change stream[%d] state[%d]", mTtsState.streamType, active);
    } else {
        ALOGW("notifyTtsState: redundant state update: %d Ignoring..", active);
    }
}

void PlaybackStatusNotifier::checkPlaybackStatus(streamState& state) {
    android::Mutex::Autolock lock(mStateLock);
    // A failing query leaves the last sample in place: the comparison below then sees no change.
    android::AudioSystem::isStreamActive(static_cast<audio_stream_type_t>(state.streamType),
                                         &state.active, 0);
    if (state.active != state.reportedActive) {
        mCallback(mUserData, state.active, state.streamType);
        ALOGI("State change stream[%d] state[%d]", state.streamType, state.active);
        state.reportedActive = state.active;
    }
}

bool PlaybackStatusNotifier::threadLoop() {
    while (mMonitoring) {
        checkPlaybackStatus(mMusicState);
        checkPlaybackStatus(mAlarmState);
        // Checked under mWakeLock, which stopMonitor() takes to signal: a stop is never missed.
        android::Mutex::Autolock wake(mWakeLock);
        if (mMonitoring) mWake.waitRelative(mWakeLock, kPollingPeriodNs);
    }
    ALOGI("Playback monitor returning");
    return true;  // the exit stopMonitor() requested ends the thread
}

}  // namespace velmar
