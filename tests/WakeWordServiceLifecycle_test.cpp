// initialize / destroy / release / dump, and the reference-counted lifecycle around them.
#include <gtest/gtest.h>
#include <media/HostAudio.h>
#include <norvo_fake/FakeNorvo.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "LogCapture.h"
#include "ServiceFactory.h"
#include "Wait.h"

using android::sp;
using velmar::WakeWordService;
using wws_test::LogCapture;
using wws_test::ServiceConfig;

namespace {

constexpr const char* kTag = "WakeWordService";
constexpr const char* kInputDecoder = "WakeWordService_input_decoder";
namespace host = android::host;

// The callback removals destroy() makes, in order.
const std::vector<std::string> kRemovals = {
        "NorvoApi_SetEnumeratedResultCallback",
        "NorvoApi_SetLoggingCallback",
        "NorvoApi_SetDmsMetricsCallback",
        "NorvoApi_SetDmsQuillanMetricsCallback",
        "NorvoApi_SetFederatedLearningEventCallback",
        "NorvoApi_SetFederatedLearningUnsecuredEventCallback",
        "NorvoApi_SetFederatedLearningIdleDetectionCallback",
        "NorvoApi_SetPresenceDetectionResultCallback",
};
const std::vector<std::string> kRemovalErrors = {
        "Error removing EnumeratedResultCallback.",
        "Error removing LoggingCallback.",
        "Error removing DMSMetricsCallback.",
        "Error removing DMSQuillanMetricsCallback.",
        "Error removing FederatedLearningEventCallback.",
        "Error removing FederatedLearningUnsecuredEventCallback.",
        "Error removing FederatedLearningIdleDetectionCallback.",
        "Error removing PresenceDetectionResultCallback.",
};

// Null-callback registrations made since call index `from`, in order.
std::vector<std::string> nullRegistrationsSince(size_t from) {
    std::vector<norvo_fake::Call> all = norvo_fake::calls();
    std::vector<std::string> names;
    for (size_t i = from; i < all.size(); ++i) {
        if (all[i].op.rfind("NorvoApi_Set", 0) == 0 && all[i].args.size() == 1 &&
            all[i].args[0] == "null") {
            names.push_back(all[i].op);
        }
    }
    return names;
}

std::string dumpText(WakeWordService& service) {
    int fds[2];
    EXPECT_EQ(0, pipe(fds));
    EXPECT_EQ(0, service.dump(fds[1], android::Vector<android::String16>()));
    close(fds[1]);
    char buffer[512];
    ssize_t n = read(fds[0], buffer, sizeof(buffer));
    close(fds[0]);
    return n > 0 ? std::string(buffer, static_cast<size_t>(n)) : std::string();
}

class WakeWordServiceLifecycle : public testing::Test {
  protected:
    void SetUp() override { norvo_fake::reset(); }
    LogCapture log;
    ServiceConfig config;
};

}  // namespace

TEST_F(WakeWordServiceLifecycle, FirstStrongReferenceInitializesAndOpensTheMainWriter) {
    sp<WakeWordService> service = wws_test::createService(config);
    EXPECT_EQ(0, service->mInitStatus);
    EXPECT_NE(nullptr, service->mAudioStreamWriter);
    EXPECT_EQ(nullptr, service->mOneMicAudioStreamWriter);
    EXPECT_TRUE(log.contains(ANDROID_LOG_INFO, kTag, "OneMicAudio disabled."));
    EXPECT_FALSE(log.contains("OneMicAudio enabled."));
    // The stream has its one writer now: a second writer cannot be opened.
    sp<velmar::AudioStreamWriter> other;
    EXPECT_EQ(android::INVALID_OPERATION, config.audioStream->openWriter(other));
}

TEST_F(WakeWordServiceLifecycle, OneMicStreamGetsItsOwnWriter) {
    config.oneMicEnabled = true;
    config.oneMicAudioStream = wws_test::makeStream();
    sp<WakeWordService> service = wws_test::createService(config);
    EXPECT_EQ(0, service->mInitStatus);
    EXPECT_NE(nullptr, service->mAudioStreamWriter);
    EXPECT_NE(nullptr, service->mOneMicAudioStreamWriter);
    EXPECT_TRUE(log.contains(ANDROID_LOG_INFO, kTag, "OneMicAudio enabled."));
}

