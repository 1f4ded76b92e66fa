/*
 * libnorvo: the keyword-spotting engine's C interface.
 *
 * The engine is a process-wide singleton with a flat interface of free functions in three
 * families:
 *   NorvoApi_*       global callbacks, global settings and library attributes;
 *   NorvoModelSet_*  model sets loaded from manifest files, addressed by a caller-chosen string id;
 *   NorvoDecoder_*   decoders bound to a model set, addressed by a caller-chosen string id.
 * There are no handles: every operation names its model set or decoder by id.
 *
 * Strings passed in (configuration JSON, manifest paths, event names, metadata JSON) are valid only
 * for the duration of the call; the engine copies whatever it keeps. Strings and records passed to
 * callbacks belong to the engine and are valid only for the duration of the callback.
 *
 * Threads: every operation may be called concurrently from any thread. Result, metrics, logging and
 * federated-learning callbacks arrive on threads the engine owns.
 *
 * Records are laid out as the engine lays them out on 32-bit ARM (64-bit integers 8-byte aligned);
 * the offsets are checked at compile time for that target at the end of this file.
 */
#ifndef NORVO_NORVO_API_H
#define NORVO_NORVO_API_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* ---------------------------------------------------------------------------------------------
 * Identifiers, statuses
 * ------------------------------------------------------------------------------------------- */

/* Decoder and model-set ids and all engine texts are NUL-terminated strings. */
typedef const char* NorvoDecoderId;
typedef const char* NorvoModelSetId;
typedef const char* NorvoString;

/* Every operation except the attribute getter, the format constructor and the thread-id query
 * returns a status: 0 success, NORVO_ERROR_FATAL a fatal engine error, any other value a
 * recoverable failure. */
typedef int32_t NorvoStatus;
#define NORVO_SUCCESS 0
#define NORVO_ERROR_FATAL 1

/* Values for NorvoDecoder_SetNttConfiguration. */
#define NORVO_NTT_CONFIGURATION_DISABLED 0
#define NORVO_NTT_CONFIGURATION_CONVERSATION 1
#define NORVO_NTT_CONFIGURATION_PROMPT 2
#define NORVO_NTT_CONFIGURATION_VISUAL_ATTENTION 3
#define NORVO_NTT_CONFIGURATION_LISTENING 4

/* ---------------------------------------------------------------------------------------------
 * Records handed to the engine
 * ------------------------------------------------------------------------------------------- */

/* Audio format of a decoder, passed by value: 36 little-endian 32-bit words. Obtain it filled with
 * engine defaults from NorvoDecoder_NewNorvoMultichannelAudioFormat_Default(); the defaults
 * describe 16 kHz, 16-bit, one-channel audio. Words 0 and 4 to 35 are engine-defined. */
#define NORVO_AUDIO_FORMAT_WORD_COUNT 36
#define NORVO_AUDIO_FORMAT_WORD_SAMPLE_RATE 1
#define NORVO_AUDIO_FORMAT_WORD_BITS_PER_SAMPLE 2
#define NORVO_AUDIO_FORMAT_WORD_CHANNEL_COUNT 3
typedef struct NorvoMultichannelAudioFormat {
    uint32_t words[NORVO_AUDIO_FORMAT_WORD_COUNT];
} NorvoMultichannelAudioFormat;

/* One named client event (device state) pushed to a decoder. */
typedef struct NorvoClientEvent {
    const char* name;
    int64_t value;
} NorvoClientEvent;

typedef struct NorvoClientEventBatch {
    uint32_t count;
    const NorvoClientEvent* events;
} NorvoClientEventBatch;

/* Audio pushed for detection: type "samples", metadata JSON
 * { "sample_count":N, "first_sample_index":I }, and interleaved 16-bit PCM. */
typedef struct NorvoAudioEvent {
    const char* type;
    const char* metadata;
    const void* samples;
    uint32_t reserved; /* always 0 */
} NorvoAudioEvent;

