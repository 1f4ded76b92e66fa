// Switching the PMA model: its messages and status report. Loading a model creates nothing in the
// engine, so the decoder never becomes ready.
#include <gtest/gtest.h>
#include <norvo_fake/FakeNorvo.h>

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
