// The input audio path: what each decoder and each mirror stream receives for mono, one-mic and
// three-channel input, the frame bound, the drop rules, test mode, the fan-out order and the fatal
// engine status.
#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <numeric>
#include <thread>

#include "ServiceTest.h"
#include "TestMediaSources.h"

namespace {

std::vector<int16_t> interleaved(size_t frames, uint32_t channels, int16_t first = 1) {
    // Channel c of frame f holds first + f * 10 + c: every sample tells where it came from.
    std::vector<int16_t> samples(frames * channels);
    for (size_t f = 0; f < frames; ++f) {
        for (uint32_t c = 0; c < channels; ++c) {
            samples[f * channels + c] = static_cast<int16_t>(first + f * 10 + c);
        }
    }
    return samples;
}

std::vector<int16_t> channel(const std::vector<int16_t>& samples, uint32_t channels, uint32_t c) {
    std::vector<int16_t> one;
    for (size_t i = c; i < samples.size(); i += channels) one.push_back(samples[i]);
    return one;
}

using WakeWordServiceInput = wws_test::ServiceTest;

}  // namespace

// What each layout hands the main stream, the one-mic stream and the input decoder: mono as it
// is; one-mic input split, channel 0 to the stream and decoder and channel 1 to its own stream;
// three channels whole (a one-mic stream is then ignored). Counters and sample events count
// frames, and the event carries every channel's samples.
TEST_F(WakeWordServiceInput, EachLayoutReachesItsStreamsAndTheDecoder) {
    struct Case {
        bool oneMic;
        bool threeChannels;
        uint32_t channels;
    } cases[] = {{false, false, 1}, {true, false, 2}, {true, true, 3}};
    for (const Case& c : cases) {
        SCOPED_TRACE(c.channels);
        norvo_fake::reset();
        ServiceConfig each;
        each.oneMicEnabled = c.oneMic;
        each.oneMicAudioStream = wws_test::makeStream();
        each.threeChannelInput = c.threeChannels;
        sp<WakeWordService> service = wws_test::createService(each);
        auto main = wws_test::readerAtEnd(each.audioStream);
        auto oneMic = wws_test::readerAtEnd(each.oneMicAudioStream);
        std::vector<int16_t> frames = interleaved(160, c.channels);
        wws_test::deliverInput(*service, frames, 160);
        wws_test::deliverInput(*service, frames, 160);

        auto twice = [](std::vector<int16_t> once) {
            std::vector<int16_t> both = once;
            both.insert(both.end(), once.begin(), once.end());
            return both;
        };
        std::vector<int16_t> heard = c.channels == 2 ? channel(frames, 2, 0) : frames;
        EXPECT_EQ(twice(heard), wws_test::drain(main));
        EXPECT_EQ(twice(heard), norvo_fake::pushedSamples(kInput));
        EXPECT_EQ(c.channels == 2 ? twice(channel(frames, 2, 1)) : std::vector<int16_t>(),
                  wws_test::drain(oneMic));
        const unsigned samples = static_cast<unsigned>(heard.size());
        EXPECT_EQ((std::vector<std::string>{sampleEvent(samples, 0), sampleEvent(samples, 160)}),
                  norvo_fake::pushedMetadata(kInput));
        EXPECT_EQ(320u, service->mInputFrameCount);
    }
}

// Buffers outside 1..240000 frames are dropped with a message naming their source and followed
// by the boundary dump; overruns are only warnings.
TEST_F(WakeWordServiceInput, FrameCountsOutsideOneTo240000AreDropped) {
    config.playbackViaAudioRecord = true;
    sp<WakeWordService> service = start();
    log.clear();
    std::vector<int16_t> big(240001);
    std::vector<int16_t> none;
    wws_test::deliverInput(*service, big, 240001);
    wws_test::deliverInput(*service, big, 0);
    wws_test::deliverPlayback(*service, none);
    WakeWordService::audioRecordCallbackFn(android::AudioRecord::EVENT_OVERRUN, service.get(),
                                           nullptr);
    WakeWordService::playbackAudioRecordCallbackFn(android::AudioRecord::EVENT_OVERRUN,
                                                   service.get(), nullptr);
    const std::string bounds = ", minAllowed=1, maxAllowed=240000, mInputFrameCount=0, "
                               "mPlaybackFrameCount=0";
    EXPECT_EQ((std::vector<std::string>{
                      "EVENT_MORE_DATA: audioBuffer->frameCount from input is out of range. "
                      "frameCount=240001" + bounds,
                      "EVENT_MORE_DATA: audioBuffer->frameCount from input is out of range. "
                      "frameCount=0" + bounds,
                      "EVENT_MORE_DATA: audioBuffer->frameCount from playback is out of range. "
                      "frameCount=0" + bounds}),
              log.messages(ANDROID_LOG_ERROR, kTag));
    EXPECT_EQ((std::vector<std::string>{"[input] AudioRecord reported overrun!",
                                        "[playback] AudioRecord reported overrun!"}),
              log.messages(ANDROID_LOG_WARN, kTag));
    // Each drop is followed by the boundary dump (two guard lines with this text per dump).
    EXPECT_EQ(6u, log.count("FRAME_COUNT_BOUNDARIES: before_boundary=0xdeadbeef"));
    EXPECT_TRUE(norvo_fake::pushedMetadata(kInput).empty());

    wws_test::deliverInput(*service, big, 240000);
    EXPECT_EQ(240000u, service->mInputFrameCount);
    EXPECT_EQ(sampleEvent(240000, 0), norvo_fake::pushedMetadata(kInput).back());
}

