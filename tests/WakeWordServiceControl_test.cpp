// Detection control: capture on and off, keyword sessions, client events, the fingerprint
// database, library attributes, and the refusals of a service whose initialisation failed.
#include <gtest/gtest.h>
#include <binder/HostBinder.h>
#include <host/HostThreads.h>
#include <media/HostAudio.h>
#include <norvo_fake/FakeNorvo.h>

#include <atomic>
#include <thread>

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

class WakeWordServiceControl : public testing::Test {
  protected:
    void SetUp() override {
        norvo_fake::reset();
        host::reset();
        host::attachSource(AUDIO_SOURCE_HOTWORD,
                           new host::GeneratedPcm([](uint64_t, uint32_t) { return 0; }));
    }
    void TearDown() override { host::reset(); }
    std::vector<std::vector<std::string>> clientEvents() {
        std::vector<std::vector<std::string>> events;
        for (const auto& call : norvo_fake::callsOf("NorvoDecoder_PushClientEvents")) {
            events.push_back(call.args);
        }
        return events;
    }
    LogCapture log;
    ServiceConfig config;
};

}  // namespace

TEST_F(WakeWordServiceControl, DetectorSwitchStartsAndStopsCapture) {
    sp<WakeWordService> service = wws_test::createService(config);
    EXPECT_EQ(0, host::recordingsCreated(AUDIO_SOURCE_HOTWORD));  // nothing runs after init
    bool enabled = true;
    EXPECT_EQ(0, service->getDetectorEnabled(&enabled));
    EXPECT_FALSE(enabled);

    EXPECT_EQ(0, service->setDetectorEnabled(true));
    EXPECT_TRUE(service->mAudioInput->isRunning());
    EXPECT_TRUE(wws_test::waitFor([] { return host::activeRecordings(AUDIO_SOURCE_HOTWORD) == 1; }));
    EXPECT_EQ(0, service->setDetectorEnabled(true));  // unchanged: nothing more happens
    EXPECT_EQ(1, host::recordingsCreated(AUDIO_SOURCE_HOTWORD));
    EXPECT_EQ(1u, log.count("Enabling wake word detection."));
    EXPECT_TRUE(wws_test::waitFor([&] { return service->mInputFrameCount > 0; }));

    EXPECT_EQ(0, service->setDetectorEnabled(false));
    EXPECT_FALSE(service->mAudioInput->isRunning());
    EXPECT_EQ(0, host::activeRecordings(AUDIO_SOURCE_HOTWORD));
    EXPECT_EQ(0, service->setDetectorEnabled(false));
    EXPECT_EQ(1u, log.count("Disabling wake word detection."));
    EXPECT_EQ(0, service->getDetectorEnabled(&enabled));
    EXPECT_FALSE(enabled);

    // resetAudioInput restarts a running capture and leaves a stopped one alone.
    EXPECT_EQ(0, service->resetAudioInput());
    EXPECT_TRUE(log.contains(ANDROID_LOG_WARN, kTag,
                             "resetAudioInput: audio input is not enabled. Skipping reset"));
    ASSERT_EQ(0, service->setDetectorEnabled(true));
    EXPECT_EQ(0, service->resetAudioInput());
    EXPECT_TRUE(service->mDetectorEnabled);
    EXPECT_EQ(2u, log.count("Disabling wake word detection."));
}

TEST_F(WakeWordServiceControl, CaptureThatCannotStartLeavesDetectionOff) {
    sp<WakeWordService> service = wws_test::createService(config);
    host::failNextThreadCreation("AudioRecordInput");
    const android::status_t status = service->setDetectorEnabled(true);
    EXPECT_NE(0, status);
    bool enabled = true;
    EXPECT_EQ(0, service->getDetectorEnabled(&enabled));
    EXPECT_FALSE(enabled);
    EXPECT_EQ(0, host::activeRecordings(AUDIO_SOURCE_HOTWORD));
    // Detection is off, so switching it off changes nothing; switching it on works now.
    EXPECT_EQ(0, service->setDetectorEnabled(false));
    EXPECT_EQ(0u, log.count("Disabling wake word detection."));
    EXPECT_EQ(0, service->setDetectorEnabled(true));
    EXPECT_TRUE(wws_test::waitFor([] { return host::activeRecordings(AUDIO_SOURCE_HOTWORD) == 1; }));
}

