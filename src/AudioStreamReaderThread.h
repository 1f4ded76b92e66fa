// Pulls 16-bit PCM out of an AudioStream that a binder service publishes and hands each block to a
// callback with the stream's byte position before the block. A failed or empty read closes the
// reader, waits a second and opens it again; a failed position query ends the thread.
//
// Threads: the reader thread ("AudioStreamReader", nice -16) runs the loop and the callback; the
// owner calls start() and stop(). stop() does not wait: it asks the thread to end and releases a
// read in progress, and the thread closes the reader on its way out (join() waits for that).
// mLock guards opening and closing mReader; the loop reads through mReader without it, which is
// safe because only the thread itself (and the destructor, after the thread) closes the reader.
#ifndef VELMAR_AUDIO_STREAM_READER_THREAD_H
#define VELMAR_AUDIO_STREAM_READER_THREAD_H

#include <audiostream/IAudioStreamService.h>
#include <utils/Condition.h>
#include <utils/Mutex.h>
#include <utils/Thread.h>

#include <cstdint>
#include <memory>

namespace velmar {

class AudioStreamReaderThread : public android::Thread {
  public:
    // Receives (user, samples, sample count, byte position before the block). The samples are
    // valid only during the call, which must not block for long: the next read waits for it.
    typedef void (*Callback)(void* user, int16_t* samples, size_t sampleCount,
                             uint32_t bytePosition);

    static constexpr size_t kReadBytes = 1024;

    // Opens nothing.
    AudioStreamReaderThread(const android::sp<IAudioStreamService>& service, Callback callback,
                            void* user);
    // Closes the reader. The owner stops the thread first.
    ~AudioStreamReaderThread() override;

    // Opens the reader and runs the thread. ALREADY_EXISTS while running; the open or run
    // failure otherwise (logged).
    android::status_t start();
    // Asks the thread to end and releases a blocked read; returns at once. 0.
    android::status_t stop();
    // Opens a reader on the service's stream (0 when one is open). INVALID_OPERATION without a
    // service, BAD_VALUE when it publishes no stream, else the stream's status.
    android::status_t openReader();
    void closeReader();

  private:
    bool threadLoop() override;

    android::sp<IAudioStreamService> mAudioStreamService;
    android::sp<AudioStreamReader> mReader;  // opened and closed under mLock
    std::unique_ptr<int16_t[]> mBuffer;      // 2048 bytes; reader thread only
    android::Mutex mLock;
    Callback mCallback;
    void* mUserData;
    int32_t mBytesPerSample;  // set by openReader(), read by the thread it precedes
    // Cut the thread's pause before reopening short when stop() asks it to end.
    android::Mutex mWakeLock;
    android::Condition mWake;
};

}  // namespace velmar

#endif  // VELMAR_AUDIO_STREAM_READER_THREAD_H
