/*
 * The Java bridge: globals, class caches and functions shared by its source files.
 *
 * Threads: natives run on Java threads; result, metrics and federated-learning callbacks run on
 * engine threads and attach themselves to the VM for one call (ScopedJNICallback). The caches are
 * filled once by JNI_OnLoad and only read afterwards.
 */
#ifndef VELMAR_WAKE_WORD_SERVICE_JNI_H
#define VELMAR_WAKE_WORD_SERVICE_JNI_H

#include <audiostream/AudioStream.h>
#include <jni.h>
#include <norvo/NorvoApi.h>
#include <utils/Mutex.h>
#include <utils/StrongPointer.h>

#include "WakeWordService.h"

// ---- process-wide state
// --------------------------------------------------------------------------

extern JavaVM* gVM;
// Global reference to the Java NativeWakeWordServiceCore that owns the service; null when none.
// Written by create and destroy under gInstanceLock; callbacks take a local reference under it.
extern jobject gInstance;
// Writer on the metadata stream; every use is under gBufferLock.
extern android::sp<velmar::AudioStreamWriter> gMetaDataWriter;
extern android::Mutex gBufferLock;

// ---- class caches (filled at load, never released) ---------------------------------------------

struct ArrayListClassInfo {
    jclass clazz;
    jmethodID constructor;
    jmethodID add;
};
struct NorvoDMSMetricDataClassInfo {
    jclass clazz;
    jmethodID constructor;
    jfieldID programName, sourceName, dataPointName, dataPointValue, dataPointType,
            dataPointSamples, isHighPriority, metadataList;
};
struct NorvoDMSQuillanMetricDataClassInfo {
    jclass clazz;
    jmethodID constructor;
    jfieldID groupID, schemaID, dataPointName, dataPointValue, dataPointType, dataPointSamples,
            metadataList;
};
struct NorvoDMSMetricMetadataClassInfo {
    jclass clazz;
    jmethodID constructor;
    jfieldID metadataName, metadataValue;
};
struct WWFederatedLearningEventClassInfo {
    jclass clazz;
    jmethodID constructor;
    jfieldID mModelSetId, mModelId, mEventType, mMetadataJson, mData;
};
struct WWFederatedLearningUnsecuredEventClassInfo {
    jclass clazz;
    jmethodID constructor;
    jfieldID mModelSetId, mModelId, mEventType, mMetadataJson, mData, mSmpcScaleValue,
            mApplicationId;
};
struct WWFederatedLearningIdleDetectionResultClassInfo {
    jclass clazz;
    jmethodID constructor;
    jfieldID mModelSetId, mModelId, mTimeSinceLastIdleSec;
    jmethodID getTimeSinceLastIdleSec;
};
struct FingerprintResultClassInfo {
    jclass clazz;
    jmethodID constructor;
    jfieldID mBlob, mStartSampleIndex, mEndSampleIndex, mFingerprintFilterString;
};
struct NativeWakeWordServiceCoreClassInfo {
    jclass clazz;
    jmethodID handleEnumeratedResult, handleAudioPresenceDetectionResult, handleLocalCommandResult,
            handleNttResult, handleNttEndOfSpeechResult, handleUtteranceJsonAvailable,
            aedStaticDecoderStart, aedStaticDecoderStop, aedCustomDecoderStart,
            aedCustomDecoderStop, nttDecoderStart, nttDecoderStop, pmaDecoderStart, pmaDecoderStop,
            recordMetrics, recordQuillanMetrics, handleFederatedLearningEvent,
            handleFederatedLearningUnsecuredEvent, handleFederatedLearningIdleDetectionResult,
            handleFingerprintResultEvent;
    jfieldID mNativeInstance;
};

