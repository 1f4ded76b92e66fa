// WakeWordInjector: blocks of a WAV file delivered in order with the injection's flag, refusals
// with their statuses and messages, and the media-reading loop over buffers of any size.
#include <gtest/gtest.h>
#include <media/stagefright/MediaErrors.h>

#include <dirent.h>
#include <fstream>
#include <mutex>
#include <vector>

#include "LogCapture.h"
#include "Wait.h"
#include "WakeWordInjector.h"
#include "WavFile.h"

using android::sp;
using velmar::WakeWordInjector;

namespace {

constexpr const char* kTag = "WakeWordInjector";

struct Blocks {
    std::mutex lock;
    std::vector<std::vector<int16_t>> blocks;
    std::vector<bool> flags;

    static void callback(void* user, int16_t* samples, size_t count, bool toPlayback) {
        Blocks* self = static_cast<Blocks*>(user);
        std::lock_guard<std::mutex> guard(self->lock);
        self->blocks.emplace_back(samples, samples + count);
        self->flags.push_back(toPlayback);
    }
    std::vector<int16_t> all() {
        std::lock_guard<std::mutex> guard(lock);
        std::vector<int16_t> joined;
        for (const auto& block : blocks) joined.insert(joined.end(), block.begin(), block.end());
        return joined;
    }
};

bool finished(const sp<WakeWordInjector>& injector) {
    return wws_test::waitFor([&] { return !injector->isInjecting(); }, std::chrono::seconds(20));
}

// A media source that refuses everything; subclasses add behaviour.
class InertSource : public android::IMediaSource {
  public:
    int stops = 0;
    android::status_t start(android::MetaData*) override { return android::NO_INIT; }
    android::status_t stop() override {
        ++stops;
        return android::NO_ERROR;
    }
    sp<android::MetaData> getFormat() override { return nullptr; }
    android::status_t read(android::MediaBufferBase**, const ReadOptions*) override {
        return android::NO_INIT;
    }
};

// Starts and reports a format built from the given keys.
class FormatSource : public InertSource {
  public:
    FormatSource(int32_t rate, int32_t channels) : mRate(rate), mChannels(channels) {}
    android::status_t start(android::MetaData*) override { return android::NO_ERROR; }
    sp<android::MetaData> getFormat() override {
        sp<android::MetaData> format = new android::MetaData();
        if (mRate > 0) format->setInt32(android::kKeySampleRate, mRate);
        if (mChannels > 0) format->setInt32(android::kKeyChannelCount, mChannels);
        return format;
    }

  private:
    int32_t mRate;
    int32_t mChannels;
};

// Mono 16 kHz samples handed out in buffers of chunkBytes, then endStatus.
class ChunkedSource : public FormatSource {
  public:
    ChunkedSource(std::vector<int16_t> samples, size_t chunkBytes, android::status_t endStatus)
        : FormatSource(16000, 1),
          mSamples(std::move(samples)),
          mChunkBytes(chunkBytes),
          mEndStatus(endStatus) {}
    android::status_t read(android::MediaBufferBase** buffer, const ReadOptions*) override {
        size_t total = mSamples.size() * sizeof(int16_t);
        if (mOffset >= total) return mEndStatus;
        size_t take = std::min(mChunkBytes, total - mOffset);
        // Data placed after a non-zero range offset, as real extractors sometimes do.
        auto* out = new android::MediaBufferBase(take + 6);
        memcpy(static_cast<uint8_t*>(out->data()) + 6,
               reinterpret_cast<const uint8_t*>(mSamples.data()) + mOffset, take);
        out->set_range(6, take);
        mOffset += take;
        *buffer = out;
        return android::NO_ERROR;
    }

  private:
    std::vector<int16_t> mSamples;
    size_t mChunkBytes;
    android::status_t mEndStatus;
    size_t mOffset = 0;
};

class WakeWordInjectorTest : public testing::Test {
  protected:
    sp<WakeWordInjector> injector = new WakeWordInjector(128, Blocks::callback, &blocks);
    Blocks blocks;
    wws_test::LogCapture log;
};

}  // namespace

