// The engine's C entry points, forwarding to the process-wide PsEngine.
#include <norvo/NorvoApi.h>
#include <norvo_ps/NorvoPs.h>

#include "PsEngine.h"

using norvo_ps::CallbackRegistry;
using norvo_ps::PsEngine;

namespace {

PsEngine& engine() {
    return PsEngine::instance();
}

template <typename Fn>
NorvoStatus setCallback(std::atomic<Fn> CallbackRegistry::*slot, Fn cb) {
    CallbackRegistry& callbacks = engine().callbacks();
    callbacks.set(callbacks.*slot, cb);
    return NORVO_SUCCESS;
}

}  // namespace

extern "C" {

NorvoStatus NorvoApi_SetLoggingCallback(NorvoLoggingCallback cb) {
    return setCallback(&CallbackRegistry::logging, cb);
}
NorvoStatus NorvoApi_SetMetricsCallback(NorvoMetricsCallback cb) {
    return setCallback(&CallbackRegistry::metrics, cb);
}
NorvoStatus NorvoApi_SetEnumeratedResultCallback(EnumeratedResult_Callback cb) {
    return setCallback(&CallbackRegistry::enumeratedResult, cb);
}
NorvoStatus NorvoApi_SetLocalCommandEnumeratedResultCallback(
        LocalCommandEnumeratedResult_Callback cb) {
    return setCallback(&CallbackRegistry::localCommand, cb);
}
// The kinds below are kept so that a caller can register and remove them like any other; this
// engine has no decoder that produces their results.
NorvoStatus NorvoApi_SetAcousticEventDetectionResultCallback(
        AcousticEventDetectionResult_Callback cb) {
    return setCallback(&CallbackRegistry::acousticEvent, cb);
}
NorvoStatus NorvoApi_SetPresenceDetectionResultCallback(PresenceDetectionResult_Callback cb) {
    return setCallback(&CallbackRegistry::presence, cb);
}
NorvoStatus NorvoApi_SetNttResultCallback(NttResult_Callback cb) {
    return setCallback(&CallbackRegistry::nttResult, cb);
}
NorvoStatus NorvoApi_SetNttEndOfSpeechCallback(NttEndOfSpeech_Callback cb) {
    return setCallback(&CallbackRegistry::nttEndOfSpeech, cb);
}
NorvoStatus NorvoApi_SetJsondataCallback(Jsondata_Callback cb) {
    return setCallback(&CallbackRegistry::jsondata, cb);
}
NorvoStatus NorvoApi_SetDmsMetricsCallback(NorvoDmsMetrics_Callback cb) {
    return setCallback(&CallbackRegistry::dmsMetrics, cb);
}
NorvoStatus NorvoApi_SetDmsQuillanMetricsCallback(NorvoDmsQuillanMetrics_Callback cb) {
    return setCallback(&CallbackRegistry::dmsQuillanMetrics, cb);
}
NorvoStatus NorvoApi_SetFederatedLearningEventCallback(NorvoFederatedLearning_resultCallback cb) {
    return setCallback(&CallbackRegistry::federatedLearning, cb);
}
NorvoStatus NorvoApi_SetFederatedLearningUnsecuredEventCallback(
        NorvoFederatedLearning_unsecuredResultCallback cb) {
    return setCallback(&CallbackRegistry::federatedLearningUnsecured, cb);
}
NorvoStatus NorvoApi_SetFederatedLearningIdleDetectionCallback(
        NorvoFederatedLearning_idleDetectionCallback cb) {
    return setCallback(&CallbackRegistry::federatedLearningIdle, cb);
}

NorvoStatus NorvoApi_SetLocalTimeOffset(int32_t offset) {
    return engine().setLocalTimeOffset(offset);
}

NorvoStatus NorvoApi_SetClientLookaheadMetadata(const char* json) {
    return engine().setLookaheadMetadata(json);
}

const char* NorvoApi_GetAttributes(void) {
    return engine().attributes();
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
    return engine().modelSetAttributes(modelSetId, cb, userData);
}

NorvoStatus NorvoModelSet_SetAedCustomSoundConfig(NorvoModelSetId modelSetId, const char*,
                                                  const char*) {
    return engine().refuseModelSetOperation("an AED custom sound configuration", modelSetId);
}

NorvoMultichannelAudioFormat NorvoDecoder_NewNorvoMultichannelAudioFormat_Default(void) {
    // 16 kHz, 16-bit, one channel; the engine-defined words are unused and left zero.
    NorvoMultichannelAudioFormat format{};
    format.words[NORVO_AUDIO_FORMAT_WORD_SAMPLE_RATE] = 16000;
    format.words[NORVO_AUDIO_FORMAT_WORD_BITS_PER_SAMPLE] = 16;
    format.words[NORVO_AUDIO_FORMAT_WORD_CHANNEL_COUNT] = 1;
    return format;
}

NorvoStatus NorvoDecoder_NewSpotterAudioDecoder(NorvoDecoderId decoderId,
                                                NorvoModelSetId modelSetId,
                                                const char* keywordSetName,
                                                NorvoMultichannelAudioFormat format,
                                                const char* configJson) {
    return engine().newSpotterDecoder(decoderId, modelSetId, keywordSetName, format, configJson);
}

NorvoStatus NorvoDecoder_NewMultichannelAudioDecoder(NorvoDecoderId decoderId, NorvoModelSetId,
                                                     const char*, int32_t, int32_t, int32_t,
                                                     int32_t, int32_t, int32_t,
                                                     NorvoMultichannelAudioFormat) {
    return engine().refuseDecoder("audio-event (multichannel)", decoderId);
}

NorvoStatus NorvoDecoder_NewPcmInt16(NorvoDecoderId decoderId, NorvoModelSetId, const char*,
                                     int32_t, int32_t, int32_t, int32_t) {
    return engine().refuseDecoder("PCM", decoderId);
}

NorvoStatus NorvoDecoder_Delete(NorvoDecoderId decoderId) {
    return engine().deleteDecoder(decoderId);
}

NorvoDecoderThreadIdResult NorvoDecoder_GetDecoderThreadId(NorvoDecoderId decoderId) {
    return engine().decoderThreadId(decoderId);
}

NorvoStatus NorvoDecoder_SetNttConfiguration(NorvoDecoderId decoderId, int32_t) {
    return engine().refuseDecoderOperation("NTT configuration", decoderId);
}

NorvoStatus NorvoDecoder_SetFingerprintDatabase(NorvoDecoderId decoderId, const char*) {
    return engine().refuseDecoderOperation("a fingerprint database", decoderId);
}

NorvoStatus NorvoDecoder_PushAudioEvent(NorvoDecoderId decoderId, const NorvoAudioEvent* event) {
    return engine().pushAudio(decoderId, event);
}

NorvoStatus NorvoDecoder_PushClientEvents(NorvoDecoderId decoderId,
                                          const NorvoClientEventBatch* batch, uint32_t count) {
    return engine().pushClientEvents(decoderId, batch, count);
}

NorvoStatus NorvoDecoder_PushNttEvent(NorvoDecoderId decoderId, const NorvoNttEvent*) {
    return engine().refuseDecoderOperation("an NTT event", decoderId);
}

NorvoStatus NorvoDecoder_SessionEnd(NorvoDecoderId decoderId) {
    return engine().sessionEnd(decoderId);
}

}  // extern "C"