extern ArrayListClassInfo gArrayListClassInfo;
extern NorvoDMSMetricDataClassInfo gNorvoDMSMetricDataClassInfo;
extern NorvoDMSMetricMetadataClassInfo gNorvoDMSMetricMetadataClassInfo;
extern NorvoDMSQuillanMetricDataClassInfo gNorvoDMSQuillanMetricDataClassInfo;
extern NorvoDMSMetricMetadataClassInfo gNorvoDMSQuillanMetricMetadataClassInfo;
extern WWFederatedLearningEventClassInfo gWWFederatedLearningEventClassInfo;
extern WWFederatedLearningUnsecuredEventClassInfo gWWFederatedLearningUnsecuredEventClassInfo;
extern WWFederatedLearningIdleDetectionResultClassInfo
        gWWFederatedLearningIdleDetectionResultClassInfo;
extern FingerprintResultClassInfo gFingerprintResultClassInfo;
extern NativeWakeWordServiceCoreClassInfo gNativeWakeWordServiceCoreClassInfo;

// ---- load (velmar_speech_wakewordservice_WakeWordService.cpp) -----------------------------------

void init_java_util_ArrayListClass(JNIEnv* env);
void init_velmar_speech_wakewordservice_NorvoDMSMetricDataClass(JNIEnv* env);
void init_velmar_speech_wakewordservice_NorvoDMSMetricMetadataClass(JNIEnv* env);
void init_velmar_speech_wakewordservice_NorvoDMSQuillanMetricDataClass(JNIEnv* env);
void init_velmar_speech_wakewordservice_NorvoDMSQuillanMetricMetadataClass(JNIEnv* env);
void init_velmar_speech_federatedlearning_wakeword_WWFederatedLearningEventClass(JNIEnv* env);
void init_velmar_speech_federatedlearning_wakeword_WWFederatedLearningUnsecuredEventClass(
        JNIEnv* env);
void init_velmar_speech_federatedlearning_wakeword_WWFederatedLearningIdleDetectionResultClass(
        JNIEnv* env);
void init_velmar_speech_wakewordservice_fingerprint_FingerprintResultClass(JNIEnv* env);
// Caches NativeWakeWordServiceCore and registers the 33 natives; RegisterNatives' result.
int register_velmar_speech_wakewordservice_WakeWordService(JNIEnv* env);

// Attaches the calling native thread to the VM for one scope, unless it is attached already.
// Stack only; detaches in the destructor exactly when attachThread attached.
class ScopedJNICallback {
  public:
    ScopedJNICallback();
    ~ScopedJNICallback();
    ScopedJNICallback(const ScopedJNICallback&) = delete;
    ScopedJNICallback& operator=(const ScopedJNICallback&) = delete;
    // Afterwards mEnv is the thread's environment, or null when attaching failed (logged).
    void attachThread(int version);

    bool mAttached;
    JavaVM* mVm;
    JNIEnv* mEnv;
};

// A local reference to gInstance for the calling thread (null when there is no service). The
// local reference stays valid even if destroy deletes gInstance meanwhile.
jobject acquireInstance(JNIEnv* env);
// Replaces gInstance with a new global reference to instance (or null), deleting the old one.
void setInstance(JNIEnv* env, jobject instance);

// ---- creation and destruction (WakeWordServiceJniLifecycle.cpp) ---------------------------------

android::sp<velmar::WakeWordService> getNativeService(JNIEnv* env);
// strdup copies of a Java String[]; the count (0 and out untouched for null or empty arrays).
int copyToCharArray(JNIEnv* env, jobjectArray array, const char**& out);
void freeCharArray(const char**& array, int count);

jint velmar_speech_wakewordservice_WakeWordService_createNativeService(
        JNIEnv* env, jobject thiz, jstring packageName, jobject audioStream,
        jobject oneMicAudioStream, jobject metadataStream, jstring norvoModelManifestPath,
        jstring aedStaticModelManifestPath, jstring nttModelManifestPath,
        jstring pmaModelManifestPath, jstring aedCustomModelJsonPath, jobjectArray wakeWords,
        jboolean playbackViaAudioRecord, jboolean suppressPlaybackAtInit, jboolean aedAvailable,
        jboolean nearMissEnabled, jboolean threeChannelInput, jboolean nttEnabled,
        jboolean preloadNttModel, jint decoderThreadPriority, jint audioRecordFrameCount,
        jint localTimeOffset, jint ttsStreamType);
