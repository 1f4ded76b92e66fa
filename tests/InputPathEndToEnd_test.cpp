// End to end on the native side: a WAV file injected into the service in real time reaches the
// input decoder sample for sample with running indices, and the mirror stream holds the same
// bytes. Live microphone audio is checked in pieces: the callback's buffers to the decoder
// (WakeWordServiceInput), the recording's frame count (WakeWordServiceControl) and the host
// recording's samples in order (AlsaCapture_test).
#include "ServiceTest.h"
#include "WavFile.h"

namespace {

// Every push's first_sample_index equals the samples pushed before it.
void expectContinuousIndices(const std::vector<std::string>& metadata) {
    unsigned long long expected = 0;
    for (const std::string& event : metadata) {
        unsigned count = 0;
        unsigned long long first = 0;
        ASSERT_EQ(2, sscanf(event.c_str(), "{ \"sample_count\":%u, \"first_sample_index\":%llu }",
                            &count, &first))
                << event;
        EXPECT_EQ(expected, first) << event;
        expected += count;
    }
}

using InputPathEndToEnd = wws_test::ServiceTest;

}  // namespace

TEST_F(InputPathEndToEnd, InjectedFileReachesTheDecoderAndTheMirror) {
    sp<WakeWordService> service = start();
    auto mirror = wws_test::readerAtEnd(config.audioStream);
    std::vector<int16_t> file = wws_test::rampSamples(16050, -8000);
    std::string path = wws_test::writeWav("utterance.wav", file, 16000);

    const auto started = std::chrono::steady_clock::now();
    ASSERT_EQ(0, service->injectWaveFile(path.c_str(), false));
    ASSERT_TRUE(wws_test::waitFor([&] { return !service->mInjector->isInjecting(); },
                                  std::chrono::seconds(20)));
    // Real time: the 125 whole blocks of this 1.003 s file take at least their second. A busy
    // machine only makes it longer.
    EXPECT_GE(std::chrono::steady_clock::now() - started, std::chrono::milliseconds(990));

    EXPECT_EQ(file, norvo_fake::pushedSamples(kInput));
    EXPECT_EQ(file, wws_test::drain(mirror));
    EXPECT_EQ(16050u, service->mInputFrameCount);
    std::vector<std::string> metadata = norvo_fake::pushedMetadata(kInput);
    EXPECT_EQ(126u, metadata.size());
    EXPECT_EQ(wws_test::sampleEvent(50, 16000), metadata.back());
    expectContinuousIndices(metadata);
}

TEST_F(InputPathEndToEnd, FrameCountFailureAbortsInitialisation) {
    host::setMinFrameCount(0, android::NO_INIT);
    config.audioRecordFrameCount = -1;
    sp<WakeWordService> service = wws_test::createService(config);
    EXPECT_EQ(android::NO_INIT, service->mInitStatus);
    EXPECT_TRUE(log.contains(ANDROID_LOG_ERROR, "WakeWordService",
                             "Error initializing AudioRecord. (-19)"));
    EXPECT_EQ(nullptr, service->mAudioInput);
    EXPECT_TRUE(norvo_fake::callsOf("NorvoModelSet_New").empty());
}
