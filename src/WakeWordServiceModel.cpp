// The wake-word model set and its two keyword decoders: which keywords each decoder listens for,
// whether the model is unified with turn taking, and switching models at run time.
#define LOG_TAG "WakeWordService"
#define ATRACE_TAG ATRACE_TAG_AUDIO

#include <log/log.h>
#include <rapidjson/pointer.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>
#include <utils/Trace.h>

#include <cstring>
#include <vector>

#include "NorvoIds.h"
#include "WakeWordModelJson.h"
#include "WakeWordService.h"

namespace velmar {

using android::status_t;

namespace {

std::string compact(const rapidjson::Value& value) {
    rapidjson::StringBuffer buffer;
    rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
    value.Accept(writer);
    return std::string(buffer.GetString(), buffer.GetSize());
}

void setFormatWords(NorvoMultichannelAudioFormat& format, std::initializer_list<uint32_t> words) {
    size_t index = 0;
    for (uint32_t word : words) format.words[index++] = word;
}

}  // namespace

void WakeWordService::setThreeChannelFormat(NorvoMultichannelAudioFormat& format) {
    setFormatWords(format, {0, 16000, 16, 3, 0, 1, 1});
}

namespace {

// Adds a local command to the input keyword list when the model supports it.
void addLocalCommand(const rapidjson::GenericArray<true, rapidjson::Value>& supported,
                     const char* command, std::vector<std::string>& keywords) {
    if (findValueInArray(supported, command)) {
        ALOGD("Wakeword model supports %s local command", command);
        keywords.push_back(command);
    } else {
        ALOGW("Wakeword model does not support %s local command", command);
    }
}

// Chooses the supported-keyword list from the model attributes text. Returns false (after logging
// why) when the attributes do not allow building decoders.
bool chooseSupportedKeywords(const rapidjson::Document& document, const char* text,
                             const rapidjson::Value** chosen) {
    const rapidjson::Value* models = rapidjson::Pointer("/model_attributes").Get(document);
    if (models == nullptr || !models->IsArray()) {
        ALOGE("Norvo modelSetAttributes does not contain a member \"model_attributes\" of type "
              "'array': '%s'",
              text);
        return false;
    }
    const rapidjson::Value* candidate = nullptr;
    for (const rapidjson::Value& element : models->GetArray()) {
        if (!element.IsObject()) continue;
        const rapidjson::Value* list =
                rapidjson::Pointer("/keyword/supported-keyword-list").Get(element);
        if (list == nullptr || !list->IsArray()) {
            ALOGE("Norvo modelSetAttributes[\"model_attributes\"] array element does not contain a "
                  "member \"keyword/supported-keyword-list\" of type 'array': '%s'",
                  text);
            return false;
        }
        candidate = list;
        const rapidjson::Value* id = rapidjson::Pointer("/model_id").Get(element);
        if (id != nullptr && id->IsString() && id->GetStringLength() == strlen(kNorvoKeywordSet) &&
            memcmp(id->GetString(), kNorvoKeywordSet, strlen(kNorvoKeywordSet)) == 0) {
            ALOGD("Norvo model ID found");
            break;
        }
    }
    if (candidate == nullptr) {
        ALOGE("Norvo modelSetAttributes does not contain \"supported-keyword-list\": '%s'", text);
        return false;
    }
    *chosen = candidate;
    return true;
}

}  // namespace

status_t WakeWordService::getModelSetAttributes(const char* modelSetId,
                                                android::String8& attributes) {
    ATRACE_NAME(__PRETTY_FUNCTION__);
    status_t status = NorvoModelSet_GetModelSetAttributes(modelSetId, modelSetAttributesCallback,
                                                          &attributes);
    if (status != NORVO_SUCCESS) {
        // The same words for every model set: callers and log readers already rely on them.
        ALOGE("Error getting audio presence model set attributes (%d)", status);
    }
    return status;
}

bool WakeWordService::getNttSupportedFromModel(const std::string& attributes) {
    rapidjson::Document document;
    document.Parse(attributes.c_str(), attributes.size());
    if (document.HasParseError() || !document.IsObject()) {
        ALOGE("Unable to parse modelSet attributes %s", attributes.c_str());
        return false;
    }
    auto models = document.FindMember("model_attributes");
    if (models == document.MemberEnd() || !models->value.IsArray()) return false;
    for (const rapidjson::Value& element : models->value.GetArray()) {
        if (element.IsObject() && element.HasMember("ntt")) return true;
    }
    return false;
}

status_t WakeWordService::setNewNorvoModel(const char* manifestPath, const char** wakeWords,
                                           int wakeWordCount) {
    ATRACE_NAME(__PRETTY_FUNCTION__);
    android::String8 attributes;
    NorvoMultichannelAudioFormat inputFormat =
            NorvoDecoder_NewNorvoMultichannelAudioFormat_Default();

    status_t status = NorvoModelSet_New(kWakeWordModelSetId, manifestPath, "");
    if (status != NORVO_SUCCESS) {
        ALOGE("Error creating NorvoModelSet for ww.");
        return status;
    }

    std::string inputConfig = "{}";
    std::string playbackConfig = "{}";
    if (wakeWords != nullptr && wakeWordCount >= 1) {
        status = getModelSetAttributes(kWakeWordModelSetId, attributes);
        if (status != NORVO_SUCCESS) {
            ALOGE("Error creating NorvoDecoder '%s'. Could not get modelSetAttributes",
                  kInputDecoderId);
            return status;
        }
        // Attribute problems are the model's, not the caller's: the service keeps running without
        // keyword decoders, and the audio paths drop input until a usable model is switched in.
        rapidjson::Document document;
        document.Parse(attributes.c_str(), attributes.length());
        if (document.HasParseError()) {
            ALOGE("Norvo modelSetAttributes is malformed JSON: '%s'", attributes.c_str());
            return android::NO_ERROR;
        }
        const rapidjson::Value* supported = nullptr;
        if (!chooseSupportedKeywords(document, attributes.c_str(), &supported)) {
            return android::NO_ERROR;
        }
        ALOGI("Norvo supported keyword list: '%s'", compact(*supported).c_str());

        const auto supportedList = supported->GetArray();
        std::vector<std::string> inputKeywords;
        if (findValueInArray(supportedList, "STOP")) {
            inputKeywords.push_back("STOP");
        } else {
            ALOGW("Wakeword model does not support STOP keyword");
        }
        addLocalCommand(supportedList, "CANCEL", inputKeywords);
        addLocalCommand(supportedList, "SNOOZE", inputKeywords);
        std::vector<std::string> playbackKeywords;
        for (int i = 0; i < wakeWordCount; ++i) {
            std::string wakeWord = wakeWords[i] == nullptr ? std::string() : wakeWords[i];
            inputKeywords.push_back(wakeWord);
            playbackKeywords.push_back(wakeWord);
        }
        inputConfig = generateKeywordListJson(inputKeywords);
        playbackConfig = generateKeywordListJson(playbackKeywords);
    }

    if (mThreeChannelInput) setThreeChannelFormat(inputFormat);
    if (mNearMissEnabled) inputConfig = generateBetaEnabledJson(inputConfig);

    ALOGI("Configuring input keyword decoder with: %s", inputConfig.c_str());
    status =
            NorvoDecoder_NewSpotterAudioDecoder(kInputDecoderId, kWakeWordModelSetId,
                                                kNorvoKeywordSet, inputFormat, inputConfig.c_str());
    if (status != NORVO_SUCCESS) {
        ALOGE("Error creating NorvoDecoder '%s'", kInputDecoderId);
        return status;
    }
    mInputModelReady = true;
    status_t priorityStatus =
            setNorvoDecoderThreadPriority(kInputDecoderId, mDecoderThreadPriority);
    if (priorityStatus != android::NO_ERROR) {
        ALOGW("Could not set decoder thread priority for %s (Error %d)", kInputDecoderId,
              priorityStatus);
    }

    if (mPlaybackViaAudioRecord) {
        NorvoMultichannelAudioFormat playbackFormat =
                NorvoDecoder_NewNorvoMultichannelAudioFormat_Default();
        setFormatWords(playbackFormat, {0, 16000, 16, 1, 0});
        ALOGI("Configuring playback keyword decoder with: %s", playbackConfig.c_str());
        status = NorvoDecoder_NewSpotterAudioDecoder(kPlaybackDecoderId, kWakeWordModelSetId,
                                                     kPlaybackKeywordSet, playbackFormat,
                                                     playbackConfig.c_str());
        if (status != NORVO_SUCCESS) {
            ALOGE("Error creating NorvoDecoder '%s'", kPlaybackDecoderId);
            return status;
        }
        mPlaybackModelReady = true;
        priorityStatus = setNorvoDecoderThreadPriority(kPlaybackDecoderId, mDecoderThreadPriority);
        if (priorityStatus != android::NO_ERROR) {
            ALOGW("Could not set decoder thread priority for %s (Error %d)", kPlaybackDecoderId,
                  priorityStatus);
        }
    }

    mNttSupportedInWwModel = getNttSupportedFromModel(std::string(attributes.c_str()));
    ALOGI("Norvo input keyword model is set to a %s",
          mNttSupportedInWwModel ? "Unified model with NTT support" : "non-unified model");
    return android::NO_ERROR;
}

void WakeWordService::destroyNorvoModel() {
    ATRACE_NAME(__PRETTY_FUNCTION__);
    // Flags first: the audio paths stop pushing to a decoder before the engine deletes it.
    if (mInputModelReady) {
        mInputModelReady = false;
        if (NorvoDecoder_Delete(kInputDecoderId) != NORVO_SUCCESS) {
            ALOGE("Error deleting inputNorvoDecoder.");
        }
    }
    if (mPlaybackModelReady) {
        mPlaybackModelReady = false;
        if (NorvoDecoder_Delete(kPlaybackDecoderId) != NORVO_SUCCESS) {
            ALOGE("Error deleting playbackNorvoDecoder.");
        }
    }
    if (NorvoModelSet_Delete(kWakeWordModelSetId) != NORVO_SUCCESS) {
        ALOGE("Error deleting NorvoModelSet for ww.");
    }
    mNttSupportedInWwModel = false;
}

status_t WakeWordService::switchNorvoModel(const char* manifestPath, const char** wakeWords,
                                           int wakeWordCount) {
    ATRACE_NAME(__PRETTY_FUNCTION__);
    // No capture may run while the decoders are replaced.
    const bool detectorWasEnabled = mDetectorEnabled;
    if (detectorWasEnabled) setDetectorEnabled(false);

    destroyNorvoModel();
    status_t result = setNewNorvoModel(manifestPath, wakeWords, wakeWordCount);

    if (mNttSupportedInWwModel) {
        // The new model does turn taking itself: the separate decoder would only duplicate it.
        if (mNttDecoderReady) destroyNttModel();
        result = NorvoDecoder_SetNttConfiguration(kInputDecoderId, mNttConfiguration);
        if (result != NORVO_SUCCESS) ALOGE("Error setting NTT configuration (%d)", result);
    } else if (!mNttDecoderReady) {
        result = initializeNttDecoder(mNttModelPath.c_str());
        if (result != android::NO_ERROR) {
            ALOGE("Error initializing NTT Decoder when switching to non-unified Norvo keyword "
                  "model.");
        }
    }

    if (detectorWasEnabled) setDetectorEnabled(true);
    return result;
}

}  // namespace velmar