TEST_F(WakeWordInjectorTest, OneSecondFileGivesBlocksOf128InOrder) {
    std::vector<int16_t> samples = wws_test::rampSamples(16000);
    std::string path = wws_test::writeWav("second.wav", samples, 16000);
    ASSERT_EQ(0, injector->doInjectWaveFileInRealTime(path.c_str(), true));
    ASSERT_TRUE(finished(injector));
    std::lock_guard<std::mutex> guard(blocks.lock);
    ASSERT_EQ(125u, blocks.blocks.size());
    for (const auto& block : blocks.blocks) EXPECT_EQ(128u, block.size());
    EXPECT_EQ(std::vector<bool>(125, true), blocks.flags);
    std::vector<int16_t> joined;
    for (const auto& block : blocks.blocks) joined.insert(joined.end(), block.begin(), block.end());
    EXPECT_EQ(samples, joined);
    // End of file is an ordinary end, logged by the media read as the platform does.
    EXPECT_TRUE(log.contains(ANDROID_LOG_ERROR, kTag, "Error reading from media source (-1011)"));
}

TEST_F(WakeWordInjectorTest, PartialLastBlockIsDelivered) {
    std::vector<int16_t> samples = wws_test::rampSamples(16050);
    std::string path = wws_test::writeWav("partial.wav", samples, 16000);
    ASSERT_EQ(0, injector->doInjectWaveFileInRealTime(path.c_str(), false));
    ASSERT_TRUE(finished(injector));
    std::lock_guard<std::mutex> guard(blocks.lock);
    ASSERT_EQ(126u, blocks.blocks.size());
    EXPECT_EQ(50u, blocks.blocks.back().size());
    EXPECT_EQ(std::vector<bool>(126, false), blocks.flags);
}

TEST_F(WakeWordInjectorTest, FileAtItsOwnRateIsAcceptedWhole) {
    std::vector<int16_t> samples = wws_test::rampSamples(4800);
    std::string path = wws_test::writeWav("fast.wav", samples, 48000);
    ASSERT_EQ(0, injector->doInjectWaveFileInRealTime(path.c_str(), false));
    ASSERT_TRUE(finished(injector));
    EXPECT_EQ(samples, blocks.all());
}

TEST_F(WakeWordInjectorTest, RefusesStereoMissingAndForeignFiles) {
    std::string stereo = wws_test::writeWav("stereo.wav", wws_test::rampSamples(3200), 16000, 2);
    EXPECT_EQ(android::INVALID_OPERATION,
              injector->doInjectWaveFileInRealTime(stereo.c_str(), false));
    EXPECT_TRUE(log.contains(ANDROID_LOG_ERROR, kTag,
                             "Injected wav files may only contain one channel."));
    EXPECT_FALSE(injector->isInjecting());

    EXPECT_EQ(android::BAD_VALUE, injector->doInjectWaveFileInRealTime("/no/such.wav", false));
    EXPECT_TRUE(log.contains(ANDROID_LOG_ERROR, kTag,
                             "Unable to get wave file data from filePath: /no/such.wav"));

    std::string text = wws_test::tempPath("text.wav");
    std::ofstream(text) << "plain text, not RIFF";
    EXPECT_EQ(android::BAD_VALUE, injector->doInjectWaveFileInRealTime(text.c_str(), false));
    EXPECT_TRUE(log.contains(ANDROID_LOG_ERROR, kTag,
                             "Unable to get wave file data from filePath: " + text));
    EXPECT_TRUE(blocks.all().empty());
}

TEST_F(WakeWordInjectorTest, SecondInjectionIsRefusedWhileOneRuns) {
    std::string path = wws_test::writeWav("long.wav", wws_test::rampSamples(32000), 16000);
    ASSERT_EQ(0, injector->doInjectWaveFileInRealTime(path.c_str(), true));
    ASSERT_TRUE(injector->isInjecting());
    EXPECT_EQ(android::BAD_VALUE, injector->doInjectWaveFileInRealTime(path.c_str(), false));
    EXPECT_TRUE(log.contains(ANDROID_LOG_ERROR, kTag,
                             "Unable to inject wave file, the previous one is still injecting"));
    EXPECT_EQ(android::ALREADY_EXISTS,
              injector->doPushInRealTime(new FormatSource(16000, 1), false));
    ASSERT_TRUE(finished(injector));
    std::lock_guard<std::mutex> guard(blocks.lock);
    EXPECT_EQ(std::vector<bool>(blocks.flags.size(), true), blocks.flags);  // the first run's flag
    EXPECT_EQ(250u, blocks.blocks.size());
}

