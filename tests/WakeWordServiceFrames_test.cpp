// Frame counters, the input frame time and its fallbacks, and backfill arithmetic.
#include <gtest/gtest.h>
#include <media/HostAudio.h>
#include <norvo_fake/FakeNorvo.h>

#include "AudioFeed.h"
#include "LogCapture.h"
#include "ServiceFactory.h"
#include "Wait.h"

using android::sp;
using velmar::WakeWordService;
using wws_test::LogCapture;
using wws_test::ServiceConfig;
namespace host = android::host;

namespace {

constexpr const char* kTag = "WakeWordService";
constexpr const char* kInput = "WakeWordService_input_decoder";

class WakeWordServiceFrames : public testing::Test {
  protected:
    void SetUp() override {
        norvo_fake::reset();
        host::reset();
    }
    void TearDown() override { host::reset(); }
    LogCapture log;
    ServiceConfig config;
};

int64_t nowMs() { return velmar::getTimeNs() / 1000000; }

}  // namespace

TEST_F(WakeWordServiceFrames, CountersStartAtZeroAndFollowTheAudio) {
    sp<WakeWordService> service = wws_test::createService(config);
    int64_t input = -1;
    int64_t playback = -1;
    EXPECT_EQ(0, service->getInputFrameCount(input));
    EXPECT_EQ(0, service->getPlaybackFrameCount(playback));
    EXPECT_EQ(0, input);
    EXPECT_EQ(0, playback);
    std::vector<int16_t> samples(480);
    wws_test::deliverInput(*service, samples, 480);
    EXPECT_EQ(0, service->getInputFrameCount(input));
    EXPECT_EQ(480, input);
}

TEST_F(WakeWordServiceFrames, FrameTimeFallsBackToNowWithoutARecording) {
    sp<WakeWordService> service = wws_test::createService(config);
    int64_t before = nowMs();
    int64_t timeMs = 0;
    EXPECT_EQ(0, service->getInputFrameTime(timeMs));
    EXPECT_GE(timeMs, before);
    EXPECT_LE(timeMs, nowMs());

    service->mAudioInput.clear();
    EXPECT_EQ(0, service->getInputFrameTime(timeMs));
    EXPECT_TRUE(log.contains(ANDROID_LOG_ERROR, kTag, "AudioInput instance is null!"));
    EXPECT_GE(timeMs, before);
}

TEST_F(WakeWordServiceFrames, FrameTimePrefersKernelThenServerTimePlusOffset) {
    config.playbackViaAudioRecord = true;
    sp<WakeWordService> service = wws_test::createService(config);
    sp<host::PushedPcm> pcm = new host::PushedPcm();
    pcm->push(std::vector<int16_t>(640, 0));
    host::attachSource(AUDIO_SOURCE_HOTWORD, pcm);
    host::TimestampConfig timestamps;
    timestamps.kernelLatencyNs = 7000000;  // 7 ms
    timestamps.monotonicOffsetNs = 3000000000LL;
    host::setTimestampConfig(timestamps);
    ASSERT_EQ(0, service->setDetectorEnabled(true));
    ASSERT_TRUE(wws_test::waitFor([&] { return service->mInputFrameCount == 640; }));

    android::sp<android::AudioRecord> record = host::lastRecording(AUDIO_SOURCE_HOTWORD);
    android::ExtendedTimestamp ts;
    ASSERT_EQ(0, record->getTimestamp(&ts));
    int64_t serverNs = ts.mTimeNs[android::ExtendedTimestamp::LOCATION_SERVER];
    int64_t timeMs = 0;
    EXPECT_EQ(0, service->getInputFrameTime(timeMs));
    EXPECT_EQ((serverNs - 7000000 + 3000000000LL) / 1000000, timeMs);
    // The microphone adapter comes first in the list: the playback adapter is never consulted.
    EXPECT_FALSE(log.contains("AudioRecordAdapter instance is null or does not correspond to the "
                              "AudioInputSource!"));

    timestamps.kernel = false;
    host::setTimestampConfig(timestamps);
    EXPECT_EQ(0, service->getInputFrameTime(timeMs));
    EXPECT_EQ((serverNs + 3000000000LL) / 1000000, timeMs);

    // No positive time at all: every adapter is tried (the playback one is not the microphone),
    // then the clock answers.
    timestamps.server = false;
    host::setTimestampConfig(timestamps);
    int64_t before = nowMs();
    EXPECT_EQ(0, service->getInputFrameTime(timeMs));
    EXPECT_GE(timeMs, before);
    EXPECT_TRUE(log.contains(ANDROID_LOG_ERROR, kTag,
                             "AudioRecordAdapter instance is null or does not correspond to the "
                             "AudioInputSource!"));
    service->setDetectorEnabled(false);
}

