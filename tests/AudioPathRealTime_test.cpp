// The audio paths are real-time safe: while buffers go through them, the feeding thread allocates
// nothing and takes no lock. Every operator new (and, in the plain build, malloc and
// pthread_mutex_lock) made by that thread is counted over 1000 buffers each of mono,
// three-channel and one-mic microphone input, including one-mic buffers at the 240000-frame
// bound, and of playback audio on its way to the playback decoder.
#include <gtest/gtest.h>
#include <norvo_fake/FakeNorvo.h>

#include <mutex>

#include "AudioFeed.h"
#include "RealTimeCounters.h"
#include "ServiceFactory.h"

using android::sp;
using velmar::WakeWordService;
using wws_test::ServiceConfig;

namespace {

// Delivers buffers of frames (after one uncounted warm-up) and expects the feeding thread to have
// allocated nothing and locked nothing.
void expectRealTime(WakeWordService& service, size_t frames, int buffers, bool playback = false) {
    SCOPED_TRACE(testing::Message() << frames << " frames" << (playback ? " of playback" : ""));
    std::vector<int16_t> samples(frames * (playback ? 1 : velmar::gChannelCount), 7);
    auto deliver = [&] {
        if (playback) {
            wws_test::deliverPlayback(service, samples);
        } else {
            wws_test::deliverInput(service, samples, frames);
        }
    };
    deliver();
    wws_test::CountingScope counting;
    for (int i = 0; i < buffers; ++i) deliver();
    counting.pause();
    EXPECT_EQ(0, wws_test::gAllocations.load());
    EXPECT_EQ(0, wws_test::gLocks.load());
}

class AudioPathRealTime : public testing::Test {
  protected:
    void SetUp() override {
        norvo_fake::reset();
        norvo_fake::setAudioPushesIgnored(true);
    }
    void TearDown() override { norvo_fake::reset(); }
};

}  // namespace

TEST_F(AudioPathRealTime, MonoAndThreeChannelMicrophoneBuffers) {
    for (bool threeChannels : {false, true}) {
        SCOPED_TRACE(threeChannels);
        ServiceConfig config;
        config.threeChannelInput = threeChannels;
        sp<WakeWordService> service = wws_test::createService(config);
        ASSERT_EQ(0, service->mInitStatus);
        for (size_t frames : {160u, 480u, 1600u}) expectRealTime(*service, frames, 1000);
        // Every buffer above was accepted and counted.
        EXPECT_EQ(1001u * (160 + 480 + 1600), service->mInputFrameCount);
    }
}

TEST_F(AudioPathRealTime, OneMicSplitUpToTheBound) {
    ServiceConfig config;
    config.oneMicEnabled = true;
    config.oneMicAudioStream = wws_test::makeStream();
    sp<WakeWordService> service = wws_test::createService(config);
    ASSERT_EQ(0, service->mInitStatus);
    expectRealTime(*service, 160, 1000);
    expectRealTime(*service, WakeWordService::kMaxFramesPerBuffer, 20);
    EXPECT_EQ(1001u * 160 + 21u * WakeWordService::kMaxFramesPerBuffer, service->mInputFrameCount);
}

TEST_F(AudioPathRealTime, PlaybackBuffersToThePlaybackDecoder) {
    ServiceConfig config;
    config.playbackViaAudioRecord = true;
    sp<WakeWordService> service = wws_test::createService(config);
    ASSERT_EQ(0, service->mInitStatus);
    ASSERT_TRUE(service->mPlaybackModelReady);
    for (size_t frames : {160u, 256u, 1600u}) expectRealTime(*service, frames, 1000, true);
    EXPECT_EQ(1001u * (160 + 256 + 1600), service->mPlaybackFrameCount);
}

#ifdef WWS_COUNT_LOCKS
// The counter itself: a path that locks is seen.
TEST_F(AudioPathRealTime, LockCounterSeesAMutex) {
    std::mutex mutex;
    wws_test::CountingScope counting;
    mutex.lock();
    mutex.unlock();
    counting.pause();
    EXPECT_EQ(1, wws_test::gLocks.load());
}
#endif
