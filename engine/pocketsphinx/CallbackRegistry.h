// The engine's process-wide callback slots, one per kind, and the engine's own log through the
// logging callback.
//
// Calls and removals: call() runs a slot's callback on the calling thread (a decoder thread, or
// the thread of an API call for log lines). set() replaces a slot's callback and, unless it is
// called from inside a callback, returns only once every callback that was already running has
// returned. So after NorvoApi_SetEnumeratedResultCallback(nullptr) returns, no result callback runs
// or will run, and the caller may free whatever its callbacks use. A callback may itself register
// or remove callbacks; that set() does not wait (it would wait for itself).
//
// Never call set() while holding a lock a callback may take: set() waits for running callbacks.
#ifndef NORVO_PS_CALLBACK_REGISTRY_H
#define NORVO_PS_CALLBACK_REGISTRY_H

#include <norvo/NorvoApi.h>

#include <atomic>
#include <mutex>
#include <shared_mutex>

namespace norvo_ps {

// Engine log levels, as NorvoLoggingCallback receives them.
enum LogLevel { kLogError = 2, kLogWarning = 3, kLogInfo = 4, kLogDebug = 5 };

class CallbackRegistry {
  public:
    // The component name the engine's log lines and metrics carry.
    static constexpr const char* kComponent = "norvo-pocketsphinx";

    std::atomic<NorvoLoggingCallback> logging{nullptr};
    std::atomic<NorvoMetricsCallback> metrics{nullptr};
    std::atomic<EnumeratedResult_Callback> enumeratedResult{nullptr};
    std::atomic<LocalCommandEnumeratedResult_Callback> localCommand{nullptr};
    std::atomic<AcousticEventDetectionResult_Callback> acousticEvent{nullptr};
    std::atomic<PresenceDetectionResult_Callback> presence{nullptr};
    std::atomic<NttResult_Callback> nttResult{nullptr};
    std::atomic<NttEndOfSpeech_Callback> nttEndOfSpeech{nullptr};
    std::atomic<Jsondata_Callback> jsondata{nullptr};
    std::atomic<NorvoDmsMetrics_Callback> dmsMetrics{nullptr};
    std::atomic<NorvoDmsQuillanMetrics_Callback> dmsQuillanMetrics{nullptr};
    std::atomic<NorvoFederatedLearning_resultCallback> federatedLearning{nullptr};
    std::atomic<NorvoFederatedLearning_unsecuredResultCallback> federatedLearningUnsecured{nullptr};
    std::atomic<NorvoFederatedLearning_idleDetectionCallback> federatedLearningIdle{nullptr};

    template <typename Fn>
    void set(std::atomic<Fn>& slot, Fn fn) {
        slot.store(fn, std::memory_order_release);
        if (tCallDepth > 0) return;
        // Taking the lock exclusively waits for every call that holds it shared, i.e. every
        // callback that may still be running the previous function.
        std::unique_lock<std::shared_mutex> barrier(mInFlight);
    }

    // Runs the slot's callback, if any, with args. Returns whether there was one.
    template <typename Fn, typename... Args>
    bool call(const std::atomic<Fn>& slot, Args... args) {
        // The outermost call on a thread holds the lock; nested ones (a callback that logs) must
        // not take it again, or a waiting set() could deadlock them.
        std::shared_lock<std::shared_mutex> inFlight(mInFlight, std::defer_lock);
        if (tCallDepth == 0) inFlight.lock();
        Fn fn = slot.load(std::memory_order_acquire);
        if (fn == nullptr) return false;
        ++tCallDepth;
        fn(args...);
        --tCallDepth;
        return true;
    }

    // Formats one line and hands it to the logging callback. Never call on an audio thread.
    void log(int level, const char* format, ...) __attribute__((format(printf, 3, 4)));

  private:
    static thread_local int tCallDepth;
    std::shared_mutex mInFlight;
};

}  // namespace norvo_ps

#endif  // NORVO_PS_CALLBACK_REGISTRY_H
