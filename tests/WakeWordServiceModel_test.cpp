// The wake-word model set: decoder configuration from the model attributes and the wake-word
// list, decoder formats, the unified-model decision, teardown order and model switching.
#include <algorithm>

#include "ServiceTest.h"

namespace {

std::string attributesWith(const std::string& elements) {
    return "{\"model_attributes\":[" + elements + "]}";
}
std::string element(const std::string& id, const std::string& keywords, bool ntt = false) {
    return "{\"model_id\":\"" + id + "\",\"keyword\":{\"supported-keyword-list\":[" + keywords +
           "]}" + (ntt ? ",\"ntt\":{}" : "") + "}";
}
std::string keywordConfig(const std::string& list) {
    return "{\"keyword\":{\"enabled-keyword-list\":[" + list + "]}}";
}

std::string decoderConfig(const char* id) {
    norvo_fake::DecoderInfo info;
    return norvo_fake::decoder(id, &info) ? info.config : "<no decoder>";
}

using WakeWordServiceModel = wws_test::ServiceTest;

}  // namespace

TEST_F(WakeWordServiceModel, InputListensForLocalCommandsThenWakeWordsAndPlaybackForWakeWords) {
    config.playbackViaAudioRecord = true;
    config.wakeWords = {"HEYVELMAR", "COMPUTER"};
    sp<WakeWordService> service = start();
    norvo_fake::DecoderInfo input;
    norvo_fake::DecoderInfo playback;
    ASSERT_TRUE(norvo_fake::decoder(kInput, &input));
    ASSERT_TRUE(norvo_fake::decoder(kPlayback, &playback));
    EXPECT_EQ(keywordConfig("\"STOP\",\"CANCEL\",\"SNOOZE\",\"HEYVELMAR\",\"COMPUTER\""),
              input.config);
    EXPECT_EQ(keywordConfig("\"HEYVELMAR\",\"COMPUTER\""), playback.config);
    EXPECT_EQ("norvo", input.keywordSetName);
    EXPECT_EQ("playback", playback.keywordSetName);
    EXPECT_EQ(kModelSet, input.modelSetId);
    EXPECT_EQ(kModelSet, playback.modelSetId);

    // One channel: the input decoder gets the engine's default format; the playback decoder gets
    // words 0-4 written for one 16-bit channel at 16 kHz.
    NorvoMultichannelAudioFormat defaults = NorvoDecoder_NewNorvoMultichannelAudioFormat_Default();
    EXPECT_TRUE(std::equal(defaults.words, defaults.words + NORVO_AUDIO_FORMAT_WORD_COUNT,
                           input.format.words));
    EXPECT_EQ((std::vector<uint32_t>{0, 16000, 16, 1, 0}),
              std::vector<uint32_t>(playback.format.words, playback.format.words + 5));
}

// Attribute texts that still yield decoders, and the input list each one gives.
TEST_F(WakeWordServiceModel, ChoosesTheSupportedListFromTheRightElement) {
    struct Case {
        const char* name;
        std::string attributes;
        std::string inputList;
        bool idFound;
    } cases[] = {
            {"norvo element after others",
             attributesWith(element("other", "\"CANCEL\"") + "," + element("norvo", "\"STOP\"") +
                            "," + element("late", "\"SNOOZE\"")),
             "\"STOP\",\"HEYVELMAR\"", true},
            {"no norvo element: the last object's list",
             attributesWith(element("a", "\"STOP\"") + "," + element("b", "\"SNOOZE\"")),
             "\"SNOOZE\",\"HEYVELMAR\"", false},
            {"non-object elements are skipped",
             attributesWith("1,\"x\",[]," + element("norvo", "\"CANCEL\"") + ",null"),
             "\"CANCEL\",\"HEYVELMAR\"", true},
            {"model id must match exactly",
             attributesWith(element("norvo2", "\"STOP\"") + "," + element("NORVO", "\"CANCEL\"")),
             "\"CANCEL\",\"HEYVELMAR\"", false},
            {"non-string keywords never match",
             attributesWith(element("norvo", "5,{\"STOP\":1},\"STOP\\u0000\",\"CANCEL\"")),
             "\"CANCEL\",\"HEYVELMAR\"", true},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        norvo_fake::reset();
        log.clear();
        norvo_fake::setModelSetAttributes(kModelSet, c.attributes);
        ServiceConfig each;
        sp<WakeWordService> service = wws_test::createService(each);
        EXPECT_EQ(keywordConfig(c.inputList), decoderConfig(kInput));
        EXPECT_EQ(c.idFound, log.contains(ANDROID_LOG_DEBUG, kTag, "Norvo model ID found"));
    }
}

