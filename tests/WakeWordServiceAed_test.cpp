// Audio event detection: the rebuild of model set and decoder, its status reports and client
// events in order, custom sounds, the decoder kind per input, and the refusals.
#include <algorithm>

#include "ServiceTest.h"

namespace {

constexpr const char* kAedSet = "AudioPresenceNorvo_modelset";
constexpr const char* kSignature =
        "android::status_t velmar::WakeWordService::setAudioEventDetectionMode(bool)";

// The engine calls made since call index from that touch the AED model set or decoder (client
// events with their value).
std::vector<std::string> aedCalls(size_t from) {
    std::vector<std::string> calls;
    std::vector<norvo_fake::Call> all = norvo_fake::calls();
    for (size_t i = from; i < all.size(); ++i) {
        const norvo_fake::Call& call = all[i];
        if (call.args.empty() || (call.args[0] != kAed && call.args[0] != kAedSet)) continue;
        if (call.op == "NorvoDecoder_GetDecoderThreadId") continue;  // priority, not state
        std::string line = call.op;
        if (call.op == "NorvoDecoder_PushClientEvents") line += " " + call.args[3];
        calls.push_back(line);
    }
    return calls;
}

class WakeWordServiceAed : public wws_test::ServiceTest {
  protected:
    void SetUp() override {
        ServiceTest::SetUp();
        config.aedAvailable = true;
        config.aedCustomModelPath = nullptr;
    }
    // Started, with the status reports of initialisation forgotten.
    sp<WakeWordService> start() {
        sp<WakeWordService> service = ServiceTest::start();
        wws_test::clearStatusReports();
        return service;
    }
};

}  // namespace

TEST_F(WakeWordServiceAed, EnablingRebuildsTheDecoderAndReportsInOrder) {
    sp<WakeWordService> service = start();
    const size_t mark = norvo_fake::calls().size();
    EXPECT_EQ(0, service->setAudioEventDetectionMode(true));
    EXPECT_EQ(0, service->setAudioEventDetectionMode(true));
    // Each call passes through "no decoder": detection off, decoder gone, set reloaded, new
    // decoder, detection on.
    EXPECT_EQ((std::vector<std::string>{
                      "NorvoModelSet_Delete", "NorvoModelSet_New", "NorvoDecoder_NewPcmInt16",
                      "NorvoDecoder_PushClientEvents 1",
                      "NorvoDecoder_PushClientEvents 0", "NorvoDecoder_Delete",
                      "NorvoModelSet_Delete", "NorvoModelSet_New", "NorvoDecoder_NewPcmInt16",
                      "NorvoDecoder_PushClientEvents 1"}),
              aedCalls(mark));
    EXPECT_EQ((std::vector<std::string>{"aedCustom:0", "aedStatic:0", "aedStatic:1",
                                        "aedCustom:0", "aedStatic:0", "aedStatic:1"}),
              wws_test::statusReports());
    norvo_fake::DecoderInfo decoder;
    ASSERT_TRUE(norvo_fake::decoder(kAed, &decoder));
    EXPECT_EQ("pcm16", decoder.kind);

    EXPECT_EQ(0, service->setAudioEventDetectionMode(false));
    EXPECT_FALSE(norvo_fake::decoder(kAed, nullptr));
    EXPECT_TRUE(norvo_fake::modelSet(kAedSet, nullptr));
}

// An empty static manifest is refused before anything changes; at start-up the refusal fails
// initialisation.
TEST_F(WakeWordServiceAed, EmptyStaticManifestIsRefused) {
    sp<WakeWordService> service = start();
    ASSERT_EQ(0, service->setAudioEventDetectionMode(true));
    size_t calls = norvo_fake::calls().size();
    wws_test::clearStatusReports();
    EXPECT_EQ(android::BAD_VALUE, service->setAedStaticModel(""));
    EXPECT_TRUE(log.contains(ANDROID_LOG_ERROR, kTag,
                             std::string(kSignature) +
                                     " : Parameter mAedStaticModelManifestPath cannot be empty."));
    EXPECT_TRUE(wws_test::statusReports().empty());
    EXPECT_EQ(calls, norvo_fake::calls().size());  // the decoder stays

    norvo_fake::reset();
    config.aedStaticModelManifestPath = "";
    sp<WakeWordService> refused = wws_test::createService(config);
    EXPECT_EQ(android::BAD_VALUE, refused->mInitStatus);
    EXPECT_TRUE(log.contains(ANDROID_LOG_ERROR, kTag,
                             "android::status_t velmar::WakeWordService::initializeNorvo() : "
                             "Failed to initialize AED."));
}