TEST_F(WakeWordServiceLifecycle, SuppressedPlaybackIsLoggedAndDoesNotFailInit) {
    config.suppressPlaybackAtInit = true;
    sp<WakeWordService> service = wws_test::createService(config);
    EXPECT_EQ(0, service->mInitStatus);
    EXPECT_TRUE(log.contains(
            ANDROID_LOG_DEBUG, kTag,
            "Will NOT initialize playback as it is suppressed at ww service initiation time"));
}

TEST_F(WakeWordServiceLifecycle, MainWriterFailureRunsDestroyAndKeepsTheStatus) {
    sp<velmar::AudioStreamWriter> squatter;
    ASSERT_EQ(0, config.audioStream->openWriter(squatter));

    sp<WakeWordService> service = wws_test::createService(config);

    EXPECT_EQ(android::INVALID_OPERATION, service->mInitStatus);
    std::vector<std::string> errors = log.messages(ANDROID_LOG_ERROR, kTag);
    ASSERT_GE(errors.size(), 3u);
    EXPECT_EQ("Unable to open AudioStreamWriter (-38)", errors[0]);
    EXPECT_EQ("Error opening the AudioStream (-38)", errors[1]);
    EXPECT_EQ("Error initializing WakeWordService: -38", errors[2]);
    // destroy() ran on the failure path: its removals were made and its resets applied.
    EXPECT_EQ(kRemovals, nullRegistrationsSince(0));
    EXPECT_EQ(0u, service->mBytesPerSample);
    EXPECT_FALSE(log.contains("OneMicAudio disabled."));
}

TEST_F(WakeWordServiceLifecycle, MissingOneMicStreamFailsInit) {
    config.oneMicEnabled = true;  // but no one-mic stream
    sp<WakeWordService> service = wws_test::createService(config);
    EXPECT_EQ(android::INVALID_OPERATION, service->mInitStatus);
    std::vector<std::string> errors = log.messages(ANDROID_LOG_ERROR, kTag);
    ASSERT_GE(errors.size(), 3u);
    EXPECT_EQ("One Mic AudioStream instance is null", errors[0]);
    EXPECT_EQ("Error opening OneMicAudioStream (-38)", errors[1]);
    EXPECT_EQ("Error initializing WakeWordService: -38", errors[2]);
    EXPECT_FALSE(log.contains("OneMicAudio enabled."));
}

TEST_F(WakeWordServiceLifecycle, DestroyResetsStateAndRemovesCallbacksInOrder) {
    sp<WakeWordService> service = wws_test::createService(config);
    service->mInputFrameCount = 1234;
    service->mDetectorEnabled = true;
    service->mNttDetectionEnabled = true;
    service->mInitStatus = 7;
    size_t mark = norvo_fake::calls().size();

    service->destroy();

    EXPECT_EQ(kRemovals, nullRegistrationsSince(mark));
    EXPECT_EQ(0u, service->mInputFrameCount);
    EXPECT_EQ(nullptr, service->mEnumeratedResultCallback);
    EXPECT_EQ(0, service->mInitStatus);
    EXPECT_FALSE(service->mDetectorEnabled);
    EXPECT_FALSE(service->mNttDetectionEnabled);
    EXPECT_EQ(0u, service->mBytesPerSample);
    // Left alone: the writers, the streams and the callbacks destroy does not remove.
    EXPECT_NE(nullptr, service->mAudioStreamWriter);
    EXPECT_EQ(&wws_test::testJsondata, service->mJsondataCallback);
    EXPECT_TRUE(log.messages(ANDROID_LOG_ERROR, kTag).empty());
}

TEST_F(WakeWordServiceLifecycle, DestroyTwiceRepeatsTheSameHarmlessSequence) {
    sp<WakeWordService> service = wws_test::createService(config);
    size_t first = norvo_fake::calls().size();
    service->destroy();
    size_t second = norvo_fake::calls().size();
    service->destroy();
    std::vector<std::string> all = nullRegistrationsSince(first);
    EXPECT_EQ(kRemovals, nullRegistrationsSince(second));
    EXPECT_EQ(2 * kRemovals.size(), all.size());
    EXPECT_EQ(0, service->mInitStatus);
}

