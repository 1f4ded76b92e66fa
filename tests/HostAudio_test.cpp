// The host audio system behind AudioRecord: buffers on the recording's own thread, failures on
// demand, platform-side stops, overruns and timestamps.
#include <gtest/gtest.h>
#include <media/AudioRecord.h>
#include <media/HostAudio.h>
#include <unistd.h>

#include <atomic>
#include <mutex>
#include <thread>
#include <vector>

#include "Wait.h"
#include "WavFile.h"

using android::AudioRecord;
using android::ExtendedTimestamp;
using android::sp;
namespace host = android::host;

namespace {

constexpr audio_source_t kSource = AUDIO_SOURCE_HOTWORD;

struct Sink {
    std::mutex lock;
    std::vector<int16_t> samples;
    std::vector<size_t> frameCounts;
    std::atomic<int> overruns{0};
    std::atomic<int> slowCallbacks{0};  // callbacks left to take three periods
    std::thread::id thread;

    static void callback(int event, void* user, void* info) {
        Sink* sink = static_cast<Sink*>(user);
        if (event == AudioRecord::EVENT_OVERRUN) {
            ++sink->overruns;
            return;
        }
        if (event != AudioRecord::EVENT_MORE_DATA) return;
        auto* buffer = static_cast<AudioRecord::Buffer*>(info);
        {
            std::lock_guard<std::mutex> guard(sink->lock);
            sink->thread = std::this_thread::get_id();
            sink->frameCounts.push_back(buffer->frameCount);
            sink->samples.insert(sink->samples.end(), buffer->i16,
                                 buffer->i16 + buffer->size / sizeof(int16_t));
        }
        if (sink->slowCallbacks.load() > 0) {
            --sink->slowCallbacks;
            usleep(60000);  // a consumer three 20 ms periods late
        }
    }
    size_t sampleCount() {
        std::lock_guard<std::mutex> guard(lock);
        return samples.size();
    }
};

sp<AudioRecord> makeRecord(Sink& sink, audio_channel_mask_t mask = AUDIO_CHANNEL_IN_MONO,
                           audio_source_t source = kSource) {
    return new AudioRecord(source, 16000, AUDIO_FORMAT_PCM_16_BIT, mask, android::String16("pkg"),
                           320, Sink::callback, &sink);
}

class HostAudio : public testing::Test {
  protected:
    void SetUp() override { host::reset(); }
    void TearDown() override { host::reset(); }
};

}  // namespace

TEST_F(HostAudio, PushedBuffersArriveInOrderOnTheRecordingsThread) {
    sp<host::PushedPcm> pcm = new host::PushedPcm();
    std::vector<int16_t> stereo(2 * 700);
    for (size_t i = 0; i < stereo.size(); ++i) stereo[i] = static_cast<int16_t>(i);
    pcm->push(stereo);
    host::attachSource(kSource, pcm);
    Sink sink;
    sp<AudioRecord> record = makeRecord(sink, AUDIO_CHANNEL_IN_STEREO);
    ASSERT_EQ(android::NO_ERROR, record->initCheck());
    EXPECT_TRUE(record->stopped());
    EXPECT_EQ(2u, record->channelCount());
    ASSERT_EQ(android::NO_ERROR, record->start());
    EXPECT_FALSE(record->stopped());
    bool active = false;
    ASSERT_EQ(android::NO_ERROR, android::AudioSystem::isSourceActive(kSource, &active));
    EXPECT_TRUE(active);

    ASSERT_TRUE(wws_test::waitFor([&] { return sink.sampleCount() == stereo.size(); }));
    record->stop();
    EXPECT_TRUE(record->stopped());
    ASSERT_EQ(android::NO_ERROR, android::AudioSystem::isSourceActive(kSource, &active));
    EXPECT_FALSE(active);
    std::lock_guard<std::mutex> guard(sink.lock);
    EXPECT_EQ(stereo, sink.samples);
    // 700 frames through a 320-frame recording: 320, 320, 60.
    EXPECT_EQ((std::vector<size_t>{320, 320, 60}), sink.frameCounts);
    EXPECT_NE(std::this_thread::get_id(), sink.thread);
}

// Raw PCM from a pipe, as `arecord ... | program --live -` gives it.
class FdPcmTest : public testing::Test {
  protected:
    void SetUp() override { ASSERT_EQ(0, pipe(mPipe)); }
    void TearDown() override {
        if (mPipe[1] >= 0) close(mPipe[1]);
    }
    void writeBytes(const std::vector<uint8_t>& bytes) {
        ASSERT_EQ(static_cast<ssize_t>(bytes.size()), write(mPipe[1], bytes.data(), bytes.size()));
    }
    void closeWriter() {
        close(mPipe[1]);
        mPipe[1] = -1;
    }
    // Everything produced until count frames arrived (or the deadline passed).
    std::vector<int16_t> take(host::FdPcm& pcm, size_t count, uint32_t channels) {
        std::vector<int16_t> taken;
        std::vector<int16_t> buffer(320 * channels);
        wws_test::waitFor([&] {
            size_t frames = pcm.produce(buffer.data(), 320, channels);
            taken.insert(taken.end(), buffer.begin(), buffer.begin() + frames * channels);
            return taken.size() >= count * channels;
        });
        return taken;
    }
    int mPipe[2] = {-1, -1};
};

