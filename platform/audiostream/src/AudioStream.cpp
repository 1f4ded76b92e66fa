#include <audiostream/AudioStream.h>

#include <linux/futex.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <cstring>

namespace velmar {

using android::BAD_VALUE;
using android::INVALID_OPERATION;
using android::NO_ERROR;
using android::NOT_ENOUGH_DATA;
using android::sp;
using android::status_t;

namespace {

uint32_t roundedCapacity(size_t requested) {
    size_t capacity = 8;
    while (capacity < requested && capacity < (size_t{1} << 30)) capacity <<= 1;
    return static_cast<uint32_t>(capacity);
}

// Byte distance from a to b on the wrapping 32-bit position scale, signed.
int64_t distance(uint32_t from, uint32_t to) {
    return static_cast<int32_t>(to - from);
}

void futexWait(std::atomic<uint32_t>* word, uint32_t expected, int timeoutMs) {
    timespec timeout{timeoutMs / 1000, (timeoutMs % 1000) * 1000000L};
    syscall(SYS_futex, reinterpret_cast<uint32_t*>(word), FUTEX_WAIT_PRIVATE, expected,
            timeoutMs < 0 ? nullptr : &timeout, nullptr, 0);
}

void futexWakeAll(std::atomic<uint32_t>* word) {
    syscall(SYS_futex, reinterpret_cast<uint32_t*>(word), FUTEX_WAKE_PRIVATE, INT_MAX, nullptr,
            nullptr, 0);
}

int64_t monotonicMs() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec * 1000LL + now.tv_nsec / 1000000;
}

}  // namespace

// ---- AudioStream -------------------------------------------------------------------------------

AudioStream::AudioStream(const AudioStreamFormat& format, size_t capacityBytes)
    : mFormat(format),
      mMask(roundedCapacity(capacityBytes) - 1u),
      mWords(new uint64_t[(mMask + 1u) / 8]()) {}

AudioStream::~AudioStream() = default;

status_t AudioStream::openWriter(sp<AudioStreamWriter>& writer) {
    bool expected = false;
    if (!mWriterOpen.compare_exchange_strong(expected, true)) return INVALID_OPERATION;
    writer = new AudioStreamWriter(this);
    return NO_ERROR;
}

status_t AudioStream::openReader(sp<AudioStreamReader>& reader) {
    reader = new AudioStreamReader(this, writePosition());
    return NO_ERROR;
}

// Readers copy while the writer may be overwriting the same ring bytes; every access goes through
// atomics so the overlap is well defined, and readers discard what the writer's reservation says
// may have been overwritten during their copy. Ring stores are releases and ring loads acquires:
// a reader that sees a byte of a newer write therefore also sees that write's reservation.
void AudioStream::store(uint32_t position, const uint8_t* data, size_t bytes) {
    uint8_t* base = reinterpret_cast<uint8_t*>(mWords.get());
    size_t i = 0;
    while (i < bytes) {
        uint32_t index = (position + static_cast<uint32_t>(i)) & mMask;
        if ((index & 7u) == 0 && bytes - i >= 8) {
            uint64_t word;
            memcpy(&word, data + i, 8);
            __atomic_store_n(&mWords[index / 8], word, __ATOMIC_RELEASE);
            i += 8;
        } else {
            __atomic_store_n(base + index, data[i], __ATOMIC_RELEASE);
            i += 1;
        }
    }
}

void AudioStream::load(uint32_t position, uint8_t* data, size_t bytes) const {
    const uint8_t* base = reinterpret_cast<const uint8_t*>(mWords.get());
    size_t i = 0;
    while (i < bytes) {
        uint32_t index = (position + static_cast<uint32_t>(i)) & mMask;
        if ((index & 7u) == 0 && bytes - i >= 8) {
            uint64_t word = __atomic_load_n(&mWords[index / 8], __ATOMIC_ACQUIRE);
            memcpy(data + i, &word, 8);
            i += 8;
        } else {
            data[i] = __atomic_load_n(base + index, __ATOMIC_ACQUIRE);
            i += 1;
        }
    }
}

void AudioStream::publish(uint32_t end, size_t bytes) {
    uint32_t held = mHeld.load(std::memory_order_relaxed);
    if (held < mMask + 1u) {
        mHeld.store(static_cast<uint32_t>(std::min<uint64_t>(uint64_t{held} + bytes, mMask + 1u)),
                    std::memory_order_relaxed);
    }
    mWritePos.store(end, std::memory_order_seq_cst);
    // Only a reader that announced itself can be asleep; the seq_cst pair (this load, the
    // reader's increment before it re-checks the position) rules out a missed wake-up.
    if (mWaiters.load(std::memory_order_seq_cst) > 0) wakeReaders();
}

void AudioStream::invalidate() {
    mInvalid.store(true);
    wakeReaders();
}

void AudioStream::wakeReaders() {
    mWakeSequence.fetch_add(1, std::memory_order_seq_cst);
    futexWakeAll(&mWakeSequence);
}

void AudioStream::closeWriter() {
    mWriterOpen.store(false);
}

// ---- AudioStreamWriter -------------------------------------------------------------------------

AudioStreamWriter::AudioStreamWriter(const sp<AudioStream>& stream) : mStream(stream) {}

AudioStreamWriter::~AudioStreamWriter() {
    close();
}

