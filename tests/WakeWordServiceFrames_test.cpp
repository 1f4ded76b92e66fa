// The input frame time and its fallbacks.
#include "ServiceTest.h"

using WakeWordServiceFrames = wws_test::ServiceTest;

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
    int64_t frames = 0;
    ASSERT_TRUE(wws_test::waitFor([&] { return service->getInputFrameCount(frames) == 0 && frames == 640; }));

    android::sp<android::AudioRecord> record = host::lastRecording(AUDIO_SOURCE_HOTWORD);
    android::ExtendedTimestamp ts;
    ASSERT_EQ(0, record->getTimestamp(&ts));
    int64_t serverNs = ts.mTimeNs[android::ExtendedTimestamp::LOCATION_SERVER];
    int64_t timeMs = 0;
    EXPECT_EQ(0, service->getInputFrameTime(timeMs));
    EXPECT_EQ((serverNs - 7000000 + 3000000000LL) / 1000000, timeMs);

    timestamps.kernel = false;
    host::setTimestampConfig(timestamps);
    EXPECT_EQ(0, service->getInputFrameTime(timeMs));
    EXPECT_EQ((serverNs + 3000000000LL) / 1000000, timeMs);
}
