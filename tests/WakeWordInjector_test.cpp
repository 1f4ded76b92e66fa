// WakeWordInjector: blocks of a WAV file delivered in order with the injection's flag and at the
// file's own pace, refusals with their statuses and messages, and the media-reading loop over
// buffers of any size.
#include <gtest/gtest.h>
#include <media/stagefright/MediaErrors.h>

#include <fstream>
#include <mutex>
#include <vector>

#include "LogCapture.h"
#include "TestMediaSources.h"
#include "Threads.h"
#include "Wait.h"
#include "WakeWordInjector.h"
#include "WavFile.h"

using android::sp;
using velmar::WakeWordInjector;
using wws_test::ChunkedSource;
using wws_test::FormatSource;
using wws_test::GatedSource;
using wws_test::InertSource;

namespace {

constexpr const char* kTag = "WakeWordInjector";

struct Blocks {
    std::mutex lock;
    std::vector<std::vector<int16_t>> blocks;
    std::vector<bool> flags;
    std::vector<int64_t> waits;  // what the injector asked to wait, in microseconds

    static void callback(void* user, int16_t* samples, size_t count, bool toPlayback) {
        Blocks* self = static_cast<Blocks*>(user);
        std::lock_guard<std::mutex> guard(self->lock);
        self->blocks.emplace_back(samples, samples + count);
        self->flags.push_back(toPlayback);
    }
    // The samples of blocks from index first on, joined.
    std::vector<int16_t> all(size_t first = 0) {
        std::lock_guard<std::mutex> guard(lock);
        std::vector<int16_t> joined;
        for (size_t i = first; i < blocks.size(); ++i) {
            joined.insert(joined.end(), blocks[i].begin(), blocks[i].end());
        }
        return joined;
    }
    size_t count() {
        std::lock_guard<std::mutex> guard(lock);
        return blocks.size();
    }
};

bool finished(const sp<WakeWordInjector>& injector) {
    return wws_test::waitFor([&] { return !injector->isInjecting(); }, std::chrono::seconds(20));
}

class WakeWordInjectorTest : public testing::Test {
  protected:
    // Waits are recorded, not slept: the first overruns by 300 us, the others are exact.
    void SetUp() override {
        injector->setSleeperForTest([this](int64_t us) {
            std::lock_guard<std::mutex> guard(blocks.lock);
            blocks.waits.push_back(us);
            return blocks.waits.size() == 1 ? us + 300 : us;
        });
    }
    Blocks blocks;
    sp<WakeWordInjector> injector = new WakeWordInjector(128, Blocks::callback, &blocks);
    wws_test::LogCapture log;
};

}  // namespace

// A 16050-sample file: 125 blocks of 128, each followed by a wait of its duration (8 ms) less what
// the wait before overran, then the partial last block with no wait after it.
TEST_F(WakeWordInjectorTest, FileArrivesInBlocksPacedAtItsOwnRate) {
    std::vector<int16_t> samples = wws_test::rampSamples(16050);
    std::string path = wws_test::writeWav("partial.wav", samples, 16000);
    ASSERT_EQ(0, injector->doInjectWaveFileInRealTime(path.c_str(), true));
    ASSERT_TRUE(finished(injector));
    EXPECT_EQ(samples, blocks.all());
    std::lock_guard<std::mutex> guard(blocks.lock);
    ASSERT_EQ(126u, blocks.blocks.size());
    for (size_t i = 0; i < 125; ++i) EXPECT_EQ(128u, blocks.blocks[i].size());
    EXPECT_EQ(std::vector<bool>(126, true), blocks.flags);
    std::vector<int64_t> expected(125, 8000);
    expected[1] = 7700;
    EXPECT_EQ(expected, blocks.waits);
    // End of file is an ordinary end, logged by the media read as the platform does.
    EXPECT_TRUE(log.contains(ANDROID_LOG_ERROR, kTag, "Error reading from media source (-1011)"));
}

TEST_F(WakeWordInjectorTest, RefusalsLeaveTheInjectorIdle) {
    std::string text = wws_test::tempPath("text.wav");
    std::ofstream(text) << "plain text, not RIFF";
    EXPECT_EQ(android::BAD_VALUE, injector->doInjectWaveFileInRealTime(text.c_str(), false));
    EXPECT_EQ((std::vector<std::string>{"Unable to get wave file data from filePath: " + text}),
              log.messages(ANDROID_LOG_ERROR, kTag));

    class NoFormat : public InertSource {
        android::status_t start(android::MetaData*) override { return android::NO_ERROR; }
    };
    struct Case {
        sp<InertSource> source;
        android::status_t status;
        const char* message;
    } cases[] = {
            {new InertSource(), android::NO_INIT, "Error starting media source (-19)"},
            {new FormatSource(0, 0), android::NAME_NOT_FOUND,
             "Error reading sample rate from media source"},
            {new FormatSource(16000, 0), android::NAME_NOT_FOUND,
             "Error reading channel count from media source"},
            {new FormatSource(16000, 2), android::INVALID_OPERATION,
             "Injected wav files may only contain one channel."},
            {new NoFormat(), android::BAD_VALUE, "Error reading format from media source."},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.message);
        log.clear();
        EXPECT_EQ(c.status, injector->doPushInRealTime(c.source, false));
        EXPECT_EQ((std::vector<std::string>{c.message}), log.messages(ANDROID_LOG_ERROR, kTag));
        EXPECT_EQ(1, c.source->stops);  // the source was stopped and dropped
        EXPECT_FALSE(injector->isInjecting());
    }
    EXPECT_EQ(android::BAD_VALUE, injector->doPushInRealTime(nullptr, false));
    sp<WakeWordInjector> noCallback = new WakeWordInjector(128, nullptr, nullptr);
    sp<FormatSource> fine = new FormatSource(16000, 1);
    EXPECT_EQ(android::INVALID_OPERATION, noCallback->doPushInRealTime(fine, false));
    EXPECT_TRUE(log.contains(ANDROID_LOG_ERROR, kTag, "Error no callback function defined"));
    EXPECT_EQ(1, fine->stops);
    EXPECT_TRUE(blocks.all().empty());
}

