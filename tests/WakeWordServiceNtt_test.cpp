// Natural turn taking: the separate decoder's life (creation, switching with revert, deletion), the
// mode table, where configuration and events go for unified and separate models, and the
// placement of client events in the input audio.
#include <cstdio>

#include "ServiceTest.h"

namespace {

constexpr const char* kNttSet = "WakeWordService_ntt_modelset";
constexpr const char* kUnified =
        "{\"model_attributes\":[{\"model_id\":\"norvo\",\"keyword\":{\"supported-keyword-list\":"
        "[\"STOP\"]},\"ntt\":{}}]}";

// "decoder|configuration" of every NTT configuration call, in order.
std::vector<std::string> configurations() {
    std::vector<std::string> calls;
    for (const auto& call : norvo_fake::callsOf("NorvoDecoder_SetNttConfiguration")) {
        calls.push_back(call.args[0] + "|" + call.args[1]);
    }
    return calls;
}

std::vector<std::string> nttEvents() {
    std::vector<std::string> events;
    for (const auto& call : norvo_fake::callsOf("NorvoDecoder_PushNttEvent")) {
        std::string joined;
        for (const std::string& arg : call.args) joined += (joined.empty() ? "" : "|") + arg;
        events.push_back(joined);
    }
    return events;
}

int64_t nowMs() { return velmar::getTimeNs() / 1000000; }

class WakeWordServiceNtt : public wws_test::ServiceTest {
  protected:
    std::string manifestOf(const char* modelSet) {
        norvo_fake::ModelSetInfo info;
        return norvo_fake::modelSet(modelSet, &info) ? info.manifestPath : "<none>";
    }
};

}  // namespace

TEST_F(WakeWordServiceNtt, EnablingLoadsTheSeparateDecoderAndConfiguresIt) {
    sp<WakeWordService> service = start();
    ASSERT_FALSE(norvo_fake::decoder(kNtt, nullptr));
    EXPECT_EQ(0, service->setNttDetectionMode(true, 2));
    EXPECT_EQ("/models/ntt/norvo.manifest", manifestOf(kNttSet));
    norvo_fake::DecoderInfo decoder;
    ASSERT_TRUE(norvo_fake::decoder(kNtt, &decoder));
    EXPECT_EQ(kNttSet, decoder.modelSetId);
    EXPECT_EQ("norvo", decoder.keywordSetName);
    EXPECT_EQ("{}", decoder.config);
    // The new decoder first gets the configuration in force (DISABLED), then VISUAL_ATTENTION.
    EXPECT_EQ((std::vector<std::string>{"wws_ntt|0", "wws_ntt|3"}), configurations());
    EXPECT_EQ((std::vector<std::string>{"ntt:1"}), wws_test::statusReports());
    EXPECT_EQ(1, norvo_fake::decoderThreadNice(kNtt));

}

// Modes 0-3 map to configurations 1-4 (after the DISABLED a new decoder first gets); any other
// mode applies DISABLED and deletes the decoder.
TEST_F(WakeWordServiceNtt, ModesMapToTheirConfigurationsAndAnInvalidOneDisables) {
    sp<WakeWordService> service = start();
    for (int mode : {0, 1, 2, 3}) EXPECT_EQ(0, service->setNttDetectionMode(true, mode));
    EXPECT_EQ((std::vector<std::string>{"wws_ntt|0", "wws_ntt|1", "wws_ntt|2", "wws_ntt|3",
                                        "wws_ntt|4"}),
              configurations());
    EXPECT_EQ(0, service->setNttDetectionMode(true, 7));
    EXPECT_TRUE(log.contains(ANDROID_LOG_ERROR, kTag,
                             "setNttDetectionMode: Invalid NTT Mode supplied. Setting the Norvo "
                             "configuration for NTT to DISABLED."));
    EXPECT_FALSE(service->mNttDecoderReady);
    EXPECT_FALSE(norvo_fake::decoder(kNtt, nullptr));
    EXPECT_TRUE(service->mNttDetectionEnabled);  // enabled was asked for
    EXPECT_EQ(0, service->mNttConfiguration);

}