/* Natural-turn-taking event. kind: 0 computer-vision event, 1 speaker-localization event. */
#define NORVO_NTT_EVENT_COMPUTER_VISION 0
#define NORVO_NTT_EVENT_SPEAKER_LOCALIZATION 1
typedef struct NorvoNttEvent {
    int32_t kind;
    int64_t start;
    int64_t end;
    const char* text;
    int64_t timestamp; /* computer-vision events only */
} NorvoNttEvent;

typedef struct NorvoDecoderThreadIdResult {
    int32_t status;   /* 0 when the decoder was found */
    int32_t threadId; /* kernel thread id of the decoder's processing thread */
} NorvoDecoderThreadIdResult;

/* ---------------------------------------------------------------------------------------------
 * Records the engine hands to callbacks
 * ------------------------------------------------------------------------------------------- */

typedef struct NorvoDataBlob {
    uint32_t size;
    const uint8_t* data;
} NorvoDataBlob;

/* Wake-word and local-command results. detectionType is 0, 1 or 2. */
typedef struct NorvoEnumeratedResult {
    int64_t reserved0;
    int64_t beginSampleIndex;
    int64_t endSampleIndex;
    NorvoString keyword;
    NorvoString detailText;
    int32_t detailValue;
    int32_t detectionType;
    NorvoDataBlob blob;
    uint8_t reserved1[16];
    int64_t tailValue;
} NorvoEnumeratedResult;

typedef struct NorvoAcousticEventDetectionResult {
    int64_t beginSampleIndex;
    int64_t endSampleIndex;
    int32_t detectionType;
    NorvoString eventName;
    uint8_t eventFlag;
} NorvoAcousticEventDetectionResult;

typedef struct NorvoNttResult {
    int64_t beginSampleIndex;
    int32_t eventType;
    NorvoDataBlob blob;
    int64_t detectionSampleIndex;
    int32_t activeMode;
} NorvoNttResult;

typedef struct NorvoNttEndOfSpeech {
    int64_t reserved0;
    int64_t endOfSpeechValue;
} NorvoNttEndOfSpeech;

typedef struct NorvoDMSMetricMetadataEntry {
    NorvoString name;
    NorvoString value;
} NorvoDMSMetricMetadataEntry;

/* dataPointType: 0 counter ("CT"), 1 discrete value ("DV"). */
typedef struct NorvoDMSMetricData {
    NorvoString programName;
    NorvoString sourceName;
    NorvoString dataPointName;
    NorvoString dataPointValue;
    int32_t dataPointType;
    int32_t reserved[2];
    const NorvoDMSMetricMetadataEntry* metadata;
    int32_t metadataCount;
} NorvoDMSMetricData;

typedef struct NorvoDMSQuillanMetricData {
    NorvoString groupID;
    NorvoString schemaID;
    NorvoString dataPointName;
    NorvoString dataPointValue;
    int32_t dataPointType;
    int32_t reserved;
    const NorvoDMSMetricMetadataEntry* metadata;
    int32_t metadataCount;
} NorvoDMSQuillanMetricData;

/* eventType 0: wake-word event. */
typedef struct NorvoFederatedLearningEvent {
    int32_t eventType;
    NorvoString metadataJson;
    int32_t dataLength;
    const uint8_t* data;
} NorvoFederatedLearningEvent;

typedef struct NorvoFederatedLearningUnsecuredEvent {
    const NorvoFederatedLearningEvent* event;
    float smpcScaleValue;
    NorvoString applicationId;
} NorvoFederatedLearningUnsecuredEvent;

/* In: the engine's value. Out: the value the client answers, in seconds. */
typedef struct NorvoFederatedLearningIdleDetectionResult {
    int64_t timeSinceLastIdleSec;
} NorvoFederatedLearningIdleDetectionResult;

/* ---------------------------------------------------------------------------------------------
 * Callback types. Each registration replaces the single process-wide callback of its kind; a null
 * function pointer removes it.
 * ------------------------------------------------------------------------------------------- */

/* level: 1 fatal, 2 error, 3 warning, 4 info, 5 debug, 6 verbose. */
typedef void (*NorvoLoggingCallback)(int level, const char* component, const char* message);
typedef void (*NorvoMetricsCallback)(const char* component, const char* metrics);
typedef void (*EnumeratedResult_Callback)(NorvoDecoderId decoderId, NorvoEnumeratedResult* result);
typedef void (*LocalCommandEnumeratedResult_Callback)(NorvoDecoderId decoderId,
                                                      NorvoEnumeratedResult* result);
