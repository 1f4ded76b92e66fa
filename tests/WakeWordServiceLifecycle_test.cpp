// Construction, initialize's failures, destroy's removals and the reference-counted teardown.
#include <unistd.h>

#include "ServiceTest.h"

namespace {

// destroy()'s callback removals, in order, with the message each failed removal logs.
const std::vector<std::pair<std::string, std::string>> kRemovals = {
        {"NorvoApi_SetEnumeratedResultCallback", "Error removing EnumeratedResultCallback."},
        {"NorvoApi_SetLoggingCallback", "Error removing LoggingCallback."},
        {"NorvoApi_SetDmsMetricsCallback", "Error removing DMSMetricsCallback."},
        {"NorvoApi_SetDmsQuillanMetricsCallback", "Error removing DMSQuillanMetricsCallback."},
        {"NorvoApi_SetFederatedLearningEventCallback",
         "Error removing FederatedLearningEventCallback."},
        {"NorvoApi_SetFederatedLearningUnsecuredEventCallback",
         "Error removing FederatedLearningUnsecuredEventCallback."},
        {"NorvoApi_SetFederatedLearningIdleDetectionCallback",
         "Error removing FederatedLearningIdleDetectionCallback."},
        {"NorvoApi_SetPresenceDetectionResultCallback",
         "Error removing PresenceDetectionResultCallback."},
};

std::vector<std::string> removalOps() {
    std::vector<std::string> ops;
    for (const auto& removal : kRemovals) ops.push_back(removal.first);
    return ops;
}

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

using WakeWordServiceLifecycle = wws_test::ServiceTest;

}  // namespace

// Construction alone reaches no engine; the first strong reference initialises. The dump gives
// the frames heard: the byte counter over the sample size.
TEST_F(WakeWordServiceLifecycle, ConstructionStartsNothingAndTheDumpCountsFrames) {
    sp<WakeWordService> service;
    {
        WakeWordService* raw = wws_test::constructService(config);
        EXPECT_TRUE(norvo_fake::calls().empty());
        service = raw;
    }
    EXPECT_EQ(0, service->mInitStatus);
    EXPECT_FALSE(norvo_fake::calls().empty());
    std::vector<int16_t> samples(16000);
    wws_test::deliverInput(*service, samples, samples.size());
    wws_test::deliverInput(*service, samples, samples.size());
    EXPECT_EQ("Audio frames read: 16000\n", dumpText(*service));
}

// A stream that cannot be written fails initialisation with three messages in order, and destroy
// runs on that path.
TEST_F(WakeWordServiceLifecycle, UnusableStreamsFailInitWithTheirMessages) {
    sp<velmar::AudioStreamWriter> squatter;
    ASSERT_EQ(0, config.audioStream->openWriter(squatter));
    sp<WakeWordService> service = wws_test::createService(config);
    EXPECT_EQ(android::INVALID_OPERATION, service->mInitStatus);
    EXPECT_EQ((std::vector<std::string>{"Unable to open AudioStreamWriter (-38)",
                                        "Error opening the AudioStream (-38)",
                                        "Error initializing WakeWordService: -38"}),
              log.messages(ANDROID_LOG_ERROR, kTag));
    EXPECT_EQ(removalOps(), nullRegistrationsSince(0));
    EXPECT_EQ("Audio frames read: 0\n", dumpText(*service));  // sample size reset to 0

}

// destroy() removes its callbacks in order, every time; a failed removal is logged and the
// teardown goes on.
TEST_F(WakeWordServiceLifecycle, DestroyRemovesCallbacksInOrderAndLogsEachFailure) {
    sp<WakeWordService> service = wws_test::createService(config);
    for (int round = 0; round < 2; ++round) {
        SCOPED_TRACE(round);
        size_t mark = norvo_fake::calls().size();
        service->destroy();
        EXPECT_EQ(removalOps(), nullRegistrationsSince(mark));
    }
    for (const auto& removal : kRemovals) norvo_fake::setStatus(removal.first, 5);
    log.clear();
    service->destroy();
    std::vector<std::string> expected;
    std::vector<std::string> logged;
    for (const auto& removal : kRemovals) expected.push_back(removal.second);
    for (const std::string& message : log.messages(ANDROID_LOG_ERROR, kTag)) {
        if (message.rfind("Error removing", 0) == 0) logged.push_back(message);
    }
    EXPECT_EQ(expected, logged);
}

// Teardown stops the capture before it deletes the decoders: no buffer may reach a decoder that
// is going away, and the last reference runs the whole sequence.
TEST_F(WakeWordServiceLifecycle, LastReferenceStopsCaptureBeforeDeletingTheDecoders) {
    sp<WakeWordService> service = wws_test::createService(config);
    ASSERT_EQ(0, service->setDetectorEnabled(true));
    int64_t frames = 0;
    ASSERT_TRUE(wws_test::waitFor([&] { return service->getInputFrameCount(frames) == 0 && frames > 0; }));
    int capturingAtDelete = -1;
    norvo_fake::setBeforeDecoderDelete([&](const std::string& id) {
        if (id == "WakeWordService_input_decoder") {
            capturingAtDelete = host::activeRecordings(AUDIO_SOURCE_HOTWORD);
        }
    });
    size_t mark = norvo_fake::calls().size();
    service.clear();
    EXPECT_EQ(0, capturingAtDelete);
    EXPECT_EQ(removalOps(), nullRegistrationsSince(mark));
}