// Attribute texts that leave the service without keyword decoders, and the message for each.
TEST_F(WakeWordServiceModel, UnusableAttributesLeaveTheServiceWithoutDecoders) {
    const std::string earlyWithoutList =
            attributesWith("{\"model_id\":\"a\"}," + element("norvo", "\"STOP\""));
    struct Case {
        std::string attributes;
        std::string message;
    } cases[] = {
            {"{not json", "Norvo modelSetAttributes is malformed JSON: '{not json'"},
            {"{\"x\":1}",
             "Norvo modelSetAttributes does not contain a member \"model_attributes\" of type "
             "'array': '{\"x\":1}'"},
            {earlyWithoutList,
             "Norvo modelSetAttributes[\"model_attributes\"] array element does not contain a "
             "member \"keyword/supported-keyword-list\" of type 'array': '" +
                     earlyWithoutList + "'"},
            {attributesWith("{\"keyword\":{\"supported-keyword-list\":\"STOP\"}}"),
             "Norvo modelSetAttributes[\"model_attributes\"] array element does not contain a "
             "member \"keyword/supported-keyword-list\" of type 'array': '" +
                     attributesWith("{\"keyword\":{\"supported-keyword-list\":\"STOP\"}}") + "'"},
            {attributesWith(""),
             "Norvo modelSetAttributes does not contain \"supported-keyword-list\": '" +
                     attributesWith("") + "'"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.attributes);
        norvo_fake::reset();
        log.clear();
        norvo_fake::setModelSetAttributes(kModelSet, c.attributes);
        ServiceConfig each;
        each.playbackViaAudioRecord = true;
        sp<WakeWordService> service = wws_test::createService(each);
        EXPECT_EQ(0, service->mInitStatus);
        EXPECT_FALSE(service->mInputModelReady);
        EXPECT_FALSE(service->mPlaybackModelReady);
        EXPECT_TRUE(norvo_fake::decoderIds().empty());
        EXPECT_TRUE(log.contains(ANDROID_LOG_ERROR, kTag, c.message));
    }
}

// Engine failures while the decoders are built are logged and leave setup going: no attributes or
// no input decoder means no decoders; a refused playback decoder leaves the input decoder.
TEST_F(WakeWordServiceModel, EngineFailuresWhileBuildingAreLogged) {
    struct Case {
        const char* op;
        const char* id;
        bool inputReady;
        const char* message;
    } cases[] = {
            {"NorvoModelSet_GetModelSetAttributes", kModelSet, false,
             "Error creating NorvoDecoder 'WakeWordService_input_decoder'. Could not get "
             "modelSetAttributes"},
            {"NorvoDecoder_NewSpotterAudioDecoder", kInput, false,
             "Error creating NorvoDecoder 'WakeWordService_input_decoder'"},
            {"NorvoDecoder_NewSpotterAudioDecoder", kPlayback, true,
             "Error creating NorvoDecoder 'WakeWordService_playback_decoder'"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.message);
        norvo_fake::reset();
        log.clear();
        norvo_fake::setStatus(c.op, c.id, 6);
        ServiceConfig each;
        each.playbackViaAudioRecord = true;
        sp<WakeWordService> service = wws_test::createService(each);
        EXPECT_EQ(0, service->mInitStatus);
        EXPECT_EQ(c.inputReady, service->mInputModelReady);
        EXPECT_FALSE(service->mPlaybackModelReady);
        EXPECT_TRUE(log.contains(ANDROID_LOG_ERROR, kTag, c.message));
    }
}