typedef void (*AcousticEventDetectionResult_Callback)(NorvoDecoderId decoderId,
                                                      NorvoAcousticEventDetectionResult* result);
typedef void (*PresenceDetectionResult_Callback)(NorvoDecoderId decoderId,
                                                 NorvoAcousticEventDetectionResult* result);
typedef void (*NttResult_Callback)(NorvoDecoderId decoderId, NorvoNttResult* result);
typedef void (*NttEndOfSpeech_Callback)(NorvoDecoderId decoderId, NorvoNttEndOfSpeech* result);
typedef void (*Jsondata_Callback)(NorvoString text1, NorvoString text2, NorvoString text3,
                                  NorvoString text4, int value1, int value2);
typedef void (*NorvoDmsMetrics_Callback)(NorvoDMSMetricData* data);
typedef void (*NorvoDmsQuillanMetrics_Callback)(NorvoDMSQuillanMetricData* data);
typedef void (*NorvoFederatedLearning_resultCallback)(const char* modelSetId, const char* modelId,
                                                      NorvoFederatedLearningEvent* event);
typedef void (*NorvoFederatedLearning_unsecuredResultCallback)(
        const char* modelSetId, const char* modelId, NorvoFederatedLearningUnsecuredEvent* event);
typedef void (*NorvoFederatedLearning_idleDetectionCallback)(
        const char* modelSetId, const char* modelId,
        NorvoFederatedLearningIdleDetectionResult* result);
/* Called once, synchronously, by NorvoModelSet_GetModelSetAttributes before it returns. */
typedef void (*ModelSetAttributesCallback)(const char* attributesJson, void* userData);

/* ---------------------------------------------------------------------------------------------
 * Global operations
 * ------------------------------------------------------------------------------------------- */

NorvoStatus NorvoApi_SetLoggingCallback(NorvoLoggingCallback cb);
NorvoStatus NorvoApi_SetMetricsCallback(NorvoMetricsCallback cb);
NorvoStatus NorvoApi_SetEnumeratedResultCallback(EnumeratedResult_Callback cb);
NorvoStatus NorvoApi_SetLocalCommandEnumeratedResultCallback(
        LocalCommandEnumeratedResult_Callback cb);
NorvoStatus NorvoApi_SetAcousticEventDetectionResultCallback(
        AcousticEventDetectionResult_Callback cb);
NorvoStatus NorvoApi_SetPresenceDetectionResultCallback(PresenceDetectionResult_Callback cb);
NorvoStatus NorvoApi_SetNttResultCallback(NttResult_Callback cb);
NorvoStatus NorvoApi_SetNttEndOfSpeechCallback(NttEndOfSpeech_Callback cb);
NorvoStatus NorvoApi_SetJsondataCallback(Jsondata_Callback cb);
NorvoStatus NorvoApi_SetDmsMetricsCallback(NorvoDmsMetrics_Callback cb);
NorvoStatus NorvoApi_SetDmsQuillanMetricsCallback(NorvoDmsQuillanMetrics_Callback cb);
NorvoStatus NorvoApi_SetFederatedLearningEventCallback(NorvoFederatedLearning_resultCallback cb);
NorvoStatus NorvoApi_SetFederatedLearningUnsecuredEventCallback(
        NorvoFederatedLearning_unsecuredResultCallback cb);
NorvoStatus NorvoApi_SetFederatedLearningIdleDetectionCallback(
        NorvoFederatedLearning_idleDetectionCallback cb);
/* Offset of local time from UTC, in the unit the client uses. */
NorvoStatus NorvoApi_SetLocalTimeOffset(int32_t offset);
/* Device description JSON used as lookahead metadata. */
NorvoStatus NorvoApi_SetClientLookaheadMetadata(const char* json);
/* Library-owned description; stays valid for the life of the process. Never freed by callers. */
const char* NorvoApi_GetAttributes(void);

/* ---------------------------------------------------------------------------------------------
 * Model sets
 * ------------------------------------------------------------------------------------------- */

