// Tells its owner when the device starts or stops playing music, an alarm or text-to-speech.
//
// A thread ("PlaybackStatusNotifer", nice 10) samples the platform's activity of the music and
// alarm streams every 100 ms; the text-to-speech state is not polled but set by the owner through
// notifyTtsState() (it is sampled once when monitoring starts). Each change of any of the three
// states is reported once through the callback.
//
// Threads and locks: startMonitor(), stopMonitor() and notifyTtsState() run on the owner's threads;
// mLock serialises the first two. mStateLock guards the three stream entries and is held during
// every callback, which therefore runs one at a time, in the order the changes were seen: on the
// polling thread (music, alarm) or on the caller's thread (text-to-speech, and the first sample in
// startMonitor()). The callback must not call back into the notifier. mLock is always taken before
// mStateLock, never the other way; the polling thread takes only mStateLock.
#ifndef VELMAR_PLAYBACK_STATUS_NOTIFIER_H
#define VELMAR_PLAYBACK_STATUS_NOTIFIER_H

#include <system/audio.h>
#include <utils/Condition.h>
#include <utils/Mutex.h>
#include <utils/Thread.h>

#include <atomic>
#include <cstdint>

namespace velmar {

// One watched stream.
struct streamState {
    bool reportedActive;  // the state last reported through the callback
    bool active;          // the state last sampled, or last set by notifyTtsState()
    int32_t streamType;   // audio_stream_type_t
};

class PlaybackStatusNotifier : public android::Thread {
  public:
    // Receives (user, the new state, the stream type of the entry that changed).
    typedef void (*Callback)(void* user, bool active, int streamType);

    // Starts nothing. Every entry starts as "reported playing, sampled idle", so the first sample of
    // an idle stream is reported once as not playing.
    PlaybackStatusNotifier(Callback callback, void* user, int ttsStreamType);
    // Stops monitoring (waits for the polling thread).
    ~PlaybackStatusNotifier() override;

    // Samples the text-to-speech entry once, then runs the polling thread. A second call while the
    // thread runs logs an error and leaves it running.
    virtual void startMonitor();
    // Ends the polling thread and waits for it: at most the pass it is in, never the pause.
    virtual void stopMonitor();
    // The text-to-speech state as the owner knows it; reported when it differs from the last
    // report, otherwise logged as redundant.
    virtual void notifyTtsState(bool active);

    // Samples one stream's activity and reports it when it differs from the last report.
    void checkPlaybackStatus(streamState& state);

  private:
    bool threadLoop() override;

    Callback mCallback;
    android::Mutex mLock;       // serialises startMonitor() and stopMonitor()
    android::Mutex mStateLock;  // guards the three entries; held during every callback
    // The polling thread's pause between passes: it waits on mWake under mWakeLock for 100 ms, and
    // stopMonitor() signals it. Taken by nothing else, never together with another lock.
    android::Mutex mWakeLock;
    android::Condition mWake;
    // The polling loop runs while set; written under mLock, read by the polling thread unlocked.
    std::atomic<bool> mMonitoring;
    void* mUserData;
    streamState mMusicState;  // guarded by mStateLock
    streamState mTtsState;    // guarded by mStateLock
    streamState mAlarmState;  // guarded by mStateLock
};

}  // namespace velmar

#endif  // VELMAR_PLAYBACK_STATUS_NOTIFIER_H
