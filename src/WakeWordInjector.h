// Plays a mono WAV file into a callback at the file's own real-time rate, block by block, on a
// thread of its own ("WakeWordInjector", nice -16). One injection at a time; it runs to the end
// of the file.
//
// Threads: doInjectWaveFileInRealTime(), doPushInRealTime() and stopInjection() run on the
// caller's thread and refuse while an injection runs; the callback runs on the injector thread.
// The caller must not start two injections from two threads at the same moment (the injecting
// check is the only guard). isInjecting() may be called from any thread, audio callbacks included:
// it reads one atomic flag and never takes a lock.
//
// State: the media fields are written by the caller before the thread runs and by the injector
// thread while it runs (no lock: never both at once). Every way an injection ends (end of file,
// read error, stopInjection(), a failed start) leaves the injector idle with the source stopped
// and no buffered bytes, so the next injection starts from its own file's first byte.
#ifndef VELMAR_WAKE_WORD_INJECTOR_H
#define VELMAR_WAKE_WORD_INJECTOR_H

#include <media/IMediaSource.h>
#include <utils/StrongPointer.h>
#include <utils/Thread.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <vector>

namespace velmar {

class WakeWordInjector : public android::Thread {
  public:
    // Receives each block: (user, samples, sample count, the injection's playback flag).
    typedef void (*Callback)(void* user, int16_t* samples, size_t sampleCount, bool toPlayback);

    WakeWordInjector(unsigned int samplesPerPush, Callback callback, void* user);
    ~WakeWordInjector() override;

    // Opens path as WAV and starts injecting its first track. BAD_VALUE (-22) while injecting or
    // when the file cannot be opened as WAV or has no track; otherwise doPushInRealTime's result.
    android::status_t doInjectWaveFileInRealTime(const char* path, bool toPlayback);
    // Starts injecting source. ALREADY_EXISTS (-17) while injecting; BAD_VALUE for a null source
    // or a source without format; NAME_NOT_FOUND (-2) without sample rate or channel count;
    // INVALID_OPERATION (-38) for more than one channel or without callback; the source's or the
    // thread's status when they fail to start. Every failure leaves the injector idle.
    android::status_t doPushInRealTime(const android::sp<android::IMediaSource>& source,
                                       bool toPlayback);
    // True from the moment an injection is about to start until it has ended and cleaned up.
    // Lock-free; safe on real-time threads.
    bool isInjecting() const { return mInjecting.load(std::memory_order_seq_cst); }
    // Ends a running injection and waits for its thread; no effect when idle. The only supported
    // way to end an injection early (a bare requestExit() may leave its cleanup to this call).
    void stopInjection();

    // Copies up to bytes bytes of the track into dst, reading buffers as needed. 0 when all were
    // copied; ERROR_END_OF_STREAM with *copied set to what was copied; another status (with
    // *copied untouched) on a read failure.
    android::status_t readMediaBuffer(void* dst, size_t bytes, size_t* copied);
    // Bytes left in the current buffer.
    size_t bytesAvailable();
    // Replaces the current buffer with the next one from the source.
    android::status_t fillMediaBuffer();
    // Stops and drops the source and the buffer; clears the format fields.
    void resetInjectorVariables();

    // Test hook: how the injector waits between blocks. Called on the injector thread with the
    // microseconds to wait; returns the microseconds it really waited. Without one the injector
    // sleeps on the monotonic clock. Set while idle: the next injection's thread uses it.
    using Sleeper = std::function<int64_t(int64_t us)>;
    void setSleeperForTest(Sleeper sleeper) { mSleeper = std::move(sleeper); }

  private:
    bool threadLoop() override;
    // Sleeps for one block's duration, less what earlier sleeps overran.
    void sleepForBlock(uint64_t blockUs);
    // The end of every injection: source stopped and dropped, buffer released, idle again.
    void finishInjection();

    android::sp<android::IMediaSource> mMediaSource;
    android::MediaBufferBase* mMediaBuffer;
    size_t mBufferOffset;
    int32_t mChannelCount;
    int32_t mSampleRate;
    int32_t mBytesPerSample;
    uint32_t mSamplesPerPush;
    Callback mCallback;
    void* mUserData;
    bool mToPlayback;
    // One block, allocated once: the injection loop itself never allocates.
    std::vector<int16_t> mBlock;
    Sleeper mSleeper;  // the test hook above; empty in production
    // How much the previous sleep overran its request, in microseconds (injector thread only).
    int64_t mOversleptUs;
    // Set by the caller just before the thread runs, cleared by finishInjection().
    std::atomic<bool> mInjecting{false};
};

}  // namespace velmar

#endif  // VELMAR_WAKE_WORD_INJECTOR_H