ssize_t AudioStreamWriter::write(const void* data, size_t bytes) {
    if (mClosed.load(std::memory_order_relaxed)) return INVALID_OPERATION;
    if (bytes == 0) return 0;
    if (data == nullptr) return BAD_VALUE;
    AudioStream& stream = *mStream;
    uint32_t start = stream.mWritePos.load(std::memory_order_relaxed);
    uint32_t end = start + static_cast<uint32_t>(bytes);
    stream.mReservePos.store(end, std::memory_order_relaxed);
    // Bytes beyond the last capacity() would be overwritten within this same write: skip them.
    size_t skipped = bytes > stream.capacity() ? bytes - stream.capacity() : 0;
    stream.store(start + static_cast<uint32_t>(skipped),
                 static_cast<const uint8_t*>(data) + skipped, bytes - skipped);
    stream.publish(end, bytes);
    return static_cast<ssize_t>(bytes);
}

status_t AudioStreamWriter::getPosition(uint32_t* position) const {
    if (position == nullptr) return BAD_VALUE;
    if (mClosed.load()) return INVALID_OPERATION;
    *position = mStream->mWritePos.load(std::memory_order_relaxed);
    return NO_ERROR;
}

status_t AudioStreamWriter::close() {
    if (mClosed.exchange(true)) return INVALID_OPERATION;
    mStream->closeWriter();
    return NO_ERROR;
}

// ---- AudioStreamReader -------------------------------------------------------------------------

AudioStreamReader::AudioStreamReader(const sp<AudioStream>& stream, uint32_t position)
    : mStream(stream), mPosition(position) {}

size_t AudioStreamReader::available() const {
    uint32_t written = mStream->writePosition();
    int64_t ahead = distance(mPosition.load(), written);
    if (ahead <= 0 || ahead > static_cast<int64_t>(mStream->mHeld.load())) return 0;
    return static_cast<size_t>(ahead);
}

ssize_t AudioStreamReader::read(void* buffer, size_t bytes, int timeoutMs) {
    if (mClosed.load()) return INVALID_OPERATION;
    if (bytes == 0) return 0;
    if (buffer == nullptr) return BAD_VALUE;
    AudioStream& stream = *mStream;
    if (stream.mInvalid.load()) return android::DEAD_OBJECT;
    const int64_t capacity = static_cast<int64_t>(stream.capacity());
    const int64_t deadline = timeoutMs > 0 ? monotonicMs() + timeoutMs : 0;
    for (;;) {
        const uint32_t start = mPosition.load(std::memory_order_relaxed);
        const uint32_t written = stream.mWritePos.load(std::memory_order_acquire);
        const int64_t ahead = distance(start, written);
        // mHeld is published before mWritePos (acquired above), so it covers `written`.
        const int64_t held = stream.mHeld.load(std::memory_order_relaxed);
        if (ahead > 0) {
            // Bytes from further back than the stream holds were overwritten, or never written.
            if (ahead > held) return NOT_ENOUGH_DATA;
            const size_t count = std::min(bytes, static_cast<size_t>(ahead));
            stream.load(start, static_cast<uint8_t*>(buffer), count);
            // The writer may have lapped the start of what was just copied; those bytes belong to
            // a later write and must not be handed out as this position's.
            const uint32_t oldestIntact =
                    stream.mReservePos.load(std::memory_order_relaxed) - static_cast<uint32_t>(capacity);
            if (distance(start, oldestIntact) > 0) return NOT_ENOUGH_DATA;
            mPosition.store(start + static_cast<uint32_t>(count), std::memory_order_relaxed);
            return static_cast<ssize_t>(count);
        }
        if (stream.mInvalid.load()) return android::DEAD_OBJECT;
        if (timeoutMs == 0 || mUnblocked.load() || mClosed.load()) return 0;
        int waitMs = -1;
        if (timeoutMs > 0) {
            int64_t left = deadline - monotonicMs();
            if (left <= 0) return 0;
            waitMs = static_cast<int>(left);
        }
        stream.mWaiters.fetch_add(1, std::memory_order_seq_cst);
        uint32_t sequence = stream.mWakeSequence.load(std::memory_order_seq_cst);
        if (stream.mWritePos.load(std::memory_order_seq_cst) == written && !mUnblocked.load() &&
            !stream.mInvalid.load()) {
            futexWait(&stream.mWakeSequence, sequence, waitMs);
        }
        stream.mWaiters.fetch_sub(1, std::memory_order_seq_cst);
    }
}

status_t AudioStreamReader::getPosition(uint32_t* position) const {
    if (position == nullptr) return BAD_VALUE;
    if (mClosed.load()) return INVALID_OPERATION;
    if (mStream->mInvalid.load()) return android::DEAD_OBJECT;
    *position = mPosition.load();
    return NO_ERROR;
}

status_t AudioStreamReader::setPosition(uint32_t position) {
    if (mClosed.load()) return INVALID_OPERATION;
    mPosition.store(position);
    return NO_ERROR;
}

void AudioStreamReader::unblock() {
    mUnblocked.store(true);
    mStream->wakeReaders();
}

status_t AudioStreamReader::close() {
    if (mClosed.exchange(true)) return INVALID_OPERATION;
    mStream->wakeReaders();
    return NO_ERROR;
}

}  // namespace velmar