TEST_F(WakeWordServiceInput, BuffersWithoutModelOrWriterAreNotCounted) {
    sp<WakeWordService> service = start();
    auto mirror = wws_test::readerAtEnd(config.audioStream);
    std::vector<int16_t> samples = interleaved(320, 1);

    service->destroyNorvoModel();
    wws_test::deliverInput(*service, samples, 320);
    EXPECT_TRUE(log.contains(ANDROID_LOG_ERROR, kTag, "Error: mInputModelReady not ready"));
    EXPECT_FALSE(log.contains("Error processing audio from input: 0"));  // dropping is not failing
    EXPECT_EQ(0u, service->mInputFrameCount);
    EXPECT_TRUE(wws_test::drain(mirror).empty());

    ASSERT_EQ(0, service->setNewNorvoModel("/m", config.wakeWords.data(), 1));
    ASSERT_EQ(0, service->stopAudioStream());
    EXPECT_EQ(android::INVALID_OPERATION, service->stopAudioStream());
    log.clear();
    wws_test::deliverInput(*service, samples, 320);
    EXPECT_EQ((std::vector<std::string>{"Error: cannot find AudioStreamWriter",
                                        "Error processing audio from input: -22"}),
              log.messages(ANDROID_LOG_ERROR, kTag));
    EXPECT_EQ(0u, service->mInputFrameCount);
    EXPECT_TRUE(norvo_fake::pushedMetadata(kInput).empty());
}

// Injected mono blocks are copied into every channel and, unlike the microphone, are not silenced
// in test mode (which zeroes one sample per frame: the first third of a three-channel buffer);
// playback-flagged blocks never touch the input counter.
TEST_F(WakeWordServiceInput, InjectedMonoFillsEveryChannelAndIsNotSilencedInTestMode) {
    config.threeChannelInput = true;
    sp<WakeWordService> service = start();
    auto mirror = wws_test::readerAtEnd(config.audioStream);
    velmar::gTestMode = true;
    std::vector<int16_t> microphone = interleaved(160, 3);
    wws_test::deliverInput(*service, microphone, 160);
    std::vector<int16_t> mono = interleaved(128, 1);
    WakeWordService::injectorCallbackFn(service.get(), mono.data(), 128, false);
    std::vector<int16_t> expected = microphone;
    std::fill(expected.begin(), expected.begin() + 160, 0);
    for (int16_t s : mono) expected.insert(expected.end(), {s, s, s});
    EXPECT_EQ(expected, norvo_fake::pushedSamples(kInput));
    EXPECT_EQ(expected, wws_test::drain(mirror));
    EXPECT_EQ((std::vector<std::string>{sampleEvent(480, 0), sampleEvent(384, 160)}),
              norvo_fake::pushedMetadata(kInput));
    WakeWordService::injectorCallbackFn(service.get(), mono.data(), 128, true);
    EXPECT_EQ(288u, service->mInputFrameCount);
}

// While a file is injected on a path, that path's live audio is neither counted nor pushed; the
// file reaches the path's decoder, the other path's counter stays, and live audio counts again
// once the file is done.
TEST_F(WakeWordServiceInput, LiveAudioIsIgnoredWhileAFileIsInjectedOnItsPath) {
    config.playbackViaAudioRecord = true;
    sp<WakeWordService> service = start();
    for (bool playback : {false, true}) {
        SCOPED_TRACE(playback ? "playback" : "input");
        const char* decoder = playback ? kPlayback : kInput;
        const std::atomic<uint64_t>& frames =
                playback ? service->mPlaybackFrameCount : service->mInputFrameCount;
        const std::atomic<uint64_t>& other =
                playback ? service->mInputFrameCount : service->mPlaybackFrameCount;
        const uint64_t otherBefore = other;
        std::vector<int16_t> file = interleaved(256, 1, -3000);
        sp<wws_test::GatedSource> source = new wws_test::GatedSource(file);
        ASSERT_EQ(0, service->mInjector->doPushInRealTime(source, playback));
        std::vector<int16_t> live = interleaved(320, 1);
        auto deliverLive = [&] {
            if (playback) wws_test::deliverPlayback(*service, live);
            else wws_test::deliverInput(*service, live, 320);
        };
        deliverLive();
        // Live playback from a stream is ignored the same way.
        if (playback) WakeWordService::playbackAudioCallbackFn(service.get(), live.data(), 320, 0);
        EXPECT_EQ(0u, frames);
        EXPECT_TRUE(norvo_fake::pushedMetadata(decoder).empty());

        source->open();
        ASSERT_TRUE(wws_test::waitFor([&] { return !service->mInjector->isInjecting(); }));
        EXPECT_EQ(file, norvo_fake::pushedSamples(decoder));
        EXPECT_EQ(otherBefore, other);
        deliverLive();
        EXPECT_EQ(256u + 320u, frames);
    }
}

