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
    void TearDown() override { norvo_fake::reset(); }
};

}  // namespace

// Each configuration with the buffer sizes (frames, buffers) it is fed; every buffer fed is
// accepted and counted.
TEST_F(AudioPathRealTime, MicrophoneAndPlaybackBuffers) {
    const size_t bound = WakeWordService::kMaxFramesPerBuffer;
    struct Case {
        const char* name;
        bool threeChannels, oneMic, playback;
        std::vector<std::pair<size_t, int>> feeds;
    } cases[] = {
            {"mono", false, false, false, {{160, 1000}, {480, 1000}, {1600, 1000}}},
            {"three channels", true, false, false, {{160, 1000}, {480, 1000}, {1600, 1000}}},
            {"one mic up to the bound", false, true, false, {{160, 1000}, {bound, 20}}},
            {"playback", false, false, true, {{160, 1000}, {256, 1000}, {1600, 1000}}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        norvo_fake::reset();
        norvo_fake::setAudioPushesIgnored(true);
        ServiceConfig config;
        config.threeChannelInput = c.threeChannels;
        config.oneMicEnabled = c.oneMic;
        if (c.oneMic) config.oneMicAudioStream = wws_test::makeStream();
        config.playbackViaAudioRecord = c.playback;
        sp<WakeWordService> service = wws_test::createService(config);
        ASSERT_EQ(0, service->mInitStatus);
        ASSERT_EQ(c.playback, service->mPlaybackModelReady.load());
        uint64_t fed = 0;
        for (const auto& feed : c.feeds) {
            expectRealTime(*service, feed.first, feed.second, c.playback);
            fed += (feed.second + 1u) * feed.first;  // with the warm-up buffer
        }
        EXPECT_EQ(fed, c.playback ? service->mPlaybackFrameCount : service->mInputFrameCount);
    }
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
