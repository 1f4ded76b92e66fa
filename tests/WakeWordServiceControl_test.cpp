// Detection control: capture on and off, keyword sessions, client events, the fingerprint
// database, library attributes, and the refusals of a service whose initialisation failed.
#include <binder/HostBinder.h>
#include <host/HostThreads.h>

#include <atomic>
#include <functional>
#include <thread>

#include "ServiceTest.h"

namespace {

using Args = std::vector<std::string>;

std::vector<Args> clientEvents() {
    std::vector<Args> events;
    for (const auto& call : norvo_fake::callsOf("NorvoDecoder_PushClientEvents")) {
        events.push_back(call.args);
    }
    return events;
}

std::vector<std::string> sessionEnds() {
    std::vector<std::string> ends;
    for (const auto& call : norvo_fake::callsOf("NorvoDecoder_SessionEnd")) {
        ends.push_back(call.args[0]);
    }
    return ends;
}

using WakeWordServiceControl = wws_test::ServiceTest;

}  // namespace

// A capture that cannot start leaves detection off; once it starts, repeated switches change
// nothing. Asked to, the recording takes the platform's minimum frame count.
TEST_F(WakeWordServiceControl, DetectorSwitchStartsAndStopsCaptureOnce) {
    config.audioRecordFrameCount = -1;
    host::setMinFrameCount(160);
    sp<WakeWordService> service = wws_test::createService(config);
    EXPECT_EQ(0, host::recordingsCreated(AUDIO_SOURCE_HOTWORD));  // nothing runs after init
    host::failNextThreadCreation("AudioRecordInput");
    EXPECT_NE(0, service->setDetectorEnabled(true));
    bool enabled = true;
    EXPECT_EQ(0, service->getDetectorEnabled(&enabled));
    EXPECT_FALSE(enabled);

    log.clear();
    EXPECT_EQ(0, service->setDetectorEnabled(true));
    EXPECT_TRUE(wws_test::waitFor([] { return host::activeRecordings(AUDIO_SOURCE_HOTWORD) == 1; }));
    EXPECT_EQ(0, service->setDetectorEnabled(true));  // unchanged: nothing more happens
    EXPECT_EQ(1, host::recordingsCreated(AUDIO_SOURCE_HOTWORD));
    EXPECT_EQ(160u, host::lastRecording(AUDIO_SOURCE_HOTWORD)->frameCount());
    EXPECT_EQ(1u, log.count("Enabling wake word detection."));
    int64_t frames = 0;
    EXPECT_TRUE(wws_test::waitFor([&] { return service->getInputFrameCount(frames) == 0 && frames > 0; }));

    EXPECT_EQ(0, service->setDetectorEnabled(false));
    EXPECT_EQ(0, host::activeRecordings(AUDIO_SOURCE_HOTWORD));
    EXPECT_EQ(0, service->setDetectorEnabled(false));
    EXPECT_EQ(1u, log.count("Disabling wake word detection."));
}

TEST_F(WakeWordServiceControl, DisablingWakeWordsEndsBothSessionsOnce) {
    sp<WakeWordService> service = wws_test::createService(config);
    EXPECT_EQ(0, service->setWWDetectionEnabled(true));  // already on
    EXPECT_EQ(0, service->setWWDetectionEnabled(false));
    EXPECT_EQ(0, service->setWWDetectionEnabled(false));
    EXPECT_EQ((std::vector<std::string>{kInput, kPlayback}), sessionEnds());
    // The playback decoder does not exist here: the engine's status is only logged.
    EXPECT_TRUE(log.contains(
            ANDROID_LOG_INFO, kTag,
            "setWWDetectionEnabled: SessionEnd decoder:WakeWordService_playback_decoder result:3"));
    EXPECT_EQ(0, service->setWWDetectionEnabled(true));
    EXPECT_EQ(2u, sessionEnds().size());
}

// A switch made while another caller is between its two session ends waits for that caller: the
// pairs never interleave. The log line between the two ends is the point of interleaving; the
// other caller gets half a second there, time enough to end its own sessions if nothing stops it.
TEST_F(WakeWordServiceControl, ASwitchBetweenAnotherCallersSessionEndsWaits) {
    sp<WakeWordService> service = wws_test::createService(config);
    std::thread other;
    std::atomic<bool> started{false};
    bool endedMeanwhile = true;
    log.setHook([&](const wws_test::LogLine& line) {
        if (line.message.rfind("setWWDetectionEnabled: SessionEnd decoder:" + std::string(kInput), 0) != 0 ||
            started.exchange(true)) {
            return;
        }
        other = std::thread([&] {
            service->setWWDetectionEnabled(true);
            service->setWWDetectionEnabled(false);
        });
        endedMeanwhile = wws_test::waitFor([] { return sessionEnds().size() > 1; },
                                           std::chrono::milliseconds(500));
    });
    ASSERT_EQ(0, service->setWWDetectionEnabled(false));
    log.setHook(nullptr);
    other.join();
    EXPECT_FALSE(endedMeanwhile);
    EXPECT_EQ((std::vector<std::string>{kInput, kPlayback, kInput, kPlayback}), sessionEnds());
}

