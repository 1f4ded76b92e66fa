// Turns the audio signal processor's raw events into one reported state, "ASPState": 1 when the
// processor signals its condition (event 2 with a 4-byte payload of 0), back to 0 once no such
// signal has come for more than 4 seconds. Its thread ("AspEventHandler", nice 10) ages the state
// once per poll interval (one second).
//
// Threads: onEvent() runs on binder threads and reports 1 there; the handler thread reports the
// timed 0; start() and stop() run on the owner's thread and may report 0. All reports, and the
// word that says since when a 1 is outstanding, are serialised by mReportLock, which is held
// while the callback runs: reports reach the owner one at a time and in order, and once stop()
// has returned no report runs or will run until the next start().
#ifndef VELMAR_ASP_EVENT_HANDLER_H
#define VELMAR_ASP_EVENT_HANDLER_H

#include <utils/Condition.h>
#include <utils/Mutex.h>
#include <utils/Thread.h>

#include <cstdint>
#include <memory>

namespace velmar {

// The wall clock as the handler reads it: milliseconds, computed in 32 bits (it wraps every 49.7
// days). Replaceable so that tests can move time instead of waiting for it.
class AspClock {
  public:
    virtual ~AspClock() = default;
    virtual uint32_t nowMs() = 0;
};

// gettimeofday: tv_sec * 1000 + tv_usec / 1000, in 32-bit arithmetic.
std::shared_ptr<AspClock> wallClockMs();

class AspEventHandler : public android::Thread {
  public:
    // Receives (user, "ASPState", 0 or 1).
    typedef void (*Callback)(void* user, const char* name, int64_t value);

    static constexpr int64_t kDefaultPollIntervalNs = 1000000000;  // one second
    static constexpr uint32_t kHoldMs = 4000;

    // clock null: the wall clock. Starts nothing.
    AspEventHandler(Callback callback, void* user, std::shared_ptr<AspClock> clock = nullptr,
                    int64_t pollIntervalNs = kDefaultPollIntervalNs);
    // stop(), then forgets the callback.
    ~AspEventHandler() override;

    // Reports 0, then runs the thread (a second start logs an error and reports 0 again; the
    // running thread carries on).
    void start();
    // Ends the thread (at once: its wait is cut short) and reports 0 when a 1 is outstanding.
    void stop();
    // One processor event (binder thread). Only event 2 with a 4-byte payload of 0 counts: it
    // reports 1 and restarts the hold, even while a 1 is outstanding.
    virtual void onEvent(int event, unsigned int size, const void* data);

  private:
    bool threadLoop() override;
    // Calls the callback; mReportLock held.
    void report_l(int64_t value);

    Callback mCallback;  // guarded by mReportLock once constructed
    void* mUserData;
    // When the outstanding 1 was reported (clock ms); 0 when none is outstanding.
    uint32_t mAspActiveSinceMs;  // guarded by mReportLock
    android::Mutex mReportLock;
    const std::shared_ptr<AspClock> mClock;
    const int64_t mPollIntervalNs;
    // Cut the thread's wait short when stop() asks it to end.
    android::Mutex mWakeLock;
    android::Condition mWake;
};

}  // namespace velmar

#endif  // VELMAR_ASP_EVENT_HANDLER_H