TEST_F(WakeWordServiceNtt, UnifiedModelTakesConfigurationAndVisionEventsItself) {
    norvo_fake::setModelSetAttributes("WakeWordService_modelset", kUnified);
    config.preloadNttModel = true;  // never a separate decoder with a unified model
    sp<WakeWordService> service = start();
    EXPECT_EQ(0, service->setNttDetectionMode(true, 3));
    EXPECT_EQ(0, service->setNttDetectionMode(false, 3));
    EXPECT_FALSE(norvo_fake::decoder(kNtt, nullptr));
    EXPECT_EQ((std::vector<std::string>{"WakeWordService_input_decoder|0",
                                        "WakeWordService_input_decoder|4",
                                        "WakeWordService_input_decoder|0"}),
              configurations());
    EXPECT_EQ(0, service->onCVEvent("{\"gaze\":1}", nowMs()));
    ASSERT_EQ(1u, nttEvents().size());
    EXPECT_EQ(0u, nttEvents()[0].rfind("WakeWordService_input_decoder|0|", 0));
}

// Events are placed in the input where they happened: 16 frames per millisecond of age, counted
// back from the frames heard so far. The age is measured when the event is handled, so the
// arithmetic is checked against the age the service logged.
TEST_F(WakeWordServiceNtt, VisionEventsArePlacedWhereTheyHappenedInTheInput) {
    config.preloadNttModel = true;
    sp<WakeWordService> service = start();
    std::vector<int16_t> heard(100000);
    wws_test::deliverInput(*service, heard, heard.size());
    const int64_t timestamp = nowMs() - 250;
    // Only the low 32 bits of the client's time stamp count.
    ASSERT_EQ(0, service->onCVEvent("{\"face\":true}", timestamp + (int64_t{7} << 32)));
    int delta = -1;
    for (const std::string& line : log.messages(ANDROID_LOG_DEBUG, kTag)) {
        sscanf(line.c_str(), "onCVEvent: Received CV event in native layer: {\"face\":true}, "
                             "msec delta: %d", &delta);
    }
    ASSERT_GE(delta, 250);
    const int64_t start = 100000 - 16 * delta;
    EXPECT_EQ("wws_ntt|0|" + std::to_string(start) + "|" + std::to_string(start + 1) +
                      "|{\"face\":true}|" + std::to_string(timestamp + (int64_t{7} << 32)),
              nttEvents().back());
}

// Teardown then deletes the decoder, its model set and its result callback.
TEST_F(WakeWordServiceNtt, FailedSwitchRestoresThePreviousModelAndTeardownDeletesIt) {
    config.nttEnabled = true;
    config.preloadNttModel = true;
    sp<WakeWordService> service = start();
    ASSERT_TRUE(service->mNttDecoderReady);
    wws_test::clearStatusReports();

    // The new model's decoder cannot be made: its model set goes, the old model comes back.
    norvo_fake::setStatusOnce("NorvoDecoder_NewSpotterAudioDecoder", kNtt, 5);
    EXPECT_EQ(5, service->switchNttModel("/broken.manifest"));
    EXPECT_TRUE(norvo_fake::decoder(kNtt, nullptr));
    EXPECT_EQ("/models/ntt/norvo.manifest", manifestOf(kNttSet));
    EXPECT_EQ((std::vector<std::string>{"ntt:0", "ntt:1"}), wws_test::statusReports());
    // Deleted twice: the old model set, then the new one that has no decoder.
    EXPECT_EQ(2u, norvo_fake::callsOf("NorvoModelSet_Delete").size());

    service.clear();
    EXPECT_FALSE(norvo_fake::decoder(kNtt, nullptr));
    EXPECT_FALSE(norvo_fake::modelSet(kNttSet, nullptr));
    EXPECT_EQ(nullptr, norvo_fake::callbacks().nttResult);
    EXPECT_NE(nullptr, norvo_fake::callbacks().nttEndOfSpeech);  // never removed
}