// Properties and signal-processor states go to the input decoder, then to a separate turn-taking
// decoder. A property the input decoder refuses is returned and goes no further; a state goes on.
// The acoustic property's decoder is ControlNativesTest's.
TEST_F(WakeWordServiceControl, ClientEventsGoToTheInputThenTheNttDecoder) {
    config.preloadNttModel = true;
    sp<WakeWordService> service = wws_test::createService(config);
    size_t before = clientEvents().size();
    EXPECT_EQ(0, service->setNorvoProperty("Volume", -3));
    WakeWordService::AspEventCallback(service.get(), "ASPState", 1);
    std::vector<Args> events = clientEvents();
    EXPECT_EQ((std::vector<Args>{{kInput, "1", "Volume", "-3"}, {"wws_ntt", "1", "Volume", "-3"},
                                 {kInput, "1", "ASPState", "1"}, {"wws_ntt", "1", "ASPState", "1"}}),
              std::vector<Args>(events.begin() + before, events.end()));

    norvo_fake::setStatus("NorvoDecoder_PushClientEvents", "wws_ntt", 4);
    EXPECT_EQ(4, service->setNorvoProperty("Volume", 9));
    EXPECT_TRUE(log.contains(ANDROID_LOG_ERROR, kTag, "Error push client event to norvo."));
    norvo_fake::setStatus("NorvoDecoder_PushClientEvents", kInput, 7);
    before = clientEvents().size();
    EXPECT_EQ(7, service->setNorvoProperty("Volume", 1));
    WakeWordService::AspEventCallback(service.get(), "ASPState", 0);
    EXPECT_EQ(before + 3, clientEvents().size());
}

// The device's signal processor reaches the engine through the monitor the service runs; teardown
// takes an outstanding 1 back and lets go of the processor.
TEST_F(WakeWordServiceControl, SignalProcessorStateReachesTheEngine) {
    sp<WakeWordService> service = wws_test::createService(config);
    sp<asp::host::AudioSignalProcessorService> processor = wws_test::signalProcessor();
    ASSERT_TRUE(wws_test::waitFor([&] { return processor->listenerCount() == 1; }));
    processor->sendEvent(2, {0, 0, 0, 0});
    android::host::flushBinderThread();
    EXPECT_EQ((Args{kInput, "1", "ASPState", "1"}), clientEvents().back());
    size_t before = clientEvents().size();
    service.clear();
    EXPECT_EQ(0u, processor->listenerCount());
    std::vector<Args> events = clientEvents();
    ASSERT_GT(events.size(), before);
    EXPECT_EQ((Args{kInput, "1", "ASPState", "0"}), events[before]);
}

// The fingerprint database's path and status are ControlNativesTest's, through the bridge.
TEST_F(WakeWordServiceControl, LibraryAttributesAreTheEngines) {
    sp<WakeWordService> service = wws_test::createService(config);
    norvo_fake::setLibraryAttributes("{\"engine\":\"x\"}");
    const char* attributes = nullptr;
    EXPECT_EQ(0, service->getNorvoLibraryAttributes(attributes));
    EXPECT_STREQ("{\"engine\":\"x\"}", attributes);
}

// Every operation of a service whose initialisation failed returns that status with its own
// message and reaches no engine.
TEST_F(WakeWordServiceControl, FailedServiceRefusesWithEachOperationsMessage) {
    norvo_fake::setStatus("NorvoApi_SetLoggingCallback", 9);
    sp<WakeWordService> s = wws_test::createService(config);
    ASSERT_EQ(9, s->mInitStatus);
    norvo_fake::clearStatuses();
    bool enabled = false;
    const char* attributes = "stale";
    const char* json = "stale";
    const std::pair<std::function<android::status_t()>, const char*> operations[] = {
            {[&] { return s->setDetectorEnabled(true); }, "setDetectorEnabled"},
            {[&] { return s->getDetectorEnabled(&enabled); }, "getDetectorEnabled"},
            {[&] { return s->setWWDetectionEnabled(false); }, "setWWDetectionEnabled"},
            {[&] { return s->setNorvoProperty("a", 1); }, "setNorvoProperty"},
            {[&] { return s->setNorvoAcousticProperty("a", 1); }, "setNorvoAcousticProperty"},
            {[&] { return s->setFingerprintDatabase("db"); }, "setFingerprintDatabase"},
            {[&] { return s->getNorvoLibraryAttributes(attributes); }, "getNorvoLibraryAttributes"},
            {[&] { return s->setNttDetectionMode(true, 1); }, "setNttDetectionMode"},
            {[&] { return s->getAudioPresenceData(json); }, "getAudioPresenceData"},
            {[&] { return s->notifyAedModeChange(true); }, "notifyAedModeChange"},
            {[&] { return s->notifyTtsState(true); }, "notifyTtsState"},
    };
    for (const auto& operation : operations) {
        SCOPED_TRACE(operation.second);
        log.clear();
        size_t mark = norvo_fake::calls().size();
        EXPECT_EQ(9, operation.first());
        EXPECT_EQ(mark, norvo_fake::calls().size());
        EXPECT_EQ((std::vector<std::string>{std::string(operation.second) +
                                            ": WakeWordService not initialized."}),
                  log.messages(ANDROID_LOG_ERROR, kTag));
    }
    EXPECT_EQ(nullptr, attributes);
    EXPECT_STREQ("stale", json);

    // The PMA switch tries to revert, which is refused the same way.
    log.clear();
    EXPECT_EQ(9, s->switchPmaModel("/p"));
    EXPECT_EQ((std::vector<std::string>{
                      "initializePmaDecoder: WakeWordService not initialized.",
                      "Failed to switch to PMA model specified by the new manifest path. "
                      "Reverting back to the previous model.",
                      "initializePmaDecoder: WakeWordService not initialized."}),
              log.messages(ANDROID_LOG_ERROR, kTag));
    // Client events and the low-power switch need no initialised service.
    EXPECT_EQ(0, s->pushClientEventToNorvo("X", 1));
    EXPECT_EQ(0, s->setWWDetectionEnabledForLpm(false, 0));
}
