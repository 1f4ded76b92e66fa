// Watches the device's audio signal processor ("audiosignalprocessor" binder service): finds it,
// registers itself as its event listener, keeps a death link on it and registers again after the
// service comes back. Events go to an AspEventHandler, which reports "ASPState" to the owner.
//
// Threads: the monitor thread ("AspEventMonitor", nice 10) only looks the service up and
// registers, then ends; binder threads deliver onEvent() and binderDied(); start(), stop() and
// destroy() run on the owner's thread.
//
// Locks: mLock guards mAspService, mListenerRegistered and mStopped. It is held for the lookup
// (which may wait for the service a short, bounded time), the registration and the death
// handling, so that a death and a registration never interleave. A death that arrives while the
// monitor thread is ending waits for it to end and then starts the next search, so a registration
// is never lost to that moment. binderDied() calls start() with
// it held; start() therefore takes no lock and is called either with mLock held or before the
// monitor thread exists. stop() waits for the monitor thread without holding it.
#ifndef VELMAR_ASP_EVENT_MONITOR_H
#define VELMAR_ASP_EVENT_MONITOR_H

#include <asp/IAudioSignalProcessor.h>
#include <binder/IBinder.h>
#include <utils/Condition.h>
#include <utils/Mutex.h>
#include <utils/Thread.h>

#include "AspEventHandler.h"

namespace velmar {

class AspEventMonitor : public android::Thread,
                        public android::IBinder::DeathRecipient,
                        public asp::BnAudioEventListener {
  public:
    typedef AspEventHandler::Callback Callback;

    // Creates the handler; starts nothing. clock and pollIntervalNs go to the handler (tests).
    AspEventMonitor(Callback callback, void* userData, std::shared_ptr<AspClock> clock = nullptr,
                    int64_t pollIntervalNs = AspEventHandler::kDefaultPollIntervalNs);
    // destroy().
    ~AspEventMonitor() override;

    // Runs the monitor thread (unless it runs, or a service is held: both logged) and starts the
    // handler, which reports 0.
    void start();
    // Ends the monitor thread, unregisters the listener, stops the handler (reporting 0 when a 1
    // is outstanding). A later death of the service no longer restarts the monitor.
    void stop();
    // Unregisters from the service when registered; forgets the service either way.
    void stopListener();
    // The service, with a death link to this monitor; null when one is held already or none is
    // registered (after the lookup's wait).
    android::sp<asp::IAudioSignalProcessor> getAspService();
    // Binder thread: handed to the handler.
    void onEvent(int event, unsigned int size, const void* data) override;
    // Binder thread: forget the service and search again (unless stopped).
    void binderDied(const android::wp<android::IBinder>& who) override;
    // stop(), then the service is released.
    void destroy();

  private:
    bool threadLoop() override;

    android::sp<asp::IAudioSignalProcessor> mAspService;  // guarded by mLock
    android::Mutex mLock;
    bool mListenerRegistered;  // guarded by mLock
    android::sp<AspEventHandler> mEventHandler;
    bool mStopped;  // guarded by mLock
    // Set by the monitor thread, under mLock, when the pass it is in ends the thread: from then on
    // it takes no lock, so a death handled meanwhile may wait for it to end before starting the
    // next search (until it has ended, run() would refuse).
    bool mThreadEnding = false;  // guarded by mLock
    // Cut the monitor thread's pause between lookups short when stop() asks it to end.
    android::Mutex mWakeLock;
    android::Condition mWake;
};

}  // namespace velmar

#endif  // VELMAR_ASP_EVENT_MONITOR_H