TEST_F(WakeWordServiceLifecycle, EveryFailedRemovalIsLoggedAndTeardownGoesOn) {
    sp<WakeWordService> service = wws_test::createService(config);
    for (const std::string& op : kRemovals) norvo_fake::setStatus(op, 5);
    size_t mark = norvo_fake::calls().size();
    log.clear();

    service->destroy();

    EXPECT_EQ(kRemovals, nullRegistrationsSince(mark));
    EXPECT_EQ(kRemovalErrors, log.messages(ANDROID_LOG_ERROR, kTag));
}

TEST_F(WakeWordServiceLifecycle, NttResultCallbackIsRemovedOnlyWithAnNttDecoder) {
    sp<WakeWordService> service = wws_test::createService(config);
    size_t mark = norvo_fake::calls().size();
    service->destroy();
    EXPECT_TRUE(norvo_fake::callsOf("NorvoApi_SetNttResultCallback").empty());

    service->mNttDecoderReady = true;
    norvo_fake::setStatus("NorvoApi_SetNttResultCallback", 6);
    log.clear();
    mark = norvo_fake::calls().size();
    service->destroy();
    std::vector<std::string> removals = nullRegistrationsSince(mark);
    ASSERT_EQ(kRemovals.size() + 1, removals.size());
    EXPECT_EQ("NorvoApi_SetNttResultCallback", removals.back());
    EXPECT_TRUE(log.contains(ANDROID_LOG_ERROR, kTag, "Error removing NttResultsCallback."));
}

// Teardown stops the capture before it deletes the decoders: no buffer may reach a decoder that
// is going away, and the last reference runs the whole sequence.
TEST_F(WakeWordServiceLifecycle, LastReferenceStopsCaptureBeforeDeletingTheDecoders) {
    host::reset();
    host::attachSource(AUDIO_SOURCE_HOTWORD,
                       new host::GeneratedPcm([](uint64_t, uint32_t) { return 0; }));
    sp<WakeWordService> service = wws_test::createService(config);
    ASSERT_EQ(0, service->setDetectorEnabled(true));
    ASSERT_TRUE(wws_test::waitFor([&] { return service->mInputFrameCount > 0; }));
    int capturingAtDelete = -1;
    norvo_fake::setBeforeDecoderDelete([&](const std::string& id) {
        if (id == kInputDecoder) capturingAtDelete = host::activeRecordings(AUDIO_SOURCE_HOTWORD);
    });
    size_t mark = norvo_fake::calls().size();
    service.clear();
    EXPECT_EQ(0, capturingAtDelete);
    EXPECT_EQ(kRemovals, nullRegistrationsSince(mark));
    host::reset();
}

TEST_F(WakeWordServiceLifecycle, ReleaseChangesNothing) {
    sp<WakeWordService> service = wws_test::createService(config);
    service->mInputFrameCount = 640;
    size_t mark = norvo_fake::calls().size();
    for (int i = 0; i < 3; ++i) service->release();
    EXPECT_EQ(mark, norvo_fake::calls().size());
    EXPECT_EQ(640u, service->mInputFrameCount);
    EXPECT_EQ(0, service->mInitStatus);
    EXPECT_NE(nullptr, service->mAudioStreamWriter);
    EXPECT_EQ(2u, service->mBytesPerSample);
}

TEST_F(WakeWordServiceLifecycle, DumpPrintsTheCounterOverTheSampleSize) {
    sp<WakeWordService> service = wws_test::createService(config);
    service->mInputFrameCount = 32000;
    EXPECT_EQ("Audio frames read: 16000\n", dumpText(*service));

    ServiceConfig wide;
    wide.audioStream = wws_test::makeStream(AUDIO_FORMAT_PCM_24_BIT_PACKED);
    sp<WakeWordService> packed = wws_test::createService(wide);
    packed->mInputFrameCount = 10;  // 64-bit unsigned division: 10 / 3
    EXPECT_EQ("Audio frames read: 3\n", dumpText(*packed));

    // After destroy the sample size is 0: the dump still answers, with no frames.
    service->destroy();
    service->mInputFrameCount = 99;
    EXPECT_EQ("Audio frames read: 0\n", dumpText(*service));
}
