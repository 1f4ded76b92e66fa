// The playback stream monitor and its reader thread: blocks with their positions, the reader's
// recovery and ends, and the monitor's search, connection, death and stop.
#include <audiostream/IAudioStreamService.h>
#include <binder/HostBinder.h>
#include <binder/IServiceManager.h>
#include <gtest/gtest.h>

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <thread>
#include <vector>

#include "AudioStreamReaderThread.h"
#include "LogCapture.h"
#include "PlaybackMonitor.h"
#include "Threads.h"
#include "Wait.h"

using android::sp;
using velmar::AudioStream;
using velmar::AudioStreamReaderThread;
using velmar::PlaybackMonitor;
namespace host = android::host;

namespace {

constexpr const char* kMonitorTag = "PlaybackMonitor";

struct Block {
    std::vector<int16_t> samples;
    uint32_t position;
};

class Blocks {
  public:
    static void callback(void* user, int16_t* samples, size_t count, uint32_t position) {
        auto* self = static_cast<Blocks*>(user);
        std::lock_guard<std::mutex> guard(self->mLock);
        self->mBlocks.push_back(Block{std::vector<int16_t>(samples, samples + count), position});
    }
    std::vector<Block> all() {
        std::lock_guard<std::mutex> guard(mLock);
        return mBlocks;
    }
    size_t count() { return all().size(); }
    size_t samples() {
        size_t total = 0;
        for (const Block& block : all()) total += block.samples.size();
        return total;
    }

  private:
    std::mutex mLock;
    std::vector<Block> mBlocks;
};

sp<AudioStream> makeStream(audio_format_t format = AUDIO_FORMAT_PCM_16_BIT) {
    return new AudioStream(velmar::AudioStreamFormat{format, 16000, 1}, 1u << 16);
}

// A published stream with its writer.
struct Published {
    explicit Published(audio_format_t format = AUDIO_FORMAT_PCM_16_BIT) {
        stream = makeStream(format);
        stream->openWriter(writer);
        service = new velmar::host::AudioStreamService();
        service->setAudioStream(stream);
    }
    void write(size_t bytes, int16_t value = 7) {
        std::vector<int16_t> samples((bytes + 1) / 2, value);
        writer->write(samples.data(), bytes);
    }
    sp<AudioStream> stream;
    sp<velmar::AudioStreamWriter> writer;
    sp<velmar::host::AudioStreamService> service;
};

class AudioStreamReaderThreadTest : public testing::Test {
  protected:
    void TearDown() override {
        reader->stop();
        reader->join();
    }
    wws_test::LogCapture log;
    Blocks blocks;
    Published published;
    sp<AudioStreamReaderThread> reader =
            new AudioStreamReaderThread(published.service, Blocks::callback, &blocks);
};

class PlaybackMonitorTest : public testing::Test {
  protected:
    void SetUp() override {
        host::resetServices();
        host::setServiceLookupWaitMs(2000);
    }
    void TearDown() override {
        monitor->stopMonitor();
        host::flushBinderThread();
        host::resetServices();
        host::setServiceLookupWaitMs(1000);
    }
    void publish(const Published& which) {
        android::defaultServiceManager()->addService(android::String16("playbackstream"),
                                                     which.service);
    }
    // Writes blocks until one reaches the callback (a reader opened meanwhile starts at the end).
    // A block every 16 polls is about real time: a reader that a busy machine starves for a while
    // is not lapped by the writer, which would cost it a second's pause each time.
    bool flows(Published& which) {
        const size_t before = blocks.samples();
        int polls = 0;
        return wws_test::waitFor(
                [&] {
                    if (polls++ % 16 == 0) which.write(512);
                    return blocks.samples() > before;
                },
                std::chrono::seconds(15));
    }
    wws_test::LogCapture log;
    Blocks blocks;
    sp<PlaybackMonitor> monitor = new PlaybackMonitor(Blocks::callback, &blocks);
};

}  // namespace