TEST_F(WakeWordInjectorTest, OneInjectionAtATimeOnANamedThread) {
    sp<GatedSource> held = new GatedSource(wws_test::rampSamples(1000));
    ASSERT_EQ(0, injector->doPushInRealTime(held, true));
    EXPECT_TRUE(injector->isInjecting());
    EXPECT_TRUE(wws_test::waitFor([] { return wws_test::threadsNamed("WakeWordInjecto") == 1; }));

    std::string path = wws_test::writeWav("other.wav", wws_test::rampSamples(320), 16000);
    EXPECT_EQ(android::BAD_VALUE, injector->doInjectWaveFileInRealTime(path.c_str(), false));
    EXPECT_TRUE(log.contains(ANDROID_LOG_ERROR, kTag,
                             "Unable to inject wave file, the previous one is still injecting"));
    sp<FormatSource> refused = new FormatSource(16000, 1);
    EXPECT_EQ(android::ALREADY_EXISTS, injector->doPushInRealTime(refused, false));
    EXPECT_EQ(0, refused->stops);  // never touched

    held->open();
    ASSERT_TRUE(finished(injector));
    EXPECT_EQ(wws_test::rampSamples(1000), blocks.all());
    {
        std::lock_guard<std::mutex> guard(blocks.lock);
        EXPECT_EQ(std::vector<bool>(blocks.flags.size(), true), blocks.flags);  // the first's flag
    }
    ASSERT_EQ(0, injector->doInjectWaveFileInRealTime(path.c_str(), false));
    ASSERT_TRUE(finished(injector));
}

// An injection stopped between two blocks leaves nothing behind: its source is stopped, and the
// next injection starts with its own first sample, not with the rest of the stopped one's buffer.
TEST_F(WakeWordInjectorTest, StoppedInjectionLeavesNothingForTheNextOne) {
    struct Observed : WakeWordInjector {
        using WakeWordInjector::WakeWordInjector;
        using android::Thread::exitPending;
    };
    sp<Observed> observed = new Observed(128, Blocks::callback, &blocks);
    injector = observed;
    // The wait after the first block lasts until the stop has been asked for.
    injector->setSleeperForTest([&](int64_t us) {
        wws_test::waitFor([&] { return observed->exitPending(); }, std::chrono::seconds(10));
        return us;
    });
    std::vector<int16_t> first(16000, 1111);
    sp<ChunkedSource> stopped = new ChunkedSource(first, first.size() * sizeof(int16_t));
    ASSERT_EQ(0, injector->doPushInRealTime(stopped, false));
    ASSERT_TRUE(wws_test::waitFor([&] { return blocks.count() == 1; }));
    injector->stopInjection();
    EXPECT_FALSE(injector->isInjecting());
    EXPECT_EQ(1, stopped->stops);
    EXPECT_EQ(1u, blocks.count());

    injector->setSleeperForTest([](int64_t us) { return us; });
    std::vector<int16_t> second = wws_test::rampSamples(300, -2000);
    ASSERT_EQ(0, injector->doPushInRealTime(new ChunkedSource(second, 200), true));
    ASSERT_TRUE(finished(injector));
    EXPECT_EQ(second, blocks.all(1));
}

// Blocks span buffers (98-byte buffers: every 256-byte block spans three); a read error ends the
// injection without delivering the partial block before it.
TEST_F(WakeWordInjectorTest, BlocksAreAssembledAcrossBuffersUntilAReadError) {
    std::vector<int16_t> samples = wws_test::rampSamples(1000);
    ASSERT_EQ(0, injector->doPushInRealTime(new ChunkedSource(samples, 98), false));
    ASSERT_TRUE(finished(injector));
    EXPECT_EQ(samples, blocks.all());
    EXPECT_EQ(8u, blocks.count());

    std::vector<int16_t> failing = wws_test::rampSamples(300, 5);
    ASSERT_EQ(0, injector->doPushInRealTime(new ChunkedSource(failing, 200, android::ERROR_IO),
                                            false));
    ASSERT_TRUE(finished(injector));
    EXPECT_EQ(std::vector<int16_t>(failing.begin(), failing.begin() + 256), blocks.all(8));
    EXPECT_TRUE(log.contains(ANDROID_LOG_ERROR, kTag, "Error reading from media source (-1004)"));
    EXPECT_TRUE(log.contains(ANDROID_LOG_ERROR, kTag, "Error reading media buffer (-1004)"));
}