jboolean velmar_speech_wakewordservice_WakeWordService_destroyNativeService(JNIEnv* env,
                                                                            jobject thiz);
jint velmar_speech_wakewordservice_WakeWordService_setDetectorEnabled(JNIEnv* env, jobject thiz,
                                                                      jboolean enabled);
jboolean velmar_speech_wakewordservice_WakeWordService_getDetectorEnabled(JNIEnv* env,
                                                                          jobject thiz);

// ---- result callbacks (WakeWordServiceJniResults.cpp) ---------------------------------------

// Writes a result blob into the metadata stream under gBufferLock; (position, size) of the blob,
// or (0, 0) when it could not be written. Outputs untouched when either is null or there is no
// writer.
void writeAsrBlob(const NorvoDataBlob& blob, uint32_t* position, uint32_t* size);
void norvoEnumerationEventCallback_JNI(NorvoDecoderId decoderId, NorvoEnumeratedResult* result);
void norvoLocalCommandCallback_JNI(NorvoDecoderId decoderId, NorvoEnumeratedResult* result);
void norvoPresenceDetectionCallback_JNI(NorvoDecoderId decoderId,
                                        NorvoAcousticEventDetectionResult* result);
void norvoNttResultCallback_JNI(NorvoDecoderId decoderId, NorvoNttResult* result);
void norvoNttEndOfSpeechResultCallback_JNI(NorvoDecoderId decoderId, NorvoNttEndOfSpeech* result);
void norvoSetJsondataCallback_JNI(NorvoString text1, NorvoString text2, NorvoString text3,
                                  NorvoString text4, int value1, int value2);
void aedStaticDecoderStatusCallback_JNI(bool started);
void aedCustomDecoderStatusCallback_JNI(bool started);
void nttDecoderStatusCallback_JNI(bool started);
void pmaDecoderStatusCallback_JNI(bool started);

// ---- metrics and federated learning (WakeWordServiceJniMetrics.cpp) --------------------------

void recordMetricsCallback_JNI(NorvoDMSMetricData* record);
void recordQuillanMetricsCallback_JNI(NorvoDMSQuillanMetricData* record);
void handleFederatedLearningEventCallback_JNI(const char* modelSetId, const char* modelId,
                                              NorvoFederatedLearningEvent* event);
void handleFederatedLearningUnsecuredEventCallback_JNI(const char* modelSetId, const char* modelId,
                                                       NorvoFederatedLearningUnsecuredEvent* event);
void handleFederatedLearningIdleDetectionResultCallback_JNI(
        const char* modelSetId, const char* modelId,
        NorvoFederatedLearningIdleDetectionResult* result);

// ---- control natives (WakeWordServiceJniControl.cpp) -------------------------------------------

// Fetches a model set's attributes through the service; a new Java string, or null.
jstring getModelSetAttributesInternal(JNIEnv* env, jobject thiz, const char* modelSetId);
jint velmar_speech_wakewordservice_WakeWordService_setWWDetectionEnabled(JNIEnv* env, jobject thiz,
                                                                         jboolean enabled);
jint velmar_speech_wakewordservice_WakeWordService_setWWDetectionEnabledForLpm(JNIEnv* env,
                                                                               jobject thiz,
                                                                               jboolean enabled,
                                                                               jint value);
jint velmar_speech_wakewordservice_WakeWordService_switchNorvoModel(JNIEnv* env, jobject thiz,
                                                                    jstring manifestPath,
                                                                    jobjectArray wakeWords);
jboolean velmar_speech_wakewordservice_WakeWordService_injectWaveFile(JNIEnv* env, jobject thiz,
                                                                      jstring path,
                                                                      jboolean toPlayback);
jint velmar_speech_wakewordservice_WakeWordService_setNorvoProperty(JNIEnv* env, jobject thiz,
                                                                    jstring name, jint value);