TEST_F(FdPcmTest, ReadsLittleEndianSamplesSplitAcrossReadsIntoEveryChannel) {
    sp<host::FdPcm> pcm = new host::FdPcm(mPipe[0], /*ownFd=*/true);
    int16_t empty[2];
    // Nothing has arrived: produce() returns at once with nothing.
    EXPECT_EQ(0u, pcm->produce(empty, 1, 2));
    writeBytes({0x01, 0x00, 0xfe});  // 1, then the first byte of -2
    EXPECT_EQ((std::vector<int16_t>{1, 1}), take(*pcm, 1, 2));  // the reader has read all three
    writeBytes({0xff, 0x2c, 0x01});  // the second byte of -2, then 300
    EXPECT_EQ((std::vector<int16_t>{-2, -2, 300, 300}), take(*pcm, 2, 2));
    EXPECT_EQ(3u, pcm->framesDelivered());
    EXPECT_FALSE(pcm->finished());
    closeWriter();
    ASSERT_TRUE(wws_test::waitFor([&] { return pcm->finished(); }));
    EXPECT_EQ(0u, pcm->produce(empty, 1, 2));
}

TEST_F(HostAudio, SlowConsumerGetsAnOverrun) {
    host::attachSource(kSource, new host::GeneratedPcm([](uint64_t, uint32_t) { return 0; }));
    Sink sink;
    sink.slowCallbacks = 1;
    sp<AudioRecord> record = makeRecord(sink);
    ASSERT_EQ(android::NO_ERROR, record->start());
    EXPECT_TRUE(wws_test::waitFor([&] { return sink.overruns.load() >= 1; }));
    record->stop();
}

TEST_F(HostAudio, ScriptedFailuresAndPlatformStops) {
    Sink sink;
    host::failNextInitCheck(kSource, android::NO_MEMORY);
    sp<AudioRecord> refused = makeRecord(sink);
    EXPECT_EQ(android::NO_MEMORY, refused->initCheck());
    EXPECT_EQ(android::NO_INIT, refused->start());
    sp<AudioRecord> fine = makeRecord(sink);  // the failure was for one recording only
    EXPECT_EQ(android::NO_ERROR, fine->initCheck());

    host::failNextStart(kSource, android::DEAD_OBJECT);
    EXPECT_EQ(android::DEAD_OBJECT, fine->start());
    EXPECT_TRUE(fine->stopped());
    ASSERT_EQ(android::NO_ERROR, fine->start());
    EXPECT_EQ(android::INVALID_OPERATION, fine->start());
    EXPECT_EQ(2, host::recordingsCreated(kSource));
    EXPECT_EQ(1, host::activeRecordings(kSource));
    EXPECT_EQ(fine, host::lastRecording(kSource));

    EXPECT_EQ(1, host::stopRecordings(kSource));
    EXPECT_TRUE(fine->stopped());
    EXPECT_EQ(0, host::activeRecordings(kSource));
    // A recording the platform stopped can be started again by its owner.
    EXPECT_EQ(android::NO_ERROR, fine->start());
    fine->stop();

    host::setIsSourceActiveStatus(android::DEAD_OBJECT);
    bool active = true;
    EXPECT_EQ(android::DEAD_OBJECT, android::AudioSystem::isSourceActive(kSource, &active));
    EXPECT_EQ(android::BAD_VALUE, android::AudioSystem::isSourceActive(kSource, nullptr));
}

TEST_F(HostAudio, TimestampsFollowDeliveredFrames) {
    Sink sink;
    sp<AudioRecord> record = makeRecord(sink);
    ExtendedTimestamp ts;
    EXPECT_EQ(android::INVALID_OPERATION, record->getTimestamp(&ts));
    ASSERT_EQ(android::NO_ERROR, record->start());
    EXPECT_EQ(android::WOULD_BLOCK, record->getTimestamp(&ts));  // no producer: nothing captured

    sp<host::PushedPcm> pcm = new host::PushedPcm();
    pcm->push(std::vector<int16_t>(640, 1));
    host::TimestampConfig config;
    config.kernelLatencyNs = 1000;
    config.monotonicOffsetNs = 55;
    host::setTimestampConfig(config);
    host::attachSource(kSource, pcm);
    ASSERT_TRUE(wws_test::waitFor([&] { return sink.sampleCount() == 640; }));
    ASSERT_EQ(android::NO_ERROR, record->getTimestamp(&ts));
    EXPECT_EQ(640, ts.mPosition[ExtendedTimestamp::LOCATION_SERVER]);
    EXPECT_GT(ts.mTimeNs[ExtendedTimestamp::LOCATION_SERVER], 0);
    EXPECT_EQ(ts.mTimeNs[ExtendedTimestamp::LOCATION_SERVER] - 1000,
              ts.mTimeNs[ExtendedTimestamp::LOCATION_KERNEL]);
    EXPECT_EQ(55, ts.mTimebaseOffset[ExtendedTimestamp::TIMEBASE_MONOTONIC]);

    config.kernel = false;
    host::setTimestampConfig(config);
    ASSERT_EQ(android::NO_ERROR, record->getTimestamp(&ts));
    EXPECT_EQ(-1, ts.mTimeNs[ExtendedTimestamp::LOCATION_KERNEL]);
    record->stop();
}
