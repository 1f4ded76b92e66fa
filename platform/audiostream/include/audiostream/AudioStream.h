/*
 * Host implementation of the audio stream library: a shared PCM stream with one writer and any
 * number of readers, addressed by 32-bit byte positions that wrap around.
 *
 * The stream keeps the most recent capacity() bytes. The writer never blocks, never allocates and
 * takes no lock, so it can be used on a real-time audio callback. A read returns bytes starting
 * exactly at the reader's position, or none: when the stream no longer holds the bytes at that
 * position (the writer lapped the reader) or never held them (a position before the first byte
 * written), the read fails with NOT_ENOUGH_DATA and the reader stays where it is, so that a caller
 * asking for one blob at (position, size) never receives another blob's bytes. A reader that fell
 * behind moves on with setPosition().
 *
 * Threads: one thread at a time may write through the writer; each reader is used by one thread at
 * a time; the writer and the readers may run concurrently on different threads.
 */
#ifndef VELMAR_AUDIOSTREAM_AUDIO_STREAM_H
#define VELMAR_AUDIOSTREAM_AUDIO_STREAM_H

#include <sys/types.h>
#include <system/audio.h>
#include <utils/Errors.h>
#include <utils/RefBase.h>
#include <utils/StrongPointer.h>

#include <atomic>
#include <cstdint>
#include <memory>

namespace velmar {

class AudioStreamReader;
class AudioStreamWriter;

// The stream's format description; the first member is the sample format.
struct AudioStreamFormat {
    audio_format_t format;
    uint32_t sampleRate;
    uint32_t channelCount;
};

class AudioStream : public virtual android::RefBase {
  public:
    static constexpr size_t kDefaultCapacityBytes = 1u << 20;

    // capacityBytes is rounded up to a power of two (at least 8, at most 1 GiB).
    explicit AudioStream(const AudioStreamFormat& format,
                         size_t capacityBytes = kDefaultCapacityBytes);
    ~AudioStream() override;

    const AudioStreamFormat& getFormat() const { return mFormat; }
    size_t capacity() const { return mMask + 1u; }
    // Position one past the last byte written so far.
    uint32_t writePosition() const { return mWritePos.load(std::memory_order_acquire); }

    // Opens the stream's writer. INVALID_OPERATION while another writer is open.
    android::status_t openWriter(android::sp<AudioStreamWriter>& writer);
    // Opens a reader positioned at the current write position. Always NO_ERROR.
    android::status_t openReader(android::sp<AudioStreamReader>& reader);
    // Host only: the stream's owner withdraws it. Every reader, open or opened later, fails its
    // position queries and reads with DEAD_OBJECT; readers waiting for data return.
    void invalidate();

  private:
    friend class AudioStreamReader;
    friend class AudioStreamWriter;

    void store(uint32_t position, const uint8_t* data, size_t bytes);
    void load(uint32_t position, uint8_t* data, size_t bytes) const;
    void publish(uint32_t end, size_t bytes);
    void wakeReaders();
    void closeWriter();

    const AudioStreamFormat mFormat;
    const uint32_t mMask;
    std::unique_ptr<uint64_t[]> mWords;    // ring storage, accessed only through relaxed atomics
    std::atomic<uint32_t> mWritePos{0};    // published end of the written data
    std::atomic<uint32_t> mReservePos{0};  // end of the write in progress (>= mWritePos)
    // Bytes the stream holds: min(capacity, all bytes ever written). Readers never get bytes
    // from before the first write, whatever position they ask for.
    std::atomic<uint32_t> mHeld{0};
    std::atomic<bool> mWriterOpen{false};
    std::atomic<bool> mInvalid{false};
    std::atomic<uint32_t> mWakeSequence{0};  // futex word for blocked readers
    std::atomic<int> mWaiters{0};
};

class AudioStreamWriter : public virtual android::RefBase {
  public:
    ~AudioStreamWriter() override;

    // Appends bytes to the stream. Returns the number of bytes written (all of them), or
    // INVALID_OPERATION after close(), or BAD_VALUE for a null buffer with a non-zero size.
    // Real-time safe: no allocation, no lock, no blocking.
    ssize_t write(const void* data, size_t bytes);
    // Position at which the next write starts. BAD_VALUE for a null pointer.
    android::status_t getPosition(uint32_t* position) const;
    // Closes the writer so that another can be opened. INVALID_OPERATION when already closed.
    android::status_t close();

  private:
    friend class AudioStream;
    explicit AudioStreamWriter(const android::sp<AudioStream>& stream);

    const android::sp<AudioStream> mStream;
    std::atomic<bool> mClosed{false};
};

class AudioStreamReader : public virtual android::RefBase {
  public:
    // Reads up to bytes bytes starting at the reader's position and advances it past them. With
    // timeoutMs 0 the call does not wait; with a positive value it waits up to that long for data;
    // with a negative value it waits until data arrives or unblock() is called. Returns the number
    // of bytes read (fewer than asked when fewer are written so far), 0 when none was available,
    // NOT_ENOUGH_DATA when the stream no longer (or never) held the byte at the position (the
    // position is kept), INVALID_OPERATION after close(), DEAD_OBJECT once the stream is
    // invalidated, BAD_VALUE for a null buffer.
    ssize_t read(void* buffer, size_t bytes, int timeoutMs = 0);
    // INVALID_OPERATION after close(), DEAD_OBJECT once the stream is invalidated.
    android::status_t getPosition(uint32_t* position) const;
    // Moves the read position. A position ahead of the writer waits for the writer to reach it;
    // one the stream does not hold makes the next read fail with NOT_ENOUGH_DATA.
    android::status_t setPosition(uint32_t position);
    // Bytes that a read from the current position can return now (0 when the stream does not hold
    // the position's byte).
    size_t available() const;
    // Makes a read waiting on another thread return, and every later read return without waiting.
    void unblock();
    android::status_t close();

  private:
    friend class AudioStream;
    AudioStreamReader(const android::sp<AudioStream>& stream, uint32_t position);

    const android::sp<AudioStream> mStream;
    std::atomic<uint32_t> mPosition;
    std::atomic<bool> mUnblocked{false};
    std::atomic<bool> mClosed{false};
};

}  // namespace velmar

#endif  // VELMAR_AUDIOSTREAM_AUDIO_STREAM_H