TEST_F(WakeWordServiceControl, DisablingWakeWordsEndsBothSessionsOnce) {
    sp<WakeWordService> service = wws_test::createService(config);
    EXPECT_EQ(0, service->setWWDetectionEnabled(true));  // already on
    EXPECT_TRUE(norvo_fake::callsOf("NorvoDecoder_SessionEnd").empty());
    EXPECT_EQ(0, service->setWWDetectionEnabled(false));
    EXPECT_EQ(0, service->setWWDetectionEnabled(false));
    auto ends = norvo_fake::callsOf("NorvoDecoder_SessionEnd");
    ASSERT_EQ(2u, ends.size());
    EXPECT_EQ(kInput, ends[0].args[0]);
    EXPECT_EQ("WakeWordService_playback_decoder", ends[1].args[0]);
    EXPECT_TRUE(log.contains(ANDROID_LOG_DEBUG, kTag, "setWWDetectionEnabled: WW detection status : 0"));
    // The playback decoder does not exist here: the engine says so, and nothing else changes.
    EXPECT_TRUE(log.contains(
            ANDROID_LOG_INFO, kTag,
            "setWWDetectionEnabled: SessionEnd decoder:WakeWordService_input_decoder result:0"));
    EXPECT_TRUE(log.contains(
            ANDROID_LOG_INFO, kTag,
            "setWWDetectionEnabled: SessionEnd decoder:WakeWordService_playback_decoder result:3"));
    EXPECT_EQ(0, service->setWWDetectionEnabled(true));
    EXPECT_EQ(2u, norvo_fake::callsOf("NorvoDecoder_SessionEnd").size());
    EXPECT_TRUE(service->mWWDetectionEnabled);
}

TEST_F(WakeWordServiceControl, ConcurrentSwitchesNeverInterleaveTheirSessionEnds) {
    sp<WakeWordService> service = wws_test::createService(config);
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&service, t] {
            for (int i = 0; i < 50; ++i) service->setWWDetectionEnabled(((i + t) % 2) == 0);
        });
    }
    for (auto& thread : threads) thread.join();
    auto ends = norvo_fake::callsOf("NorvoDecoder_SessionEnd");
    ASSERT_EQ(0u, ends.size() % 2);
    for (size_t i = 0; i < ends.size(); i += 2) {
        EXPECT_EQ(kInput, ends[i].args[0]);
        EXPECT_EQ("WakeWordService_playback_decoder", ends[i + 1].args[0]);
    }
}

TEST_F(WakeWordServiceControl, PropertiesGoToTheInputDecoderThenTheNttDecoder) {
    sp<WakeWordService> service = wws_test::createService(config);
    size_t before = clientEvents().size();
    EXPECT_EQ(0, service->setNorvoProperty("Volume", -3));
    ASSERT_EQ(before + 1, clientEvents().size());
    EXPECT_EQ((std::vector<std::string>{kInput, "1", "Volume", "-3"}), clientEvents().back());

    service->mNttDecoderReady = true;
    norvo_fake::setStatus("NorvoDecoder_PushClientEvents", "wws_ntt", 4);
    log.clear();
    EXPECT_EQ(4, service->setNorvoProperty("Volume", 9));
    auto events = clientEvents();
    EXPECT_EQ("wws_ntt", events.back()[0]);
    EXPECT_EQ(kInput, events[events.size() - 2][0]);
    EXPECT_TRUE(log.contains(ANDROID_LOG_DEBUG, kTag,
                             "event Volume with value 9and decoderId "
                             "WakeWordService_input_decoder has been pushed into Norvo"));
    EXPECT_TRUE(log.contains(ANDROID_LOG_ERROR, kTag, "Error push client event to norvo."));

    // A failing first push is returned and the NTT decoder is not tried.
    norvo_fake::setStatus("NorvoDecoder_PushClientEvents", kInput, 7);
    size_t count = clientEvents().size();
    EXPECT_EQ(7, service->setNorvoProperty("Volume", 1));
    EXPECT_EQ(count + 1, clientEvents().size());

    EXPECT_EQ(0, service->setNorvoAcousticProperty("Threshold", 12));
    EXPECT_EQ((std::vector<std::string>{"WakeWordService_audiopresence_decoder", "1", "Threshold", "12"}),
              clientEvents().back());
}

TEST_F(WakeWordServiceControl, AspEventsReachTheInputAndNttDecoders) {
    sp<WakeWordService> service = wws_test::createService(config);
    size_t before = clientEvents().size();
    WakeWordService::AspEventCallback(service.get(), "ASPState", 1);
    ASSERT_EQ(before + 1, clientEvents().size());
    EXPECT_EQ((std::vector<std::string>{kInput, "1", "ASPState", "1"}), clientEvents().back());

    service->mNttDecoderReady = true;
    norvo_fake::setStatus("NorvoDecoder_PushClientEvents", kInput, 5);  // dropped, not stopping
    WakeWordService::AspEventCallback(service.get(), "ASPState", 0);
    auto events = clientEvents();
    ASSERT_EQ(before + 3, events.size());
    EXPECT_EQ((std::vector<std::string>{"wws_ntt", "1", "ASPState", "0"}), events.back());
}