jint velmar_speech_wakewordservice_WakeWordService_onCVEvent(JNIEnv* env, jobject thiz,
                                                             jstring eventJson,
                                                             jlong clientTimestamp);
jint velmar_speech_wakewordservice_WakeWordService_onSpeakerLocalizationEvent(
        JNIEnv* env, jobject thiz, jstring eventJson, jlong clientBeginTimestamp,
        jlong clientEndTimestamp);
jint velmar_speech_wakewordservice_WakeWordService_setNorvoAcousticProperty(JNIEnv* env,
                                                                            jobject thiz,
                                                                            jstring name,
                                                                            jint value);
jint velmar_speech_wakewordservice_WakeWordService_setAudioEventDetectionMode(JNIEnv* env,
                                                                              jobject thiz,
                                                                              jboolean enabled);
jint velmar_speech_wakewordservice_WakeWordService_setNttDetectionMode(JNIEnv* env, jobject thiz,
                                                                       jboolean enabled, jint mode);
jint velmar_speech_wakewordservice_WakeWordService_switchNttModel(JNIEnv* env, jobject thiz,
                                                                  jstring manifestPath);
jint velmar_speech_wakewordservice_WakeWordService_switchPmaModel(JNIEnv* env, jobject thiz,
                                                                  jstring manifestPath);
jint velmar_speech_wakewordservice_WakeWordService_enablePlaybackDetector(JNIEnv* env,
                                                                          jobject thiz);
jboolean velmar_speech_wakewordservice_WakeWordService_setPushDataToPlaybackDetectorEnabled(
        JNIEnv* env, jobject thiz, jboolean enabled);
jint velmar_speech_wakewordservice_WakeWordService_resetAudioInput(JNIEnv* env, jobject thiz);
jstring velmar_speech_wakewordservice_WakeWordService_getAudioPresenceData(JNIEnv* env,
                                                                           jobject thiz);
jlong velmar_speech_wakewordservice_WakeWordService_getInputFrameCount(JNIEnv* env, jobject thiz);
jlong velmar_speech_wakewordservice_WakeWordService_getInputFrameTime(JNIEnv* env, jobject thiz);
jlong velmar_speech_wakewordservice_WakeWordService_getPlaybackFrameCount(JNIEnv* env,
                                                                          jobject thiz);
jint velmar_speech_wakewordservice_WakeWordService_setFingerprintDatabase(JNIEnv* env, jobject thiz,
                                                                          jstring path);
jstring velmar_speech_wakewordservice_WakeWordService_getNorvoLibraryAttributes(JNIEnv* env,
                                                                                jobject thiz);
jstring velmar_speech_wakewordservice_WakeWordService_getWakeWordModelSetAttributes(JNIEnv* env,
                                                                                    jobject thiz);
jstring velmar_speech_wakewordservice_WakeWordService_getAudioPresenceModelSetAttributes(
        JNIEnv* env, jobject thiz);
jstring velmar_speech_wakewordservice_WakeWordService_getNaturalTurnTakingModelSetAttributes(
        JNIEnv* env, jobject thiz);
jint velmar_speech_wakewordservice_WakeWordService_setAedStaticModel(JNIEnv* env, jobject thiz,
                                                                     jstring manifestPath);
jint velmar_speech_wakewordservice_WakeWordService_setAedCustomModel(JNIEnv* env, jobject thiz,
                                                                     jstring jsonPath);
void velmar_speech_wakewordservice_WakeWordService_setBacklogWatermarks(JNIEnv* env, jobject thiz,
                                                                        jint low, jint high);
void velmar_speech_wakewordservice_WakeWordService_setNorvoPriorities(JNIEnv* env, jobject thiz,
                                                                      jint first, jint second);
jint velmar_speech_wakewordservice_WakeWordService_notifyTtsState(JNIEnv* env, jobject thiz,
                                                                  jboolean isPlaying);

#endif  // VELMAR_WAKE_WORD_SERVICE_JNI_H