// An injected block that arrives while a microphone buffer is being pushed waits until that buffer
// is done: the two never interleave in the decoder, and the injection never writes into the
// microphone's split buffers. The hook holds the microphone's push open for half a second, time
// enough for an injector that does not wait to push its block.
TEST_F(WakeWordServiceInput, InjectedBlockWaitsForTheLiveBufferInFlight) {
    config.oneMicEnabled = true;
    config.oneMicAudioStream = wws_test::makeStream();
    sp<WakeWordService> service = start();
    std::vector<int16_t> microphone = interleaved(160, 2);
    std::vector<int16_t> injected(160, -7);
    std::thread injector;
    bool pushedWhileLiveInFlight = false;
    norvo_fake::setBeforeAudioPush([&](const std::string&) {
        if (injector.joinable()) return;
        injector = std::thread([&] {
            WakeWordService::injectorCallbackFn(service.get(), injected.data(), 160, false);
        });
        pushedWhileLiveInFlight = wws_test::waitFor(
                [] { return !norvo_fake::pushedSamples(kInput).empty(); },
                std::chrono::milliseconds(500));
    });
    wws_test::deliverInput(*service, microphone, 160);
    injector.join();

    EXPECT_FALSE(pushedWhileLiveInFlight);
    std::vector<int16_t> pushed = norvo_fake::pushedSamples(kInput);
    ASSERT_EQ(320u, pushed.size());
    EXPECT_EQ(channel(microphone, 2, 0), std::vector<int16_t>(pushed.begin(), pushed.begin() + 160));
    EXPECT_EQ(injected, std::vector<int16_t>(pushed.begin() + 160, pushed.end()));
}

// Each buffer goes to the input, AED and NTT decoders in that order with one sample event. An
// AED failure is returned at once, before NTT; an input decoder failure is overwritten by the
// steps after it and reported only when they are off.
TEST_F(WakeWordServiceInput, FanOutOrderAndWhichFailureIsReported) {
    config.aedAvailable = true;
    sp<WakeWordService> service = start();
    ASSERT_EQ(0, service->setAudioEventDetectionMode(true));
    ASSERT_EQ(0, service->setNttDetectionMode(true, 0));
    std::vector<int16_t> samples = interleaved(160, 1);
    size_t mark = norvo_fake::calls().size();
    wws_test::deliverInput(*service, samples, 160);
    std::vector<std::string> order;
    auto all = norvo_fake::calls();
    for (size_t i = mark; i < all.size(); ++i) {
        ASSERT_EQ("NorvoDecoder_PushAudioEvent", all[i].op);
        EXPECT_EQ(sampleEvent(160, 0), all[i].args[2]);
        order.push_back(all[i].args[0]);
    }
    EXPECT_EQ((std::vector<std::string>{kInput, "WakeWordService_audiopresence_decoder",
                                        "wws_ntt"}),
              order);

    norvo_fake::setStatus("NorvoDecoder_PushAudioEvent", kInput, 5);
    EXPECT_EQ(0, service->passAudioForDetection(samples.data(), 160));
    norvo_fake::setStatus("NorvoDecoder_PushAudioEvent", "WakeWordService_audiopresence_decoder", 6);
    mark = norvo_fake::calls().size();
    EXPECT_EQ(6, service->passAudioForDetection(samples.data(), 160));
    EXPECT_EQ(mark + 2, norvo_fake::calls().size());
    EXPECT_TRUE(log.contains(ANDROID_LOG_ERROR, kTag, "Failed to detect AED data."));

    ASSERT_EQ(0, service->setAudioEventDetectionMode(false));
    ASSERT_EQ(0, service->setNttDetectionMode(false, 0));
    EXPECT_EQ(5, service->passAudioForDetection(samples.data(), 160));
}

TEST(WakeWordServiceInputDeathTest, FatalEngineStatusEndsTheProcess) {
    // Re-executing the test binary is the safe way with threads around, but under an emulator
    // without binfmt support (the ARM build's qemu-arm) the binary cannot be executed directly.
    testing::FLAGS_gtest_death_test_style = getenv("WWS_EMULATED") ? "fast" : "threadsafe";
    EXPECT_DEATH(
            {
                norvo_fake::reset();
                ServiceConfig config;
                sp<WakeWordService> service = wws_test::createService(config);
                norvo_fake::setStatus("NorvoDecoder_PushAudioEvent", NORVO_ERROR_FATAL);
                std::vector<int16_t> samples(320);
                wws_test::deliverInput(*service, samples, 320);
            },
            "Fatal error from Norvo");
}