NorvoStatus NorvoModelSet_New(NorvoModelSetId modelSetId, const char* manifestPath,
                              const char* options);
NorvoStatus NorvoModelSet_Delete(NorvoModelSetId modelSetId);
/* Calls cb(attributesJson, userData) once before returning. */
NorvoStatus NorvoModelSet_GetModelSetAttributes(NorvoModelSetId modelSetId,
                                                ModelSetAttributesCallback cb, void* userData);
NorvoStatus NorvoModelSet_SetAedCustomSoundConfig(NorvoModelSetId modelSetId, const char* name,
                                                  const char* config);

/* ---------------------------------------------------------------------------------------------
 * Decoders. An id can be created again after it was deleted. Decoders are deleted before their
 * model set.
 * ------------------------------------------------------------------------------------------- */

NorvoMultichannelAudioFormat NorvoDecoder_NewNorvoMultichannelAudioFormat_Default(void);
NorvoStatus NorvoDecoder_NewSpotterAudioDecoder(NorvoDecoderId decoderId,
                                                NorvoModelSetId modelSetId,
                                                const char* keywordSetName,
                                                NorvoMultichannelAudioFormat format,
                                                const char* configJson);
NorvoStatus NorvoDecoder_NewMultichannelAudioDecoder(NorvoDecoderId decoderId,
                                                     NorvoModelSetId modelSetId, const char* name,
                                                     int32_t p0, int32_t p1, int32_t p2, int32_t p3,
                                                     int32_t p4, int32_t p5,
                                                     NorvoMultichannelAudioFormat format);
NorvoStatus NorvoDecoder_NewPcmInt16(NorvoDecoderId decoderId, NorvoModelSetId modelSetId,
                                     const char* name, int32_t p0, int32_t p1, int32_t p2,
                                     int32_t p3);
NorvoStatus NorvoDecoder_Delete(NorvoDecoderId decoderId);
NorvoDecoderThreadIdResult NorvoDecoder_GetDecoderThreadId(NorvoDecoderId decoderId);
NorvoStatus NorvoDecoder_SetNttConfiguration(NorvoDecoderId decoderId, int32_t configuration);
NorvoStatus NorvoDecoder_SetFingerprintDatabase(NorvoDecoderId decoderId, const char* database);
NorvoStatus NorvoDecoder_PushAudioEvent(NorvoDecoderId decoderId, const NorvoAudioEvent* event);
NorvoStatus NorvoDecoder_PushClientEvents(NorvoDecoderId decoderId,
                                          const NorvoClientEventBatch* batch, uint32_t count);
NorvoStatus NorvoDecoder_PushNttEvent(NorvoDecoderId decoderId, const NorvoNttEvent* event);
NorvoStatus NorvoDecoder_SessionEnd(NorvoDecoderId decoderId);

#ifdef __cplusplus
}  // extern "C"
#endif

