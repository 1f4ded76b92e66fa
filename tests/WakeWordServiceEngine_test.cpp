// Engine setup: the call sequence and arguments, which failures stop it and with which messages,
// and the small static helpers (log and metrics sinks, device JSON, thread priority).
#include <android-base/properties.h>
#include <unistd.h>

#include <thread>

#include "ServiceTest.h"

namespace {

const char* const kDeviceProperties[] = {"ro.build.type", "ro.build.version.release",
                                         "ro.build.display.id", "ro.build.version.incremental",
                                         "ro.product.device"};

void clearDeviceProperties() {
    for (const char* name : kDeviceProperties) android::base::SetProperty(name, "");
}

std::string argOf(const std::string& op, size_t index = 0, size_t which = 0) {
    std::vector<norvo_fake::Call> calls = norvo_fake::callsOf(op);
    if (calls.size() <= which || calls[which].args.size() <= index) return "<no call>";
    return calls[which].args[index];
}

class WakeWordServiceEngine : public wws_test::ServiceTest {
  protected:
    void SetUp() override {
        ServiceTest::SetUp();
        clearDeviceProperties();
    }
    void TearDown() override {
        clearDeviceProperties();
        ServiceTest::TearDown();
    }
};

}  // namespace

// Setup registers with the engine in order, builds the model and reports near-miss; the build and
// device properties reach the engine as look-ahead metadata; the engine logs through the service.
TEST_F(WakeWordServiceEngine, RegistersInOrderThenBuildsTheModelAndReportsNearMiss) {
    android::base::SetProperty("ro.build.type", "user");
    android::base::SetProperty("ro.build.display.id", "VM1.2");
    android::base::SetProperty("ro.build.version.release", "9");
    android::base::SetProperty("ro.build.version.incremental", "4411");
    android::base::SetProperty("ro.product.device", "hub\"x");
    sp<WakeWordService> service = wws_test::createService(config);
    ASSERT_EQ(0, service->mInitStatus);
    EXPECT_EQ((std::vector<std::string>{
                      "NorvoApi_SetLoggingCallback",
                      "NorvoApi_SetEnumeratedResultCallback",
                      "NorvoApi_SetJsondataCallback",
                      "NorvoApi_SetLocalCommandEnumeratedResultCallback",
                      "NorvoApi_SetMetricsCallback",
                      "NorvoApi_SetDmsMetricsCallback",
                      "NorvoApi_SetDmsQuillanMetricsCallback",
                      "NorvoApi_SetLocalTimeOffset",
                      "NorvoApi_SetFederatedLearningEventCallback",
                      "NorvoApi_SetFederatedLearningUnsecuredEventCallback",
                      "NorvoApi_SetFederatedLearningIdleDetectionCallback",
                      "NorvoApi_SetClientLookaheadMetadata",
                      "NorvoModelSet_New",
                      "NorvoModelSet_GetModelSetAttributes",
                      "NorvoDecoder_NewSpotterAudioDecoder",
                      "NorvoDecoder_GetDecoderThreadId",
                      "NorvoDecoder_PushClientEvents",  // the signal processor monitor's start
                      "NorvoDecoder_PushClientEvents",  // near-miss
              }),
              norvo_fake::callNames());

    // Which caller's function went where is ResultCallbacksTest's (each kind fired through the
    // engine reaches its own Java method); the logging sink is checked below by its lines.
    EXPECT_EQ(norvo_fake::fnText(&WakeWordService::norvoMetricsCallback),
              argOf("NorvoApi_SetMetricsCallback"));
    EXPECT_EQ("3600", argOf("NorvoApi_SetLocalTimeOffset"));
    const std::string device =
            "{ \"build_type\":\"user\", \"build_display_id\":\"VM1.2\", "
            "\"device_firmware_version\":\"9-4411\", \"device_type\":\"hub\"x\"}";
    EXPECT_EQ(device, argOf("NorvoApi_SetClientLookaheadMetadata"));
    char small[20];
    WakeWordService::norvoGetDeviceInfoJson(small, sizeof(small));
    EXPECT_EQ(device.substr(0, 19), small);  // truncated by snprintf
    EXPECT_EQ("WakeWordService_modelset", argOf("NorvoModelSet_New", 0));
    EXPECT_EQ("/models/ww/norvo.manifest", argOf("NorvoModelSet_New", 1));
    EXPECT_EQ("", argOf("NorvoModelSet_New", 2));
    EXPECT_EQ((std::vector<std::string>{"WakeWordService_input_decoder", "1", "ASPState", "0"}),
              norvo_fake::callsOf("NorvoDecoder_PushClientEvents").at(0).args);
    EXPECT_EQ((std::vector<std::string>{"WakeWordService_input_decoder", "1", "NearMissEnabled",
                                        "0"}),
              norvo_fake::callsOf("NorvoDecoder_PushClientEvents").at(1).args);

    // Engine lines go out under the service's tag at the priority of their level (0-7), as they
    // are: a line is never used as a format.
    log.clear();
    const int priorities[] = {ANDROID_LOG_INFO, ANDROID_LOG_FATAL, ANDROID_LOG_ERROR,
                              ANDROID_LOG_WARN, ANDROID_LOG_INFO,  ANDROID_LOG_DEBUG,
                              ANDROID_LOG_VERBOSE, ANDROID_LOG_INFO};
    std::vector<std::string> expected;
    for (int level = 0; level < 8; ++level) {
        norvo_fake::emitLog(level, "line " + std::to_string(level) + " 100% %s");
        expected.push_back(std::to_string(priorities[level]) + " " + kTag + " line " +
                           std::to_string(level) + " 100% %s");
    }
    // Only this thread's lines: the service's own threads may log at any moment.
    std::vector<std::string> lines;
    for (const wws_test::LogLine& line : log.lines()) {
        if (line.thread != std::this_thread::get_id()) continue;
        lines.push_back(std::to_string(line.priority) + " " + line.tag + " " + line.message);
    }
    EXPECT_EQ(expected, lines);
}