// The device's signal processor reaches the engine through the monitor the service runs.
TEST_F(WakeWordServiceControl, SignalProcessorStateReachesTheEngine) {
    config.preloadNttModel = true;  // a separate turn-taking decoder hears it too
    sp<WakeWordService> service = wws_test::createService(config);
    ASSERT_TRUE(service->mNttDecoderReady);
    sp<asp::host::AudioSignalProcessorService> processor = wws_test::signalProcessor();
    ASSERT_TRUE(wws_test::waitFor([&] { return processor->listenerCount() == 1; }));
    processor->sendEvent(2, {0, 0, 0, 0});
    android::host::flushBinderThread();
    auto events = clientEvents();
    ASSERT_GE(events.size(), 2u);
    EXPECT_EQ((std::vector<std::string>{kInput, "1", "ASPState", "1"}), events[events.size() - 2]);
    EXPECT_EQ((std::vector<std::string>{"wws_ntt", "1", "ASPState", "1"}), events.back());
    // Teardown: the outstanding 1 is taken back, and the monitor lets go of the processor.
    size_t before = clientEvents().size();
    service.clear();
    EXPECT_EQ(0u, processor->listenerCount());
    events = clientEvents();
    ASSERT_GT(events.size(), before);
    EXPECT_EQ("ASPState", events[before][2]);
    EXPECT_EQ("0", events[before][3]);
}

// Events keep coming while services come and go: none reaches a service being torn down.
TEST_F(WakeWordServiceControl, SignalProcessorEventsDuringTeardownAreHarmless) {
    sp<asp::host::AudioSignalProcessorService> processor = wws_test::signalProcessor();
    std::atomic<bool> done{false};
    std::thread events([&] {
        while (!done) processor->sendEvent(2, {0, 0, 0, 0});
    });
    for (int round = 0; round < 20; ++round) {
        sp<WakeWordService> service = wws_test::createService(config);
        ASSERT_TRUE(wws_test::waitFor([&] { return processor->listenerCount() == 1; }));
        service.clear();
    }
    done = true;
    events.join();
    android::host::flushBinderThread();
    EXPECT_EQ(0u, processor->listenerCount());
}

TEST_F(WakeWordServiceControl, FingerprintDatabaseAndLibraryAttributes) {
    sp<WakeWordService> service = wws_test::createService(config);
    EXPECT_EQ(0, service->setFingerprintDatabase("/data/fp.db"));
    auto calls = norvo_fake::callsOf("NorvoDecoder_SetFingerprintDatabase");
    ASSERT_EQ(1u, calls.size());
    EXPECT_EQ((std::vector<std::string>{kInput, "/data/fp.db"}), calls[0].args);
    norvo_fake::setStatus("NorvoDecoder_SetFingerprintDatabase", 8);
    EXPECT_EQ(8, service->setFingerprintDatabase("/data/fp.db"));
    EXPECT_TRUE(log.contains(ANDROID_LOG_ERROR, kTag, "Error setting fingerpint database"));

    norvo_fake::setLibraryAttributes("{\"engine\":\"x\"}");
    const char* attributes = nullptr;
    EXPECT_EQ(0, service->getNorvoLibraryAttributes(attributes));
    ASSERT_NE(nullptr, attributes);
    EXPECT_STREQ("{\"engine\":\"x\"}", attributes);
    EXPECT_EQ(0, service->setWWDetectionEnabledForLpm(true, 3));
}

TEST_F(WakeWordServiceControl, FailedServiceRefusesWithEachOperationsMessage) {
    norvo_fake::setStatus("NorvoApi_SetLoggingCallback", 9);
    sp<WakeWordService> service = wws_test::createService(config);
    ASSERT_EQ(9, service->mInitStatus);
    norvo_fake::clearStatuses();
    log.clear();
    bool enabled = false;
    const char* attributes = "stale";
    size_t mark = norvo_fake::calls().size();
    EXPECT_EQ(9, service->setDetectorEnabled(true));
    EXPECT_EQ(9, service->getDetectorEnabled(&enabled));
    EXPECT_EQ(9, service->setWWDetectionEnabled(false));
    EXPECT_EQ(9, service->setNorvoProperty("a", 1));
    EXPECT_EQ(9, service->setNorvoAcousticProperty("a", 1));
    EXPECT_EQ(9, service->setFingerprintDatabase("db"));
    EXPECT_EQ(9, service->getNorvoLibraryAttributes(attributes));
    EXPECT_EQ(nullptr, attributes);
    EXPECT_EQ(0, service->setWWDetectionEnabledForLpm(false, 0));
    EXPECT_EQ(mark, norvo_fake::calls().size());  // nothing reached the engine
    EXPECT_EQ((std::vector<std::string>{
                      "setDetectorEnabled: WakeWordService not initialized.",
                      "getDetectorEnabled: WakeWordService not initialized.",
                      "setWWDetectionEnabled: WakeWordService not initialized.",
                      "setNorvoProperty: WakeWordService not initialized.",
                      "setNorvoAcousticProperty: WakeWordService not initialized.",
                      "setFingerprintDatabase: WakeWordService not initialized.",
                      "getNorvoLibraryAttributes: WakeWordService not initialized.",
              }),
              log.messages(ANDROID_LOG_ERROR, kTag));
    // Client events need no initialised service.
    EXPECT_EQ(0, service->pushClientEventToNorvo("X", 1));
}
