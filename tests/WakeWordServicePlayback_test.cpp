// The playback path: what the playback decoder receives and when, the playback frame counter, the
// push switch, and playback states as engine client events. Injected versus live playback is
// WakeWordServiceInput's, with the microphone.
#include <media/AudioRecord.h>

#include "ServiceTest.h"
#include "WavFile.h"

namespace {

using wws_test::clientEvents;

class WakeWordServicePlayback : public wws_test::ServiceTest {
  protected:
    void SetUp() override {
        ServiceTest::SetUp();
        config.playbackViaAudioRecord = true;
    }
};

}  // namespace

// Buffers go to the playback decoder with their own running index, and only there. With pushing
// off they are counted but not pushed, and the index still counts them.
TEST_F(WakeWordServicePlayback, BuffersArePushedWithTheirOwnRunningIndexUnlessPushingIsOff) {
    sp<WakeWordService> service = start();
    std::vector<int16_t> first = wws_test::rampSamples(256, 100);
    std::vector<int16_t> second = wws_test::rampSamples(256, -900);
    wws_test::deliverPlayback(*service, first);
    wws_test::deliverPlayback(*service, second);
    EXPECT_EQ((std::vector<std::string>{sampleEvent(256, 0), sampleEvent(256, 256)}),
              norvo_fake::pushedMetadata(kPlayback));
    std::vector<int16_t> both = first;
    both.insert(both.end(), second.begin(), second.end());
    EXPECT_EQ(both, norvo_fake::pushedSamples(kPlayback));
    EXPECT_EQ(512u, service->mPlaybackFrameCount);
    EXPECT_EQ(0u, service->mInputFrameCount);
    EXPECT_TRUE(norvo_fake::pushedMetadata(kInput).empty());
    EXPECT_TRUE(log.messages(ANDROID_LOG_ERROR, kTag).empty());

    EXPECT_TRUE(service->setPushDataToPlaybackDetectorEnabled(false));  // the previous value
    EXPECT_FALSE(service->setPushDataToPlaybackDetectorEnabled(false));
    wws_test::deliverPlayback(*service, first);
    EXPECT_EQ(768u, service->mPlaybackFrameCount);
    EXPECT_EQ(2u, norvo_fake::pushedMetadata(kPlayback).size());
    EXPECT_FALSE(service->setPushDataToPlaybackDetectorEnabled(true));
    wws_test::deliverPlayback(*service, second);
    EXPECT_EQ(sampleEvent(256, 768), norvo_fake::pushedMetadata(kPlayback).back());
}

// Each stream state becomes its client event for the input decoder, then for a separate
// turn-taking decoder; a status the input decoder returns stops there.
TEST_F(WakeWordServicePlayback, PlaybackStatesBecomeClientEvents) {
    config.ttsStreamType = AUDIO_STREAM_TTS;
    config.preloadNttModel = true;
    sp<WakeWordService> service = start();
    EXPECT_EQ(0, service->processPlaybackNotifierCallback(true, AUDIO_STREAM_MUSIC));
    EXPECT_EQ(0, service->processPlaybackNotifierCallback(false, AUDIO_STREAM_TTS));
    EXPECT_EQ(0, service->processPlaybackNotifierCallback(true, AUDIO_STREAM_ALARM));
    EXPECT_EQ(0, service->processPlaybackNotifierCallback(true, AUDIO_STREAM_NOTIFICATION));
    const std::vector<std::string> states{"AudioPlayerState|1", "TTSPlayerState|0", "AlarmState|1"};
    std::vector<std::string> input = clientEvents(kInput);
    EXPECT_EQ(states, std::vector<std::string>(input.end() - 3, input.end()));
    EXPECT_EQ(states, clientEvents("wws_ntt"));

    norvo_fake::setStatus("NorvoDecoder_PushClientEvents", kInput, 6);
    EXPECT_EQ(6, service->processPlaybackNotifierCallback(false, AUDIO_STREAM_ALARM));
    EXPECT_EQ(3u, clientEvents("wws_ntt").size());
}

// The notifier the service runs reports through the service to the engine.
TEST_F(WakeWordServicePlayback, NotifierStartsWithTheServiceAndStopsWithIt) {
    config.suppressPlaybackAtInit = false;
    config.ttsStreamType = AUDIO_STREAM_TTS;
    sp<WakeWordService> service = start();
    auto has = [](const std::string& event) {
        std::vector<std::string> events = clientEvents(kInput);
        return std::find(events.begin(), events.end(), event) != events.end();
    };
    EXPECT_TRUE(has("TTSPlayerState|0"));  // sampled by startMonitor() within initialize()
    EXPECT_TRUE(wws_test::waitFor([&] { return has("AudioPlayerState|0") && has("AlarmState|0"); }));
    host::setStreamActive(AUDIO_STREAM_MUSIC, true);
    EXPECT_TRUE(wws_test::waitFor([&] { return has("AudioPlayerState|1"); }));

    EXPECT_EQ(0, service->notifyTtsState(true));
    EXPECT_EQ("TTSPlayerState|1", clientEvents(kInput).back());

    sp<velmar::PlaybackStatusNotifier> notifier = service->mPlaybackStatusNotifier;
    service->playbackDestroy();
    EXPECT_FALSE(notifier->isRunning());
    EXPECT_EQ(22, service->notifyTtsState(false));
    EXPECT_TRUE(log.contains(ANDROID_LOG_ERROR, kTag, "notifyTtsState: mPlaybackStatusNotifier is null."));
}