TEST_F(WakeWordServiceEngine, EachRegistrationFailureStopsSetupWithItsMessage) {
    const std::pair<const char*, const char*> steps[] = {
            {"NorvoApi_SetLoggingCallback", "Error setting Norvo LoggingCallback."},
            {"NorvoApi_SetEnumeratedResultCallback",
             "Error setting Norvo EnumeratedResultCallback."},
            {"NorvoApi_SetJsondataCallback", "Error setting Norvo JsonDataCallback."},
            {"NorvoApi_SetAcousticEventDetectionResultCallback",
             "Error setting Norvo AcousticEventDetectionResultCallback."},
            {"NorvoApi_SetLocalCommandEnumeratedResultCallback",
             "Error setting Norvo NorvoApi_SetLocalCommandEnumeratedResultCallback."},
            {"NorvoApi_SetMetricsCallback", "Error setting Norvo MetricsCallback."},
            {"NorvoApi_SetDmsMetricsCallback", "Error setting Norvo DMS Metrics Callback."},
            {"NorvoApi_SetDmsQuillanMetricsCallback",
             "Error setting Norvo DMS Quillan Metrics Callback."},
            {"NorvoApi_SetLocalTimeOffset", "Error setting UTC local time offset"},
            {"NorvoApi_SetFederatedLearningEventCallback",
             "Error setting Norvo Federated Learning Event Callback."},
            {"NorvoApi_SetFederatedLearningUnsecuredEventCallback",
             "Error setting Norvo Federated Learning Unsecured Event Callback."},
            {"NorvoApi_SetFederatedLearningIdleDetectionCallback",
             "Error setting Norvo Federated Learning Idle Detection Callback."},
            {"NorvoApi_SetClientLookaheadMetadata", "Error: setting Norvo LookaheadMetadata."},
    };
    config.aedAvailable = true;
    for (const auto& step : steps) {
        SCOPED_TRACE(step.first);
        norvo_fake::reset();
        log.clear();
        // Fail only the registration, not destroy's later removal of the same callback.
        norvo_fake::setStatus(step.first, 9);
        std::vector<norvo_fake::Call> seen;
        {
            sp<WakeWordService> service(wws_test::constructService(config));
            EXPECT_EQ(9, service->mInitStatus);
            seen = norvo_fake::calls();
            norvo_fake::clearStatuses();
        }
        std::vector<std::string> errors = log.messages(ANDROID_LOG_ERROR, kTag);
        ASSERT_GE(errors.size(), 3u);
        EXPECT_EQ(step.second, errors[0]);
        EXPECT_EQ("Error initializing Norvo. (9)", errors[1]);
        EXPECT_EQ("Error initializing WakeWordService: 9", errors[2]);
        // Setup stopped at the failing call: the next engine call is destroy's model deletion.
        auto failing = std::find_if(seen.begin(), seen.end(),
                                    [&](const norvo_fake::Call& c) { return c.op == step.first; });
        ASSERT_NE(seen.end(), failing);
        ASSERT_NE(seen.end(), failing + 1);
        EXPECT_EQ("NorvoModelSet_Delete", (failing + 1)->op);
        EXPECT_TRUE(norvo_fake::callsOf("NorvoModelSet_New").empty());
    }
}

// Of the model's statuses only a fatal one fails setup; the near-miss push's status, fatal or
// not, is setup's result. Each failure has its own message.
TEST_F(WakeWordServiceEngine, WhichLaterFailuresFailSetup) {
    struct Case {
        const char* op;
        NorvoStatus status;
        android::status_t init;
        const char* message;
    } cases[] = {
            {"NorvoModelSet_New", NORVO_ERROR_FATAL, NORVO_ERROR_FATAL, "Error setting Norvo model."},
            {"NorvoModelSet_New", 5, 0, "Error creating NorvoModelSet for ww."},
            {"NorvoDecoder_PushClientEvents", NORVO_ERROR_FATAL, NORVO_ERROR_FATAL,
             "Error pushing event to Norvo."},
            {"NorvoDecoder_PushClientEvents", 7, 7, "Error push client event to norvo."},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message() << c.op << " " << c.status);
        norvo_fake::reset();
        log.clear();
        norvo_fake::setStatus(c.op, c.status);
        ServiceConfig each;
        sp<WakeWordService> service = wws_test::createService(each);
        EXPECT_EQ(c.init, service->mInitStatus);
        EXPECT_TRUE(log.contains(ANDROID_LOG_ERROR, kTag, c.message));
        // Setup went on past a recoverable model failure: the near-miss event was still sent.
        auto pushes = norvo_fake::callsOf("NorvoDecoder_PushClientEvents");
        EXPECT_EQ(c.status != NORVO_ERROR_FATAL || c.op != std::string("NorvoModelSet_New"),
                  !pushes.empty() && pushes.back().args[2] == "NearMissEnabled");
    }
}