TEST_F(AudioStreamReaderThreadTest, BlocksArriveWithThePositionBeforeEach) {
    ASSERT_EQ(0, reader->start());
    EXPECT_EQ(android::ALREADY_EXISTS, reader->start());
    EXPECT_TRUE(wws_test::waitFor([] { return wws_test::threadsNamed("AudioStreamRead") == 1; }));
    published.write(3072);
    ASSERT_TRUE(wws_test::waitFor([&] { return blocks.samples() == 1536; }));
    uint32_t expected = 0;
    for (const Block& block : blocks.all()) {
        EXPECT_EQ(expected, block.position);
        expected += static_cast<uint32_t>(block.samples.size() * 2);
    }
    // An odd byte is not a sample.
    const size_t before = blocks.count();
    published.write(1023);
    ASSERT_TRUE(wws_test::waitFor([&] { return blocks.count() == before + 1; }));
    EXPECT_EQ(511u, blocks.all().back().samples.size());
    EXPECT_EQ(3072u, blocks.all().back().position);
}

TEST_F(PlaybackMonitorTest, SearchesConnectsAndSurvivesTheServicesDeath) {
    host::setServiceLookupWaitMs(20);
    monitor->startMonitor();
    monitor->startMonitor();
    EXPECT_TRUE(log.contains(ANDROID_LOG_ERROR, kMonitorTag, "PlaybackMonitor has already started"));
    // Absent, the service is looked up again after a pause of a second: a monitor that looked
    // it up in a tight loop would make some twenty lookups of 20 ms in the next 400 ms.
    const std::string absent = "cannot get service <playbackstream> from defaultServiceManager";
    ASSERT_TRUE(wws_test::waitFor([&] { return log.count(absent) >= 1; }));
    const size_t misses = log.count(absent);
    EXPECT_FALSE(wws_test::waitFor([&] { return log.count(absent) > misses + 2; },
                                   std::chrono::milliseconds(400)));

    Published first;
    publish(first);
    ASSERT_TRUE(flows(first));
    // Connected: the monitor thread has ended, the reader runs.
    EXPECT_TRUE(wws_test::waitFor([] { return wws_test::threadsNamed("PlaybackMonitor") == 0; }));
    monitor->startMonitor();
    EXPECT_TRUE(log.contains(ANDROID_LOG_ERROR, kMonitorTag, "PlaybackMonitor has already got"));

    ASSERT_TRUE(host::killService("playbackstream"));
    // The old stream no longer reaches the callback; the monitor searches again.
    EXPECT_TRUE(wws_test::waitFor([] { return wws_test::threadsNamed("AudioStreamRead") == 0; }));
    const size_t before = blocks.samples();
    first.write(512);
    EXPECT_FALSE(wws_test::waitFor([&] { return blocks.samples() > before; },
                                   std::chrono::milliseconds(100)));
    Published second;
    publish(second);
    EXPECT_TRUE(flows(second));
}

// A block being handed over when the monitor stops is the last: stopMonitor() waits for it, the
// reader ends, and a later death of the service starts nothing.
TEST_F(PlaybackMonitorTest, StopWaitsForABlockInTheCallbackThenIgnoresADeath) {
    struct Gate {
        std::mutex lock;
        std::condition_variable changed;
        bool entered = false;
        bool released = false;
        static void callback(void* user, int16_t*, size_t, uint32_t) {
            auto* gate = static_cast<Gate*>(user);
            std::unique_lock<std::mutex> hold(gate->lock);
            gate->entered = true;
            gate->changed.notify_all();
            gate->changed.wait_for(hold, std::chrono::seconds(10), [gate] { return gate->released; });
        }
    } gate;
    sp<PlaybackMonitor> gated = new PlaybackMonitor(Gate::callback, &gate);
    Published published;
    publish(published);
    gated->startMonitor();
    ASSERT_TRUE(wws_test::waitFor([&] {
        published.write(64);
        std::lock_guard<std::mutex> hold(gate.lock);
        return gate.entered;
    }));
    std::atomic<bool> stopped{false};
    std::thread stopper([&] {
        gated->stopMonitor();
        stopped = true;
    });
    EXPECT_FALSE(wws_test::waitFor([&] { return stopped.load(); }, std::chrono::milliseconds(150)));
    {
        std::lock_guard<std::mutex> hold(gate.lock);
        gate.released = true;
        gate.changed.notify_all();
    }
    stopper.join();
    EXPECT_TRUE(stopped);
    EXPECT_TRUE(wws_test::waitFor([] { return wws_test::threadsNamed("AudioStreamRead") == 0; }));
    ASSERT_TRUE(host::killService("playbackstream"));
    host::flushBinderThread();
    EXPECT_FALSE(gated->isRunning());
    EXPECT_FALSE(log.contains("onServiceDisconnected"));
}
