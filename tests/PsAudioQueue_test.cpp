// The audio queue between pushing threads and a decoder thread: channel 0 of interleaved audio in
// order with its indices, overflow dropped and counted, several producers at once, and a consumer
// woken by a push or a wake.
#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <fstream>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include "AudioQueue.h"
#include "Wait.h"

using norvo_ps::AudioQueue;

namespace {

struct Popped {
    int64_t firstFrame;
    std::vector<int16_t> samples;
};

std::vector<Popped> drain(AudioQueue& queue) {
    std::vector<Popped> cells;
    while (const AudioQueue::Cell* cell = queue.front()) {
        cells.push_back(Popped{cell->firstFrame,
                               std::vector<int16_t>(cell->samples, cell->samples + cell->frames)});
        queue.popFront();
    }
    return cells;
}

TEST(PsAudioQueue, KeepsChannelZeroInOrderWithItsIndicesAndDropsAndCountsWhatDoesNotFit) {
    AudioQueue queue(2);  // 512 frames
    std::vector<int16_t> interleaved;
    for (int frame = 0; frame < 600; ++frame) {
        interleaved.insert(interleaved.end(), {static_cast<int16_t>(frame), -1, -2});
    }
    EXPECT_EQ(512u, queue.push(interleaved.data(), 600, 3, 5000));
    EXPECT_EQ(0u, queue.push(interleaved.data(), 10, 3, 5600));
    EXPECT_EQ(98u, queue.droppedFrames());
    EXPECT_EQ(2u, queue.overflowPushes());
    EXPECT_EQ(512u, queue.queuedFrames());
    // The frames that made it are the first ones, each cell with the index of its first frame.
    std::vector<Popped> cells = drain(queue);
    ASSERT_EQ(2u, cells.size());
    for (size_t c = 0; c < 2; ++c) {
        EXPECT_EQ(5000 + 256 * static_cast<int64_t>(c), cells[c].firstFrame);
        for (size_t i = 0; i < 256; ++i) ASSERT_EQ(256 * c + i, cells[c].samples.at(i));
    }
    // Room comes back.
    EXPECT_EQ(10u, queue.push(interleaved.data(), 10, 3, 5610));
    ASSERT_EQ(1u, drain(queue).size());
}

TEST(PsAudioQueue, ConcurrentProducersLoseAndMixNothing) {
    AudioQueue queue(64);
    constexpr int kProducers = 4;
    constexpr int kPushes = 2000;
    constexpr int kFrames = 100;
    std::atomic<bool> go{false};
    std::atomic<int> finished{0};
    std::vector<std::thread> producers;
    for (int p = 0; p < kProducers; ++p) {
        producers.emplace_back([&, p] {
            while (!go.load()) std::this_thread::yield();
            std::vector<int16_t> samples(kFrames);
            for (int push = 0; push < kPushes; ++push) {
                // Each producer has its own index range; every sample encodes its index.
                int64_t first = (static_cast<int64_t>(p) << 20) + push * kFrames;
                for (int i = 0; i < kFrames; ++i) {
                    samples[i] = static_cast<int16_t>((first + i) * 31 % 30011);
                }
                while (queue.push(samples.data(), kFrames, 1, first) == 0)
                    std::this_thread::yield();
            }
            ++finished;
        });
    }
    std::map<int64_t, int> seen;  // first frame -> frames
    go = true;
    for (;;) {
        bool done = finished.load() == kProducers;
        for (const Popped& cell : drain(queue)) {
            for (size_t i = 0; i < cell.samples.size(); ++i) {
                ASSERT_EQ((cell.firstFrame + static_cast<int64_t>(i)) * 31 % 30011,
                          cell.samples[i]);
            }
            ASSERT_EQ(0u, seen.count(cell.firstFrame));
            seen[cell.firstFrame] = static_cast<int>(cell.samples.size());
        }
        if (done && queue.front() == nullptr) break;
    }
    for (std::thread& t : producers) t.join();
    EXPECT_EQ(static_cast<size_t>(kProducers * kPushes), seen.size());
    EXPECT_EQ(static_cast<uint64_t>(kProducers * kPushes * kFrames), queue.queuedFrames());
}

// Whether the thread sleeps in the kernel (its only way to sleep here is the queue's futex).
bool sleeping(pid_t thread) {
    std::ifstream stat("/proc/self/task/" + std::to_string(thread) + "/stat");
    std::string line;
    std::getline(stat, line);
    return line.size() > line.rfind(')') + 2 && line[line.rfind(')') + 2] == 'S';
}

// A push or a wake ends the wait of a consumer that sleeps, and a wake that comes before the wait
// ends the next one: a lost wake would hold the consumer for the whole minute.
TEST(PsAudioQueue, APushOrAWakeEndsTheWaitWhetherBeforeOrDuringIt) {
    for (bool push : {true, false}) {
        AudioQueue queue(8);
        if (!push) queue.wake();
        std::atomic<pid_t> consumer{0};
        std::atomic<bool> woke{false};
        const auto started = std::chrono::steady_clock::now();
        std::thread thread([&] {
            consumer = static_cast<pid_t>(syscall(SYS_gettid));
            if (!push) queue.waitForData(60000);  // the earlier wake ends this one at once
            queue.waitForData(60000);
            woke = true;
        });
        ASSERT_TRUE(wws_test::waitFor([&] { return consumer != 0 && sleeping(consumer); }));
        int16_t sample = 1;
        if (push) {
            queue.push(&sample, 1, 1, 0);
        } else {
            queue.wake();
        }
        thread.join();
        EXPECT_TRUE(woke.load());
        EXPECT_LT(std::chrono::steady_clock::now() - started, std::chrono::seconds(30)) << push;
    }
}

}  // namespace
