#include "AudioQueue.h"

#include <linux/futex.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>

namespace norvo_ps {

static_assert(sizeof(std::atomic<uint32_t>) == sizeof(uint32_t), "the futex word is the atomic");

namespace {

size_t roundUpToPowerOfTwo(size_t n) {
    size_t power = 1;
    while (power < n) power <<= 1;
    return power;
}

}  // namespace

AudioQueue::AudioQueue(size_t cellCount)
    : mCells(new Cell[roundUpToPowerOfTwo(std::max<size_t>(cellCount, 2))]),
      mMask(roundUpToPowerOfTwo(std::max<size_t>(cellCount, 2)) - 1) {
    // A cell is free for the producer claiming position p when its sequence equals p, and ready
    // for the consumer when it equals p + 1 (a bounded multi-producer queue after D. Vyukov).
    for (size_t i = 0; i <= mMask; ++i) mCells[i].sequence.store(i, std::memory_order_relaxed);
}

size_t AudioQueue::push(const int16_t* interleaved, size_t frames, uint32_t channels,
                        int64_t firstFrame) {
    size_t done = 0;
    while (done < frames) {
        uint64_t position = mTail.load(std::memory_order_relaxed);
        Cell* cell = nullptr;
        for (;;) {
            cell = &mCells[position & mMask];
            uint64_t sequence = cell->sequence.load(std::memory_order_acquire);
            int64_t lag = static_cast<int64_t>(sequence - position);
            if (lag == 0) {
                if (mTail.compare_exchange_weak(position, position + 1,
                                                std::memory_order_relaxed)) {
                    break;
                }
            } else if (lag < 0) {
                cell = nullptr;  // the consumer has not released this cell yet: full
                break;
            } else {
                position = mTail.load(std::memory_order_relaxed);
            }
        }
        if (cell == nullptr) break;
        size_t count = std::min(kCellFrames, frames - done);
        const int16_t* source = interleaved + done * channels;
        if (channels == 1) {
            memcpy(cell->samples, source, count * sizeof(int16_t));
        } else {
            // Detection listens to the first channel only.
            for (size_t i = 0; i < count; ++i) cell->samples[i] = source[i * channels];
        }
        cell->firstFrame = firstFrame + static_cast<int64_t>(done);
        cell->frames = static_cast<uint32_t>(count);
        cell->sequence.store(position + 1, std::memory_order_release);
        done += count;
    }
    mQueuedFrames.fetch_add(done, std::memory_order_relaxed);
    if (done < frames) {
        mDroppedFrames.fetch_add(frames - done, std::memory_order_relaxed);
        mOverflowPushes.fetch_add(1, std::memory_order_relaxed);
    }
    if (done > 0) signal();
    return done;
}

void AudioQueue::wake() {
    mWakePending.store(true, std::memory_order_seq_cst);
    signal();
}

void AudioQueue::signal() {
    mSignal.fetch_add(1, std::memory_order_seq_cst);
    // The system call is made only when the consumer sleeps (or is about to): the common push
    // costs two atomic operations.
    if (mSleeping.load(std::memory_order_seq_cst)) {
        syscall(SYS_futex, reinterpret_cast<uint32_t*>(&mSignal), FUTEX_WAKE_PRIVATE, 1, nullptr,
                nullptr, 0);
    }
}

const AudioQueue::Cell* AudioQueue::front() {
    uint64_t position = mHead.load(std::memory_order_relaxed);
    Cell* cell = &mCells[position & mMask];
    if (cell->sequence.load(std::memory_order_acquire) != position + 1) return nullptr;
    return cell;
}

void AudioQueue::popFront() {
    uint64_t position = mHead.load(std::memory_order_relaxed);
    mCells[position & mMask].sequence.store(position + mMask + 1, std::memory_order_release);
    mHead.store(position + 1, std::memory_order_release);
}

void AudioQueue::waitForData(int timeoutMs) {
    // A wake that came while the consumer was busy elsewhere ends this wait: it is not lost.
    if (mWakePending.exchange(false, std::memory_order_seq_cst)) return;
    uint32_t seen = mSignal.load(std::memory_order_seq_cst);
    if (front() != nullptr) return;
    mSleeping.store(true, std::memory_order_seq_cst);
    // A producer that signalled after `seen` was read either changed the word (the kernel then
    // refuses to sleep) or saw mSleeping and wakes us.
    if (mSignal.load(std::memory_order_seq_cst) == seen) {
        timespec timeout{timeoutMs / 1000, (timeoutMs % 1000) * 1000000L};
        syscall(SYS_futex, reinterpret_cast<uint32_t*>(&mSignal), FUTEX_WAIT_PRIVATE, seen,
                &timeout, nullptr, 0);
    }
    mSleeping.store(false, std::memory_order_relaxed);
    mWakePending.store(false, std::memory_order_relaxed);
}

}  // namespace norvo_ps
