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