/* Layout of the records on the 32-bit ARM target, as the engine binary expects them. */
#if defined(__cplusplus) && defined(__arm__)
#define NORVO_CHECK_OFFSET(type, field, offset) \
    static_assert(offsetof(type, field) == (offset), #type "." #field " offset")
#define NORVO_CHECK_SIZE(type, size) static_assert(sizeof(type) == (size), #type " size")
NORVO_CHECK_SIZE(NorvoMultichannelAudioFormat, 144);
NORVO_CHECK_OFFSET(NorvoClientEvent, value, 8);
NORVO_CHECK_SIZE(NorvoClientEvent, 16);
NORVO_CHECK_OFFSET(NorvoClientEventBatch, events, 4);
NORVO_CHECK_SIZE(NorvoClientEventBatch, 8);
NORVO_CHECK_OFFSET(NorvoAudioEvent, metadata, 4);
NORVO_CHECK_OFFSET(NorvoAudioEvent, samples, 8);
NORVO_CHECK_SIZE(NorvoAudioEvent, 16);
NORVO_CHECK_OFFSET(NorvoNttEvent, kind, 0);
NORVO_CHECK_OFFSET(NorvoNttEvent, start, 8);
NORVO_CHECK_OFFSET(NorvoNttEvent, end, 16);
NORVO_CHECK_OFFSET(NorvoNttEvent, text, 24);
NORVO_CHECK_OFFSET(NorvoNttEvent, timestamp, 32);
NORVO_CHECK_SIZE(NorvoNttEvent, 40);
NORVO_CHECK_SIZE(NorvoDecoderThreadIdResult, 8);
NORVO_CHECK_OFFSET(NorvoDataBlob, data, 4);
NORVO_CHECK_SIZE(NorvoDataBlob, 8);
NORVO_CHECK_OFFSET(NorvoEnumeratedResult, beginSampleIndex, 8);
NORVO_CHECK_OFFSET(NorvoEnumeratedResult, endSampleIndex, 16);
NORVO_CHECK_OFFSET(NorvoEnumeratedResult, keyword, 24);
NORVO_CHECK_OFFSET(NorvoEnumeratedResult, detailText, 28);
NORVO_CHECK_OFFSET(NorvoEnumeratedResult, detailValue, 32);
NORVO_CHECK_OFFSET(NorvoEnumeratedResult, detectionType, 36);
NORVO_CHECK_OFFSET(NorvoEnumeratedResult, blob, 40);
NORVO_CHECK_OFFSET(NorvoEnumeratedResult, tailValue, 64);
NORVO_CHECK_SIZE(NorvoEnumeratedResult, 72);
NORVO_CHECK_OFFSET(NorvoAcousticEventDetectionResult, endSampleIndex, 8);
NORVO_CHECK_OFFSET(NorvoAcousticEventDetectionResult, detectionType, 16);
NORVO_CHECK_OFFSET(NorvoAcousticEventDetectionResult, eventName, 20);
NORVO_CHECK_OFFSET(NorvoAcousticEventDetectionResult, eventFlag, 24);
NORVO_CHECK_OFFSET(NorvoNttResult, eventType, 8);
NORVO_CHECK_OFFSET(NorvoNttResult, blob, 12);
NORVO_CHECK_OFFSET(NorvoNttResult, detectionSampleIndex, 24);
NORVO_CHECK_OFFSET(NorvoNttResult, activeMode, 32);
NORVO_CHECK_OFFSET(NorvoNttEndOfSpeech, endOfSpeechValue, 8);
NORVO_CHECK_SIZE(NorvoDMSMetricMetadataEntry, 8);
NORVO_CHECK_OFFSET(NorvoDMSMetricData, sourceName, 4);
NORVO_CHECK_OFFSET(NorvoDMSMetricData, dataPointName, 8);
NORVO_CHECK_OFFSET(NorvoDMSMetricData, dataPointValue, 12);
NORVO_CHECK_OFFSET(NorvoDMSMetricData, dataPointType, 16);
NORVO_CHECK_OFFSET(NorvoDMSMetricData, metadata, 28);
NORVO_CHECK_OFFSET(NorvoDMSMetricData, metadataCount, 32);
NORVO_CHECK_OFFSET(NorvoDMSQuillanMetricData, schemaID, 4);
NORVO_CHECK_OFFSET(NorvoDMSQuillanMetricData, dataPointType, 16);
NORVO_CHECK_OFFSET(NorvoDMSQuillanMetricData, metadata, 24);
NORVO_CHECK_OFFSET(NorvoDMSQuillanMetricData, metadataCount, 28);
NORVO_CHECK_OFFSET(NorvoFederatedLearningEvent, metadataJson, 4);
NORVO_CHECK_OFFSET(NorvoFederatedLearningEvent, dataLength, 8);
NORVO_CHECK_OFFSET(NorvoFederatedLearningEvent, data, 12);
NORVO_CHECK_OFFSET(NorvoFederatedLearningUnsecuredEvent, smpcScaleValue, 4);
NORVO_CHECK_OFFSET(NorvoFederatedLearningUnsecuredEvent, applicationId, 8);
NORVO_CHECK_SIZE(NorvoFederatedLearningIdleDetectionResult, 8);
#undef NORVO_CHECK_OFFSET
#undef NORVO_CHECK_SIZE
#endif

#endif /* NORVO_NORVO_API_H */