TEST_F(WakeWordInjectorTest, ThreadNameIsVisibleWhileInjecting) {
    std::string path = wws_test::writeWav("named.wav", wws_test::rampSamples(16000), 16000);
    ASSERT_EQ(0, injector->doInjectWaveFileInRealTime(path.c_str(), false));
    auto named = [] {
        int count = 0;
        DIR* tasks = opendir("/proc/self/task");
        while (dirent* entry = readdir(tasks)) {
            std::ifstream comm(std::string("/proc/self/task/") + entry->d_name + "/comm");
            std::string name;
            std::getline(comm, name);
            count += name == "WakeWordInjecto" ? 1 : 0;  // the kernel keeps 15 characters
        }
        closedir(tasks);
        return count;
    };
    // The new thread names itself as it starts.
    EXPECT_TRUE(wws_test::waitFor([&] { return named() == 1; }));
    ASSERT_TRUE(finished(injector));
    EXPECT_TRUE(wws_test::waitFor([&] { return named() == 0; }));
}

TEST_F(WakeWordInjectorTest, SourceFailuresLeaveTheInjectorIdle) {
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
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.message);
        log.clear();
        EXPECT_EQ(c.status, injector->doPushInRealTime(c.source, false));
        EXPECT_EQ((std::vector<std::string>{c.message}), log.messages(ANDROID_LOG_ERROR, kTag));
        EXPECT_EQ(1, c.source->stops);  // the source was stopped and dropped
        EXPECT_FALSE(injector->isInjecting());
    }

    // A format-less source started fine, then was found to have no format.
    class NoFormat : public InertSource {
        android::status_t start(android::MetaData*) override { return android::NO_ERROR; }
    };
    log.clear();
    EXPECT_EQ(android::BAD_VALUE, injector->doPushInRealTime(new NoFormat(), false));
    EXPECT_TRUE(log.contains("Error reading format from media source."));
    EXPECT_EQ(android::BAD_VALUE, injector->doPushInRealTime(nullptr, false));

    log.clear();
    sp<WakeWordInjector> noCallback = new WakeWordInjector(128, nullptr, nullptr);
    sp<FormatSource> fine = new FormatSource(16000, 1);
    EXPECT_EQ(android::INVALID_OPERATION, noCallback->doPushInRealTime(fine, false));
    EXPECT_TRUE(log.contains(ANDROID_LOG_ERROR, kTag, "Error no callback function defined"));
    EXPECT_EQ(1, fine->stops);
}

TEST_F(WakeWordInjectorTest, BlocksAreAssembledAcrossBuffersOfAnySize) {
    std::vector<int16_t> samples = wws_test::rampSamples(1000);
    // 98-byte buffers: every 256-byte block spans three of them.
    ASSERT_EQ(0, injector->doPushInRealTime(
                         new ChunkedSource(samples, 98, android::ERROR_END_OF_STREAM), false));
    ASSERT_TRUE(finished(injector));
    EXPECT_EQ(samples, blocks.all());
    std::lock_guard<std::mutex> guard(blocks.lock);
    ASSERT_EQ(8u, blocks.blocks.size());
    EXPECT_EQ(1000u - 7 * 128, blocks.blocks.back().size());
}

TEST_F(WakeWordInjectorTest, ReadErrorEndsTheInjectionWithoutAPartialBlock) {
    std::vector<int16_t> samples = wws_test::rampSamples(300);
    ASSERT_EQ(0, injector->doPushInRealTime(new ChunkedSource(samples, 200, android::ERROR_IO),
                                            false));
    ASSERT_TRUE(finished(injector));
    // Two whole blocks (512 bytes) came through; the 88 bytes before the failure are not delivered.
    std::vector<int16_t> expected(samples.begin(), samples.begin() + 256);
    EXPECT_EQ(expected, blocks.all());
    EXPECT_TRUE(log.contains(ANDROID_LOG_ERROR, kTag, "Error reading from media source (-1004)"));
    EXPECT_TRUE(log.contains(ANDROID_LOG_ERROR, kTag, "Error reading media buffer (-1004)"));
}

TEST_F(WakeWordInjectorTest, ReadingWithoutASourceIsRefused) {
    size_t copied = 77;
    EXPECT_EQ(0, injector->readMediaBuffer(nullptr, 0, &copied));
    EXPECT_EQ(0u, copied);
    int16_t block[4];
    copied = 77;
    EXPECT_EQ(android::BAD_VALUE, injector->readMediaBuffer(block, sizeof(block), &copied));
    EXPECT_EQ(77u, copied);  // untouched on a failure other than end of stream
    EXPECT_TRUE(log.contains(ANDROID_LOG_ERROR, kTag, "Error there is no media source"));
    EXPECT_EQ(0u, injector->bytesAvailable());
}
