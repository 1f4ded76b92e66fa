// Connects to the "playbackstream" binder service (an IAudioStreamService publishing the device's
// playback audio), keeps a death link on it, and runs an AudioStreamReaderThread on it so that
// every block of playback audio reaches the callback. When the service dies the monitor drops the
// reader and searches for the service again.
//
// States: idle -> startMonitor() -> searching (the monitor thread "PlaybackMonitor", nice 10, looks
// the service up once a second plus the lookup's own wait) -> connected (thread ended, reader
// running) -> death -> searching ... ; stopMonitor() -> idle from any state.
//
// Threads and locks: startMonitor() and stopMonitor() run on the owner's thread and take mLock;
// binderDied() arrives on a binder thread and holds mServiceLock, then takes mLock to search
// again; no path takes them the other way, and stopMonitor() waits for the monitor thread (which
// may need mServiceLock) holding neither. mServiceLock also covers the lookup and the
// connection on the monitor thread. The callback runs on the reader thread; once stopMonitor()
// has returned it runs no more (the reader thread has ended) and a later death of the service
// starts no new search (the death link is removed).
#ifndef VELMAR_PLAYBACK_MONITOR_H
#define VELMAR_PLAYBACK_MONITOR_H

#include <audiostream/IAudioStreamService.h>
#include <binder/IBinder.h>
#include <utils/Condition.h>
#include <utils/Mutex.h>
#include <utils/Thread.h>

#include <atomic>

#include "AudioStreamReaderThread.h"

namespace velmar {

class PlaybackMonitor : public android::Thread, public android::IBinder::DeathRecipient {
  public:
    typedef AudioStreamReaderThread::Callback Callback;

    // Starts nothing.
    PlaybackMonitor(Callback callback, void* user);
    // stopMonitor().
    ~PlaybackMonitor() override;

    // Starts searching (logged and ignored while searching or connected).
    void startMonitor();
    // Ends the search or the connection: the monitor thread and the reader thread have ended and
    // the service is forgotten (and no longer watched) when it returns.
    void stopMonitor();
    // The service, linked for death; null when one is held already or none is registered.
    android::sp<IAudioStreamService> getService();
    void onServiceConnected();
    void onServiceDisconnected();
    // Forgets the service and stops the reader (waiting for its thread). Caller holds
    // mServiceLock.
    void resetVariables();
    // Binder thread.
    void binderDied(const android::wp<android::IBinder>& who) override;

  private:
    bool threadLoop() override;
    // The one way of starting: logs "startMonitor()", marks the monitor started and runs the
    // monitor thread unless it runs or a service is held (both logged). Caller holds mLock.
    void startMonitor_l();

    android::sp<IAudioStreamService> mAudioStreamService;  // guarded by mServiceLock
    android::Mutex mLock;
    android::Mutex mServiceLock;
    android::sp<AudioStreamReaderThread> mReaderThread;  // guarded by mServiceLock
    Callback mCallback;
    void* mUserData;
    android::sp<android::IBinder> mServiceBinder;  // guarded by mServiceLock; for the death link
    std::atomic<bool> mConnected{false};  // mAudioStreamService is set (read under mLock)
    // Written under mLock. A death starts a new search unless the monitor was stopped (its death
    // link is gone then too); a monitor never started, used only through getService(), searches.
    enum class RunState { kNeverStarted, kStarted, kStopped };
    std::atomic<RunState> mRunState{RunState::kNeverStarted};
    // Set by the monitor thread, under mServiceLock, in the pass that connects and so ends the
    // thread; a death handled meanwhile waits for the thread to end before searching again.
    std::atomic<bool> mThreadEnding{false};
    // Cut the monitor thread's pause between lookups short when stopMonitor() asks it to end.
    android::Mutex mWakeLock;
    android::Condition mWake;
};

}  // namespace velmar

#endif  // VELMAR_PLAYBACK_MONITOR_H