// Teardown takes each decoder out of its audio path before the engine deletes it: a buffer that
// arrives meanwhile is dropped, never pushed to a decoder going away. Decoders go before their
// model set.
TEST_F(WakeWordServiceModel, DecodersLeaveTheAudioPathsBeforeTheyAreDeleted) {
    config.playbackViaAudioRecord = true;
    sp<WakeWordService> service = start();
    std::vector<int16_t> samples(160, 3);
    WakeWordService* raw = service.get();
    norvo_fake::setBeforeDecoderDelete([raw, &samples](const std::string& id) {
        if (id == kInput) wws_test::deliverInput(*raw, samples, samples.size());
        if (id == kPlayback) wws_test::deliverPlayback(*raw, samples);
    });
    size_t mark = norvo_fake::calls().size();
    service->destroyNorvoModel();
    norvo_fake::setBeforeDecoderDelete(nullptr);
    EXPECT_TRUE(norvo_fake::pushedSamples(kInput).empty());
    EXPECT_TRUE(norvo_fake::pushedSamples(kPlayback).empty());
    std::vector<norvo_fake::Call> all = norvo_fake::calls();
    std::vector<std::string> order;
    for (size_t i = mark; i < all.size(); ++i) order.push_back(all[i].op + " " + all[i].args[0]);
    EXPECT_EQ((std::vector<std::string>{"NorvoDecoder_Delete WakeWordService_input_decoder",
                                        "NorvoDecoder_Delete WakeWordService_playback_decoder",
                                        "NorvoModelSet_Delete WakeWordService_modelset"}),
              order);

}

TEST_F(WakeWordServiceModel, SwitchRebuildsUnderTheSameIdsAndRestoresDetection) {
    sp<WakeWordService> service = start();
    ASSERT_EQ(0, service->setDetectorEnabled(true));
    norvo_fake::setModelSetAttributes(kModelSet,
                                      attributesWith(element("norvo", "\"CANCEL\"", /*ntt=*/true)));
    const char* words[] = {"SAY \"HI\"", "BACK\\SLASH", "TAB\tNEWLINE\n"};  // escaped as JSON
    size_t mark = norvo_fake::calls().size();
    log.clear();

    EXPECT_EQ(0, service->switchNorvoModel("/models/ww/new.manifest", words, 3));

    EXPECT_TRUE(service->mDetectorEnabled);
    EXPECT_TRUE(wws_test::waitFor([] { return host::activeRecordings(AUDIO_SOURCE_HOTWORD) == 1; }));
    EXPECT_TRUE(service->mInputModelReady);
    EXPECT_EQ(keywordConfig("\"CANCEL\",\"SAY \\\"HI\\\"\",\"BACK\\\\SLASH\",\"TAB\\tNEWLINE\\n\""),
              decoderConfig(kInput));
    norvo_fake::ModelSetInfo modelSet;
    ASSERT_TRUE(norvo_fake::modelSet(kModelSet, &modelSet));
    EXPECT_EQ("/models/ww/new.manifest", modelSet.manifestPath);
    std::vector<norvo_fake::Call> all = norvo_fake::calls();
    std::vector<std::string> order;
    for (size_t i = mark; i < all.size(); ++i) {
        if (all[i].op != "NorvoDecoder_PushAudioEvent") order.push_back(all[i].op);  // the capture's
    }
    EXPECT_EQ((std::vector<std::string>{
                      "NorvoDecoder_Delete", "NorvoModelSet_Delete", "NorvoModelSet_New",
                      "NorvoModelSet_GetModelSetAttributes", "NorvoDecoder_NewSpotterAudioDecoder",
                      "NorvoDecoder_GetDecoderThreadId", "NorvoDecoder_SetNttConfiguration"}),
              order);
}
