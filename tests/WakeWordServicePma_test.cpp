// The PMA decoder's life cycle: switching, its messages and status report, and the playback push
// that never waits for a model change.
#include <gtest/gtest.h>
#include <norvo_fake/FakeNorvo.h>

#include <thread>

#include "LogCapture.h"
#include "ServiceFactory.h"

using android::sp;
using velmar::WakeWordService;
using wws_test::LogCapture;
using wws_test::ServiceConfig;

namespace {

constexpr const char* kTag = "WakeWordService";

class WakeWordServicePma : public testing::Test {
  protected:
    void SetUp() override {
        norvo_fake::reset();
        wws_test::clearStatusReports();
    }
    LogCapture log;
    ServiceConfig config;
};

}  // namespace

TEST_F(WakeWordServicePma, SwitchStoresThePathLogsAndReportsTheOldDecoderGone) {
    sp<WakeWordService> service = wws_test::createService(config);
    log.clear();
    EXPECT_EQ(0, service->switchPmaModel("/models/pma/v2.manifest"));
    EXPECT_EQ("/models/pma/v2.manifest", service->mPmaModelPath);
    EXPECT_EQ((std::vector<std::string>{"Using custom Norvo PMA model \"/models/pma/v2.manifest\"",
                                        "Initialized PMA Decoder.",
                                        "Successfully switched PMA model to use the manifest path: "
                                        "'/models/pma/v2.manifest'"}),
              log.messages(ANDROID_LOG_DEBUG, kTag));
    EXPECT_EQ((std::vector<std::string>{"pma:0"}), wws_test::statusReports());
    // Loading creates nothing in the engine.
    EXPECT_FALSE(service->mPmaDecoderReady);
    EXPECT_TRUE(norvo_fake::callsOf("NorvoModelSet_New").size() == 1u);  // the wake-word model's

    log.clear();
    EXPECT_EQ(0, service->switchPmaModel(nullptr));
    EXPECT_EQ("", service->mPmaModelPath);
    EXPECT_TRUE(log.contains(ANDROID_LOG_DEBUG, kTag, "PMA Model is invalid, disabling"));
}

TEST_F(WakeWordServicePma, LoadedDecoderIsDeletedUnderItsLock) {
    sp<WakeWordService> service = wws_test::createService(config);
    service->mPmaDecoderReady = true;  // as a loaded model would leave it
    norvo_fake::setStatus("NorvoDecoder_Delete", "wws_pma", 4);
    service->destroyPmaModel();
    EXPECT_FALSE(service->mPmaDecoderReady);
    EXPECT_TRUE(log.contains(ANDROID_LOG_ERROR, kTag, "Error deleting PMA decoder."));
    EXPECT_TRUE(log.contains(ANDROID_LOG_ERROR, kTag, "Error deleting NorvoModelSet for PMA"));
    EXPECT_EQ("WakeWordService_pma_modelset",
              norvo_fake::callsOf("NorvoModelSet_Delete").back().args[0]);
    EXPECT_EQ((std::vector<std::string>{"pma:0"}), wws_test::statusReports());
}

TEST_F(WakeWordServicePma, PushesSkipWithoutDecoderAndNeverWaitForTheLock) {
    sp<WakeWordService> service = wws_test::createService(config);
    std::vector<int16_t> samples(128, 1);
    EXPECT_EQ(0, service->pushAudioToPmaDecoder(samples.data(), 128, 0));
    service->mPmaDecoderReady = true;
    {
        std::lock_guard<std::mutex> modelChange(service->mPmaLock);
        // Another thread holds the lock: the push returns at once without pushing.
        std::thread([&] {
            EXPECT_EQ(0, service->pushAudioToPmaDecoder(samples.data(), 128, 0));
        }).join();
    }
    EXPECT_TRUE(norvo_fake::callsOf("NorvoDecoder_PushAudioEvent").empty());
    // Free, the push reaches the decoder.
    service->pushAudioToPmaDecoder(samples.data(), 128, 256);
    auto pushes = norvo_fake::callsOf("NorvoDecoder_PushAudioEvent");
    ASSERT_EQ(1u, pushes.size());
    EXPECT_EQ("wws_pma", pushes[0].args[0]);
    service->mPmaDecoderReady = false;
}

TEST_F(WakeWordServicePma, FailedServiceRefusesTheSwitchAndItsRevert) {
    norvo_fake::setStatus("NorvoApi_SetLoggingCallback", 9);
    sp<WakeWordService> service = wws_test::createService(config);
    EXPECT_EQ(9, service->switchPmaModel("/p"));
    EXPECT_EQ(2u, log.count("initializePmaDecoder: WakeWordService not initialized."));
    EXPECT_TRUE(log.contains(ANDROID_LOG_ERROR, kTag,
                             "Failed to switch to PMA model specified by the new manifest path. "
                             "Reverting back to the previous model."));
    EXPECT_EQ("/models/pma/norvo.manifest", service->mPmaModelPath);
}