TEST_F(WakeWordServiceAed, CustomSoundsKeepTheModelSetAndAreReported) {
    sp<WakeWordService> service = start();
    ASSERT_EQ(0, service->setAudioEventDetectionMode(true));
    size_t deletions = norvo_fake::callsOf("NorvoModelSet_Delete").size();
    wws_test::clearStatusReports();
    EXPECT_EQ(0, service->setAedCustomModel("/models/aed/custom.json"));
    EXPECT_EQ(deletions, norvo_fake::callsOf("NorvoModelSet_Delete").size());
    EXPECT_EQ((std::vector<std::vector<std::string>>{{kAedSet, "norvo", "/models/aed/custom.json"}}),
              wws_test::argsOf("NorvoModelSet_SetAedCustomSoundConfig"));
    EXPECT_EQ((std::vector<std::string>{"aedCustom:0", "aedStatic:0", "aedStatic:1",
                                        "aedCustom:1"}),
              wws_test::statusReports());

    // A configuration the engine refuses leaves detection off and says why.
    norvo_fake::setStatus("NorvoModelSet_SetAedCustomSoundConfig", 6);
    EXPECT_EQ(6, service->setAedCustomModel("/bad.json"));
    EXPECT_TRUE(log.contains(ANDROID_LOG_ERROR, kTag,
                             std::string(kSignature) + " : Could not set AED Custom Sounds config."));
    EXPECT_FALSE(norvo_fake::decoder(kAed, nullptr));
}

// Three-channel input gets the multichannel decoder, with format words 0-6 written for three
// 16-bit channels at 16 kHz and the engine's defaults beyond.
TEST_F(WakeWordServiceAed, ThreeChannelInputUsesTheMultichannelDecoder) {
    config.threeChannelInput = true;
    sp<WakeWordService> service = start();
    ASSERT_EQ(0, service->setAudioEventDetectionMode(true));
    norvo_fake::DecoderInfo decoder;
    ASSERT_TRUE(norvo_fake::decoder(kAed, &decoder));
    EXPECT_EQ("multichannel", decoder.kind);
    const uint32_t words[] = {0, 16000, 16, 3, 0, 1, 1};
    NorvoMultichannelAudioFormat defaults = NorvoDecoder_NewNorvoMultichannelAudioFormat_Default();
    for (int i = 0; i < NORVO_AUDIO_FORMAT_WORD_COUNT; ++i) {
        EXPECT_EQ(i < 7 ? words[i] : defaults.words[i], decoder.format.words[i]) << "word " << i;
    }
}

TEST_F(WakeWordServiceAed, EngineFailuresAreReportedWithDetectionOff) {
    sp<WakeWordService> service = start();
    norvo_fake::setStatus("NorvoDecoder_NewPcmInt16", 7);
    EXPECT_EQ(7, service->setAudioEventDetectionMode(true));
    EXPECT_TRUE(log.contains(ANDROID_LOG_ERROR, kTag,
                             std::string(kSignature) + " : Error creating AED decoder."));
    EXPECT_FALSE(service->mAedEnabled);
    norvo_fake::setStatus("NorvoModelSet_New", kAedSet, 8);
    EXPECT_EQ(8, service->setAudioEventDetectionMode(false));
    EXPECT_TRUE(log.contains(ANDROID_LOG_ERROR, kTag,
                             std::string(kSignature) + " : Error creating AED model set."));
    EXPECT_FALSE(service->mAedModelSetCreated);
}