TEST_F(WakeWordServiceFrames, BackfillRereadsTheLastHalfSecondThroughTheInputPath) {
    sp<WakeWordService> service = wws_test::createService(config);
    std::vector<int16_t> audio(10000);  // 20000 bytes of mono 16-bit audio
    for (size_t i = 0; i < audio.size(); ++i) audio[i] = static_cast<int16_t>(i);
    wws_test::deliverInput(*service, audio, audio.size());
    ASSERT_EQ(10000u, service->mInputFrameCount);

    EXPECT_EQ(0, service->backfillAudioIfNeeded());
    EXPECT_TRUE(log.contains(ANDROID_LOG_DEBUG, kTag,
                             "backfillAudioIfNeeded: backfill is not required, skipping"));
    EXPECT_EQ(10000u, service->mInputFrameCount);

    service->mBackfillPending = true;
    EXPECT_EQ(0, service->backfillAudioIfNeeded());
    EXPECT_FALSE(service->mBackfillPending);
    EXPECT_EQ(18000u, service->mInputFrameCount);
    std::vector<int16_t> pushed = norvo_fake::pushedSamples(kInput);
    ASSERT_EQ(18000u, pushed.size());
    // Bytes 4000..20000 again: samples 2000..9999, with the next sample indices.
    EXPECT_TRUE(std::equal(pushed.begin() + 10000, pushed.end(), audio.begin() + 2000));
    EXPECT_EQ(wws_test::sampleEvent(8000, 10000), norvo_fake::pushedMetadata(kInput).back());
    for (const char* line : {"backfillAudioIfNeeded: got starting bytes position 20000",
                             "backfillAudioIfNeeded: preparing to invoke audio callback fn with "
                             "read size: 16000",
                             "backfillAudioIfNeeded: invoking audio callback fn with (1) read "
                             "count: 16000",
                             "backfillAudioIfNeeded: invoking audio callback fn with (2) frame "
                             "count: 8000"}) {
        EXPECT_TRUE(log.contains(ANDROID_LOG_DEBUG, kTag, line)) << line;
    }
    EXPECT_TRUE(log.contains(ANDROID_LOG_INFO, kTag,
                             "backfillAudioIfNeeded: audio backfill is required, proceeding.. "
                             "Channel Count: 1"));
}

TEST_F(WakeWordServiceFrames, BackfillOnThreeChannelsReadsThreeTimesTheBytes) {
    config.threeChannelInput = true;
    sp<WakeWordService> service = wws_test::createService(config);
    std::vector<int16_t> audio(3 * 9000, 3);
    wws_test::deliverInput(*service, audio, 9000);
    service->mBackfillPending = true;
    EXPECT_EQ(0, service->backfillAudioIfNeeded());
    EXPECT_TRUE(log.contains("backfillAudioIfNeeded: invoking audio callback fn with (1) read "
                             "count: 48000"));
    EXPECT_EQ(17000u, service->mInputFrameCount);
}

TEST_F(WakeWordServiceFrames, BackfillWithNothingToReadAndWhileBusy) {
    sp<WakeWordService> service = wws_test::createService(config);
    service->mBackfillPending = true;
    EXPECT_EQ(0, service->backfillAudioIfNeeded());  // the stream is empty
    EXPECT_TRUE(log.contains(ANDROID_LOG_ERROR, kTag,
                             "backfillAudioIfNeeded: readSize was 0. Not invoking audio callback fn."));
    EXPECT_EQ(0u, service->mInputFrameCount);

    service->mBackfillPending = true;
    std::lock_guard<std::mutex> busy(service->mBackfillLock);
    log.clear();
    EXPECT_EQ(0, service->backfillAudioIfNeeded());
    EXPECT_TRUE(service->mBackfillPending);  // untouched: the running backfill owns it
    EXPECT_FALSE(log.loggedOnThisThread());
}

