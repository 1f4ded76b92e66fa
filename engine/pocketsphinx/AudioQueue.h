// The bounded queue between the threads that push audio to a decoder and the decoder's own thread.
//
// Producers (push, wake) may be any threads, real-time audio threads included, several at once:
// they never block, never allocate and never take a lock. The queue is a fixed ring of cells
// allocated at construction; a push copies channel 0 of its interleaved frames into as many cells
// as it needs and returns how many frames found room. Frames that do not fit are dropped and
// counted, never waited for. A producer wakes the consumer through a futex only when the consumer
// sleeps.
//
// The consumer (front, popFront, waitForData) is one thread, the decoder's.
#ifndef NORVO_PS_AUDIO_QUEUE_H
#define NORVO_PS_AUDIO_QUEUE_H

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>

namespace norvo_ps {

class AudioQueue {
  public:
    static constexpr size_t kCellFrames = 256;  // 16 ms at 16 kHz

    struct Cell {
        std::atomic<uint64_t> sequence{0};
        int64_t firstFrame = 0;  // index of samples[0] on the pusher's scale
        uint32_t frames = 0;
        int16_t samples[kCellFrames];
    };

    // cellCount is rounded up to a power of two.
    explicit AudioQueue(size_t cellCount);
    AudioQueue(const AudioQueue&) = delete;
    AudioQueue& operator=(const AudioQueue&) = delete;

    // Producer: queues channel 0 of frames interleaved frames of channels samples each, the first
    // with index firstFrame. Returns the frames that found room (the first ones); the rest were
    // dropped and are counted in droppedFrames().
    size_t push(const int16_t* interleaved, size_t frames, uint32_t channels, int64_t firstFrame);
    // Wakes the consumer: ends its current waitForData(), or its next one if it is not waiting.
    // Any thread.
    void wake();

    // Consumer: the oldest complete cell, or null when there is none.
    const Cell* front();
    // Consumer: releases the cell front() returned.
    void popFront();
    // Consumer: sleeps until a cell is queued, wake() is called (or was, since the last wait) or
    // timeoutMs passes.
    void waitForData(int timeoutMs);

    // Cells claimed by producers so far (a cell's position in the queue is its claim number).
    uint64_t claimed() const { return mTail.load(std::memory_order_acquire); }
    // Cells the consumer has popped.
    uint64_t popped() const { return mHead.load(std::memory_order_acquire); }
    uint64_t queuedFrames() const { return mQueuedFrames.load(std::memory_order_relaxed); }
    uint64_t droppedFrames() const { return mDroppedFrames.load(std::memory_order_relaxed); }
    uint64_t overflowPushes() const { return mOverflowPushes.load(std::memory_order_relaxed); }
    size_t capacityFrames() const { return (mMask + 1) * kCellFrames; }

  private:
    void signal();

    std::unique_ptr<Cell[]> mCells;
    size_t mMask;
    alignas(64) std::atomic<uint64_t> mTail{0};    // next cell to claim (producers)
    alignas(64) std::atomic<uint64_t> mHead{0};    // next cell to pop (consumer)
    alignas(64) std::atomic<uint32_t> mSignal{0};  // futex word: bumped on every push and wake
    std::atomic<bool> mSleeping{false};
    std::atomic<bool> mWakePending{false};  // set by wake(), taken by waitForData()
    std::atomic<uint64_t> mQueuedFrames{0};
    std::atomic<uint64_t> mDroppedFrames{0};
    std::atomic<uint64_t> mOverflowPushes{0};
};

}  // namespace norvo_ps

#endif  // NORVO_PS_AUDIO_QUEUE_H
