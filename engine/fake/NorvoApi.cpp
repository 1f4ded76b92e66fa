// The engine's C entry points, forwarding to the fake engine's state.
#include <norvo/NorvoApi.h>

#include <string>

#include "FakeEngine.h"

using norvo_fake::Callbacks;
using norvo_fake::DecoderInfo;
using norvo_fake::FakeEngine;
using norvo_fake::fnText;

namespace {

FakeEngine& engine() {
    return FakeEngine::instance();
}
std::string text(const char* s) {
    return s == nullptr ? "null" : s;
}

std::string formatText(const NorvoMultichannelAudioFormat& format) {
    std::string words;
    for (int i = 0; i < NORVO_AUDIO_FORMAT_WORD_COUNT; ++i) {
        if (i != 0) words += ',';
        words += std::to_string(format.words[i]);
    }
    return words;
}

}  // namespace

extern "C" {

NorvoStatus NorvoApi_SetLoggingCallback(NorvoLoggingCallback cb) {
    return engine().setCallback("NorvoApi_SetLoggingCallback", &Callbacks::logging, cb);
}
NorvoStatus NorvoApi_SetMetricsCallback(NorvoMetricsCallback cb) {
    return engine().setCallback("NorvoApi_SetMetricsCallback", &Callbacks::metrics, cb);
}
NorvoStatus NorvoApi_SetEnumeratedResultCallback(EnumeratedResult_Callback cb) {
    return engine().setCallback("NorvoApi_SetEnumeratedResultCallback",
                                &Callbacks::enumeratedResult, cb);
}
NorvoStatus NorvoApi_SetLocalCommandEnumeratedResultCallback(
        LocalCommandEnumeratedResult_Callback cb) {
    return engine().setCallback("NorvoApi_SetLocalCommandEnumeratedResultCallback",
                                &Callbacks::localCommand, cb);
}
NorvoStatus NorvoApi_SetAcousticEventDetectionResultCallback(
        AcousticEventDetectionResult_Callback cb) {
    return engine().setCallback("NorvoApi_SetAcousticEventDetectionResultCallback",
                                &Callbacks::acousticEvent, cb);
}
NorvoStatus NorvoApi_SetPresenceDetectionResultCallback(PresenceDetectionResult_Callback cb) {
    return engine().setCallback("NorvoApi_SetPresenceDetectionResultCallback", &Callbacks::presence,
                                cb);
}
NorvoStatus NorvoApi_SetNttResultCallback(NttResult_Callback cb) {
    return engine().setCallback("NorvoApi_SetNttResultCallback", &Callbacks::nttResult, cb);
}
NorvoStatus NorvoApi_SetNttEndOfSpeechCallback(NttEndOfSpeech_Callback cb) {
    return engine().setCallback("NorvoApi_SetNttEndOfSpeechCallback", &Callbacks::nttEndOfSpeech,
                                cb);
}
NorvoStatus NorvoApi_SetJsondataCallback(Jsondata_Callback cb) {
    return engine().setCallback("NorvoApi_SetJsondataCallback", &Callbacks::jsondata, cb);
}
NorvoStatus NorvoApi_SetDmsMetricsCallback(NorvoDmsMetrics_Callback cb) {
    return engine().setCallback("NorvoApi_SetDmsMetricsCallback", &Callbacks::dmsMetrics, cb);
}
NorvoStatus NorvoApi_SetDmsQuillanMetricsCallback(NorvoDmsQuillanMetrics_Callback cb) {
    return engine().setCallback("NorvoApi_SetDmsQuillanMetricsCallback",
                                &Callbacks::dmsQuillanMetrics, cb);
}
NorvoStatus NorvoApi_SetFederatedLearningEventCallback(NorvoFederatedLearning_resultCallback cb) {
    return engine().setCallback("NorvoApi_SetFederatedLearningEventCallback",
                                &Callbacks::federatedLearning, cb);
}
NorvoStatus NorvoApi_SetFederatedLearningUnsecuredEventCallback(
        NorvoFederatedLearning_unsecuredResultCallback cb) {
    return engine().setCallback("NorvoApi_SetFederatedLearningUnsecuredEventCallback",
                                &Callbacks::federatedLearningUnsecured, cb);
}
NorvoStatus NorvoApi_SetFederatedLearningIdleDetectionCallback(
        NorvoFederatedLearning_idleDetectionCallback cb) {
    return engine().setCallback("NorvoApi_SetFederatedLearningIdleDetectionCallback",
                                &Callbacks::federatedLearningIdle, cb);
}

NorvoStatus NorvoApi_SetLocalTimeOffset(int32_t offset) {
    NorvoStatus status = NORVO_SUCCESS;
    engine().recordCall("NorvoApi_SetLocalTimeOffset", {std::to_string(offset)}, &status);
    return status;
}

NorvoStatus NorvoApi_SetClientLookaheadMetadata(const char* json) {
    NorvoStatus status = NORVO_SUCCESS;
    engine().recordCall("NorvoApi_SetClientLookaheadMetadata", {text(json)}, &status);
    return status;
}

const char* NorvoApi_GetAttributes(void) {
    return engine().libraryAttributes();
}

NorvoStatus NorvoModelSet_New(NorvoModelSetId modelSetId, const char* manifestPath,
                              const char* options) {
    return engine().newModelSet(modelSetId, manifestPath, options);
}

NorvoStatus NorvoModelSet_Delete(NorvoModelSetId modelSetId) {
    return engine().deleteModelSet(modelSetId);
}

NorvoStatus NorvoModelSet_GetModelSetAttributes(NorvoModelSetId modelSetId,
                                                ModelSetAttributesCallback cb, void* userData) {
    return engine().getModelSetAttributes(modelSetId, cb, userData);
}

NorvoStatus NorvoModelSet_SetAedCustomSoundConfig(NorvoModelSetId modelSetId, const char* name,
                                                  const char* config) {
    NorvoStatus status = NORVO_SUCCESS;
    if (engine().recordCall("NorvoModelSet_SetAedCustomSoundConfig",
                            {text(modelSetId), text(name), text(config)}, &status)) {
        return status;
    }
    return engine().modelSet(text(modelSetId), nullptr) ? NORVO_SUCCESS : norvo_fake::kNotFound;
}

NorvoMultichannelAudioFormat NorvoDecoder_NewNorvoMultichannelAudioFormat_Default(void) {
    NorvoMultichannelAudioFormat format{};
    format.words[NORVO_AUDIO_FORMAT_WORD_SAMPLE_RATE] = 16000;
    format.words[NORVO_AUDIO_FORMAT_WORD_BITS_PER_SAMPLE] = 16;
    format.words[NORVO_AUDIO_FORMAT_WORD_CHANNEL_COUNT] = 1;
    // Engine-private words: distinct values so that tests can tell untouched words from zeroed
    // ones.
    for (int i = 4; i < NORVO_AUDIO_FORMAT_WORD_COUNT; ++i) format.words[i] = 100 + i;
    return format;
}

NorvoStatus NorvoDecoder_NewSpotterAudioDecoder(NorvoDecoderId decoderId,
                                                NorvoModelSetId modelSetId,
                                                const char* keywordSetName,
                                                NorvoMultichannelAudioFormat format,
                                                const char* configJson) {
    DecoderInfo info{"spotter",        text(modelSetId), text(keywordSetName),
                     text(configJson), format,           0};
    return engine().newDecoder("NorvoDecoder_NewSpotterAudioDecoder",
                               {text(decoderId), text(modelSetId), text(keywordSetName),
                                formatText(format), text(configJson)},
                               info, decoderId);
}

NorvoStatus NorvoDecoder_NewMultichannelAudioDecoder(NorvoDecoderId decoderId,
                                                     NorvoModelSetId modelSetId, const char* name,
                                                     int32_t p0, int32_t p1, int32_t p2, int32_t p3,
                                                     int32_t p4, int32_t p5,
                                                     NorvoMultichannelAudioFormat format) {
    DecoderInfo info{"multichannel", text(modelSetId), text(name), "", format, 0};
    return engine().newDecoder("NorvoDecoder_NewMultichannelAudioDecoder",
                               {text(decoderId), text(modelSetId), text(name), std::to_string(p0),
                                std::to_string(p1), std::to_string(p2), std::to_string(p3),
                                std::to_string(p4), std::to_string(p5), formatText(format)},
                               info, decoderId);
}

NorvoStatus NorvoDecoder_NewPcmInt16(NorvoDecoderId decoderId, NorvoModelSetId modelSetId,
                                     const char* name, int32_t p0, int32_t p1, int32_t p2,
                                     int32_t p3) {
    DecoderInfo info{"pcm16",
                     text(modelSetId),
                     text(name),
                     "",
                     NorvoDecoder_NewNorvoMultichannelAudioFormat_Default(),
                     0};
    return engine().newDecoder("NorvoDecoder_NewPcmInt16",
                               {text(decoderId), text(modelSetId), text(name), std::to_string(p0),
                                std::to_string(p1), std::to_string(p2), std::to_string(p3)},
                               info, decoderId);
}

NorvoStatus NorvoDecoder_Delete(NorvoDecoderId decoderId) {
    return engine().deleteDecoder(decoderId);
}

NorvoDecoderThreadIdResult NorvoDecoder_GetDecoderThreadId(NorvoDecoderId decoderId) {
    return engine().decoderThreadId(decoderId);
}

NorvoStatus NorvoDecoder_SetNttConfiguration(NorvoDecoderId decoderId, int32_t configuration) {
    return engine().decoderCall("NorvoDecoder_SetNttConfiguration",
                                {text(decoderId), std::to_string(configuration)});
}

NorvoStatus NorvoDecoder_SetFingerprintDatabase(NorvoDecoderId decoderId, const char* database) {
    return engine().decoderCall("NorvoDecoder_SetFingerprintDatabase",
                                {text(decoderId), text(database)});
}

NorvoStatus NorvoDecoder_PushAudioEvent(NorvoDecoderId decoderId, const NorvoAudioEvent* event) {
    return engine().pushAudio(decoderId, event);
}

NorvoStatus NorvoDecoder_PushClientEvents(NorvoDecoderId decoderId,
                                          const NorvoClientEventBatch* batch, uint32_t count) {
    std::vector<std::string> args{text(decoderId), std::to_string(count)};
    if (batch != nullptr && batch->events != nullptr) {
        for (uint32_t i = 0; i < batch->count; ++i) {
            args.push_back(text(batch->events[i].name));
            args.push_back(std::to_string(batch->events[i].value));
        }
    }
    return engine().decoderCall("NorvoDecoder_PushClientEvents", std::move(args), /*anyId=*/true);
}

NorvoStatus NorvoDecoder_PushNttEvent(NorvoDecoderId decoderId, const NorvoNttEvent* event) {
    std::vector<std::string> args{text(decoderId)};
    if (event != nullptr) {
        args.insert(args.end(), {std::to_string(event->kind), std::to_string(event->start),
                                 std::to_string(event->end), text(event->text),
                                 std::to_string(event->timestamp)});
    }
    return engine().decoderCall("NorvoDecoder_PushNttEvent", std::move(args));
}

NorvoStatus NorvoDecoder_SessionEnd(NorvoDecoderId decoderId) {
    return engine().decoderCall("NorvoDecoder_SessionEnd", {text(decoderId)});
}

}  // extern "C"
