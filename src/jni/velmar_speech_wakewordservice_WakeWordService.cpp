// Library load: the VM, the Java class caches, the registration of the 33 natives, and the scope
// with which native threads call into Java.
#define LOG_TAG "WakeWordService_JNI"

#include <log/log.h>

#include <mutex>

#include "WakeWordServiceJni.h"

JavaVM* gVM = nullptr;
jobject gInstance = nullptr;
android::sp<velmar::AudioStreamWriter> gMetaDataWriter;
android::Mutex gBufferLock;

ArrayListClassInfo gArrayListClassInfo;
NorvoDMSMetricDataClassInfo gNorvoDMSMetricDataClassInfo;
NorvoDMSMetricMetadataClassInfo gNorvoDMSMetricMetadataClassInfo;
NorvoDMSQuillanMetricDataClassInfo gNorvoDMSQuillanMetricDataClassInfo;
NorvoDMSMetricMetadataClassInfo gNorvoDMSQuillanMetricMetadataClassInfo;
WWFederatedLearningEventClassInfo gWWFederatedLearningEventClassInfo;
WWFederatedLearningUnsecuredEventClassInfo gWWFederatedLearningUnsecuredEventClassInfo;
WWFederatedLearningIdleDetectionResultClassInfo gWWFederatedLearningIdleDetectionResultClassInfo;
FingerprintResultClassInfo gFingerprintResultClassInfo;
NativeWakeWordServiceCoreClassInfo gNativeWakeWordServiceCoreClassInfo;

namespace {

// Guards gInstance against destroy deleting it while a callback takes its local reference.
std::mutex gInstanceLock;

// A failed lookup leaves a Java exception pending; JNI allows no further call with one pending, so
// it is cleared once logged and the load goes on.
void clearPendingException(JNIEnv* env) {
    if (env->ExceptionCheck()) env->ExceptionClear();
}

jclass findClass(JNIEnv* env, const char* path) {
    ALOGD("Getting class %s", path);
    jclass local = env->FindClass(path);
    jclass global = local == nullptr ? nullptr : static_cast<jclass>(env->NewGlobalRef(local));
    if (local != nullptr) env->DeleteLocalRef(local);
    if (global == nullptr) {
        ALOGE("Unable to find class: %s", path);
        clearPendingException(env);
    }
    return global;
}

jmethodID findMethod(JNIEnv* env, jclass clazz, const char* name, const char* signature) {
    ALOGD("Getting method %s %s", name, signature);
    jmethodID id = clazz == nullptr ? nullptr : env->GetMethodID(clazz, name, signature);
    if (id == nullptr) {
        ALOGE("Unable to find method: %s %s", name, signature);
        clearPendingException(env);
    }
    return id;
}

jfieldID findField(JNIEnv* env, jclass clazz, const char* name, const char* signature) {
    ALOGD("Getting field %s %s", name, signature);
    jfieldID id = clazz == nullptr ? nullptr : env->GetFieldID(clazz, name, signature);
    if (id == nullptr) {
        ALOGE("Unable to find field: %s %s", name, signature);
        clearPendingException(env);
    }
    return id;
}

// For a method the Java class may lack: its absence is expected and only warned about.
jmethodID findMethodSafely(JNIEnv* env, jclass clazz, const char* name, const char* signature) {
    if (env->ExceptionCheck()) {
        ALOGE("Exception found before checking for method: %s %s", name, signature);
        env->ExceptionDescribe();
        return nullptr;
    }
    ALOGD("Getting method safely %s %s", name, signature);
    jmethodID id = clazz == nullptr ? nullptr : env->GetMethodID(clazz, name, signature);
    if (id == nullptr) {
        ALOGW("Clearing exception. Unable to find method: %s %s", name, signature);
        if (env->ExceptionCheck()) {
            env->ExceptionDescribe();
            env->ExceptionClear();
        } else {
            ALOGW("No cached jni exception when getting method %s %s", name, signature);
        }
    }
    return id;
}

constexpr const char* kString = "Ljava/lang/String;";

void initMetricMetadata(JNIEnv* env, NorvoDMSMetricMetadataClassInfo& info, const char* path) {
    info.clazz = findClass(env, path);
    info.constructor =
            findMethod(env, info.clazz, "<init>", "(Ljava/lang/String;Ljava/lang/String;)V");
    info.metadataName = findField(env, info.clazz, "metadataName", kString);
    info.metadataValue = findField(env, info.clazz, "metadataValue", kString);
}

#define NATIVE(javaName, signature, function)                      \
    {                                                              \
        javaName, signature,                                       \
                reinterpret_cast<void*>(                           \
                        velmar_speech_wakewordservice_WakeWordService_##function) \
    }

const JNINativeMethod kNativeMethods[] = {
        NATIVE("nCreateNativeService",
               "(Ljava/lang/String;Lvelmar/speech/audio/AudioStream;Lvelmar/speech/audio/"
               "AudioStream;Lvelmar/speech/audio/AudioStream;Ljava/lang/String;Ljava/lang/String;"
               "Ljava/lang/String;Ljava/lang/String;Ljava/lang/String;[Ljava/lang/String;"
               "ZZZZZZZIIII)I",
               createNativeService),
        NATIVE("nDestroyNativeService", "()Z", destroyNativeService),
        NATIVE("nSetDetectorEnabled", "(Z)I", setDetectorEnabled),
        NATIVE("nGetDetectorEnabled", "()Z", getDetectorEnabled),
        NATIVE("nSetWWDetectionEnabled", "(Z)I", setWWDetectionEnabled),
        NATIVE("nSetWWDetectionEnabledForLpm", "(ZI)I", setWWDetectionEnabledForLpm),
        NATIVE("nSwitchNorvoModel", "(Ljava/lang/String;[Ljava/lang/String;)I", switchNorvoModel),
        NATIVE("nInjectWaveFile", "(Ljava/lang/String;Z)Z", injectWaveFile),
        NATIVE("nSetNorvoProperty", "(Ljava/lang/String;I)I", setNorvoProperty),
        NATIVE("nOnCVEvent", "(Ljava/lang/String;J)I", onCVEvent),
        NATIVE("nOnSpeakerLocalizationEvent", "(Ljava/lang/String;JJ)I",
               onSpeakerLocalizationEvent),
        NATIVE("nSetNorvoAcousticProperty", "(Ljava/lang/String;I)I", setNorvoAcousticProperty),
        NATIVE("nSetAudioEventDetectionMode", "(Z)I", setAudioEventDetectionMode),
        NATIVE("nSetNttDetectionMode", "(ZI)I", setNttDetectionMode),
        NATIVE("nSwitchNttModel", "(Ljava/lang/String;)I", switchNttModel),
        NATIVE("nSwitchPmaModel", "(Ljava/lang/String;)I", switchPmaModel),
        NATIVE("nEnablePlaybackDetector", "()I", enablePlaybackDetector),
        NATIVE("nSetPushDataToPlaybackDetectorEnabled", "(Z)Z",
               setPushDataToPlaybackDetectorEnabled),
        NATIVE("nResetAudioInput", "()I", resetAudioInput),
        NATIVE("nGetAudioPresenceData", "()Ljava/lang/String;", getAudioPresenceData),
        NATIVE("nGetInputFrameCount", "()J", getInputFrameCount),
        NATIVE("nGetInputFrameTime", "()J", getInputFrameTime),
        NATIVE("nGetPlaybackFrameCount", "()J", getPlaybackFrameCount),
        NATIVE("nSetFingerprintDatabase", "(Ljava/lang/String;)I", setFingerprintDatabase),
        NATIVE("nGetNorvoLibraryAttributes", "()Ljava/lang/String;", getNorvoLibraryAttributes),
        NATIVE("nGetWakeWordModelSetAttributes", "()Ljava/lang/String;",
               getWakeWordModelSetAttributes),
        NATIVE("nGetAudioPresenceModelSetAttributes", "()Ljava/lang/String;",
               getAudioPresenceModelSetAttributes),
        NATIVE("nGetNaturalTurnTakingModelSetAttributes", "()Ljava/lang/String;",
               getNaturalTurnTakingModelSetAttributes),
        NATIVE("nSetAedStaticModel", "(Ljava/lang/String;)I", setAedStaticModel),
        NATIVE("nSetAedCustomModel", "(Ljava/lang/String;)I", setAedCustomModel),
        NATIVE("nSetBacklogWatermarks", "(II)V", setBacklogWatermarks),
        NATIVE("nSetNorvoPriorities", "(II)V", setNorvoPriorities),
        NATIVE("nNotifyTtsState", "(Z)I", notifyTtsState),
};
#undef NATIVE
static_assert(sizeof(kNativeMethods) / sizeof(kNativeMethods[0]) == 33, "33 natives");

}  // namespace

void init_java_util_ArrayListClass(JNIEnv* env) {
    ALOGI("Initialize ArrayListClass");
    ArrayListClassInfo& info = gArrayListClassInfo;
    info.clazz = findClass(env, "java/util/ArrayList");
    info.constructor = findMethod(env, info.clazz, "<init>", "(I)V");
    info.add = findMethod(env, info.clazz, "add", "(Ljava/lang/Object;)Z");
}

void init_velmar_speech_wakewordservice_NorvoDMSMetricDataClass(JNIEnv* env) {
    ALOGI("Initialize NorvoDMSMetricDataClass");
    NorvoDMSMetricDataClassInfo& info = gNorvoDMSMetricDataClassInfo;
    info.clazz = findClass(env, "velmar/speech/wakewordservice/NorvoDMSMetricData");
    info.constructor = findMethod(env, info.clazz, "<init>", "()V");
    info.programName = findField(env, info.clazz, "programName", kString);
    info.sourceName = findField(env, info.clazz, "sourceName", kString);
    info.dataPointName = findField(env, info.clazz, "dataPointName", kString);
    info.dataPointValue = findField(env, info.clazz, "dataPointValue", kString);
    info.dataPointType = findField(env, info.clazz, "dataPointType", kString);
    info.dataPointSamples = findField(env, info.clazz, "dataPointSamples", "I");
    info.isHighPriority = findField(env, info.clazz, "isHighPriority", "Z");
    info.metadataList = findField(env, info.clazz, "metadataList", "Ljava/util/List;");
}

void init_velmar_speech_wakewordservice_NorvoDMSMetricMetadataClass(JNIEnv* env) {
    ALOGI("Initialize NorvoDMSMetricMetadataClass");
    initMetricMetadata(env, gNorvoDMSMetricMetadataClassInfo,
                       "velmar/speech/wakewordservice/NorvoDMSMetricData$NorvoDMSMetricMetadata");
}

void init_velmar_speech_wakewordservice_NorvoDMSQuillanMetricDataClass(JNIEnv* env) {
    ALOGI("Initialize NorvoDMSQuillanMetricDataClass");
    NorvoDMSQuillanMetricDataClassInfo& info = gNorvoDMSQuillanMetricDataClassInfo;
    info.clazz = findClass(env, "velmar/speech/wakewordservice/NorvoDMSQuillanMetricData");
    info.constructor = findMethod(env, info.clazz, "<init>", "()V");
    info.groupID = findField(env, info.clazz, "groupID", kString);
    info.schemaID = findField(env, info.clazz, "schemaID", kString);
    info.dataPointName = findField(env, info.clazz, "dataPointName", kString);
    info.dataPointValue = findField(env, info.clazz, "dataPointValue", kString);
    info.dataPointType = findField(env, info.clazz, "dataPointType", kString);
    info.dataPointSamples = findField(env, info.clazz, "dataPointSamples", "I");
    info.metadataList = findField(env, info.clazz, "metadataList", "Ljava/util/List;");
}

void init_velmar_speech_wakewordservice_NorvoDMSQuillanMetricMetadataClass(JNIEnv* env) {
    ALOGI("Initialize NorvoDMSQuillanMetricMetadataClass");
    initMetricMetadata(
            env, gNorvoDMSQuillanMetricMetadataClassInfo,
            "velmar/speech/wakewordservice/NorvoDMSQuillanMetricData$NorvoDMSMetricMetadata");
}

void init_velmar_speech_federatedlearning_wakeword_WWFederatedLearningEventClass(JNIEnv* env) {
    ALOGI("Initialize WWFederatedLearningEventClass");
    WWFederatedLearningEventClassInfo& info = gWWFederatedLearningEventClassInfo;
    info.clazz = findClass(env, "velmar/speech/federatedlearning/wakeword/WWFederatedLearningEvent");
    info.constructor = findMethod(
            env, info.clazz, "<init>",
            "(Ljava/lang/String;Ljava/lang/String;Ljava/lang/String;Ljava/lang/String;[B)V");
    info.mModelSetId = findField(env, info.clazz, "mModelSetId", kString);
    info.mModelId = findField(env, info.clazz, "mModelId", kString);
    info.mEventType = findField(env, info.clazz, "mEventType", kString);
    info.mMetadataJson = findField(env, info.clazz, "mMetadataJson", kString);
    info.mData = findField(env, info.clazz, "mData", "[B");
}

void init_velmar_speech_federatedlearning_wakeword_WWFederatedLearningUnsecuredEventClass(
        JNIEnv* env) {
    ALOGI("Initialize WWFederatedLearningUnsecuredEventClass");
    WWFederatedLearningUnsecuredEventClassInfo& info = gWWFederatedLearningUnsecuredEventClassInfo;
    info.clazz = findClass(env,
                           "velmar/speech/federatedlearning/wakeword/"
                           "WWFederatedLearningUnsecuredEvent");
    info.constructor = findMethod(env, info.clazz, "<init>",
                                  "(Ljava/lang/String;Ljava/lang/String;Ljava/lang/String;Ljava/"
                                  "lang/String;[BFLjava/lang/String;)V");
    info.mModelSetId = findField(env, info.clazz, "mModelSetId", kString);
    info.mModelId = findField(env, info.clazz, "mModelId", kString);
    info.mEventType = findField(env, info.clazz, "mEventType", kString);
    info.mMetadataJson = findField(env, info.clazz, "mMetadataJson", kString);
    info.mData = findField(env, info.clazz, "mData", "[B");
    info.mSmpcScaleValue = findField(env, info.clazz, "mSmpcScaleValue", "F");
    info.mApplicationId = findField(env, info.clazz, "mApplicationId", kString);
}

void init_velmar_speech_federatedlearning_wakeword_WWFederatedLearningIdleDetectionResultClass(
        JNIEnv* env) {
    ALOGI("Initialize WWFederatedLearningIdleDetectionResultClass");
    WWFederatedLearningIdleDetectionResultClassInfo& info =
            gWWFederatedLearningIdleDetectionResultClassInfo;
    info.clazz = findClass(env,
                           "velmar/speech/federatedlearning/wakeword/"
                           "WWFederatedLearningIdleDetectionResult");
    info.constructor =
            findMethod(env, info.clazz, "<init>", "(Ljava/lang/String;Ljava/lang/String;J)V");
    info.mModelSetId = findField(env, info.clazz, "mModelSetId", kString);
    info.mModelId = findField(env, info.clazz, "mModelId", kString);
    info.mTimeSinceLastIdleSec = findField(env, info.clazz, "mTimeSinceLastIdleSec", "J");
    info.getTimeSinceLastIdleSec = findMethod(env, info.clazz, "getTimeSinceLastIdleSec", "()J");
}

void init_velmar_speech_wakewordservice_fingerprint_FingerprintResultClass(JNIEnv* env) {
    ALOGI("Initialize FingerprintResult class");
    FingerprintResultClassInfo& info = gFingerprintResultClassInfo;
    info.clazz = findClass(env, "velmar/speech/wakewordservice/fingerprint/FingerprintResult");
    info.constructor = findMethod(env, info.clazz, "<init>", "([BJJLjava/lang/String;)V");
    info.mBlob = findField(env, info.clazz, "mBlob", "[B");
    info.mStartSampleIndex = findField(env, info.clazz, "mStartSampleIndex", "J");
    info.mEndSampleIndex = findField(env, info.clazz, "mEndSampleIndex", "J");
    info.mFingerprintFilterString =
            findField(env, info.clazz, "mFingerprintFilterString", kString);
}

int register_velmar_speech_wakewordservice_WakeWordService(JNIEnv* env) {
    NativeWakeWordServiceCoreClassInfo& info = gNativeWakeWordServiceCoreClassInfo;
    info.clazz = findClass(env, "velmar/speech/wakewordservice/NativeWakeWordServiceCore");
    jclass c = info.clazz;
    info.handleEnumeratedResult =
            findMethod(env, c, "handleEnumeratedResult",
                       "(Ljava/lang/String;Ljava/lang/String;JJJJIILjava/lang/String;J)V");
    info.handleAudioPresenceDetectionResult =
            findMethod(env, c, "handleAudioPresenceDetectionResult",
                       "(Ljava/lang/String;JJJJZILjava/lang/String;)V");
    info.handleLocalCommandResult =
            findMethod(env, c, "handleLocalCommandResult",
                       "(Ljava/lang/String;Ljava/lang/String;JJJJIILjava/lang/String;)V");
    info.handleNttResult = findMethod(env, c, "handleNttResult", "(JJJJIILjava/lang/String;)V");
    info.handleNttEndOfSpeechResult =
            findMethodSafely(env, c, "handleNttEndOfSpeechResult", "(J)V");
    info.handleUtteranceJsonAvailable = findMethod(env, c, "handleUtteranceJsonAvailable",
                                                   "(Ljava/lang/String;Ljava/lang/String;)V");
    info.aedStaticDecoderStart = findMethod(env, c, "aedStaticDecoderStart", "()V");
    info.aedStaticDecoderStop = findMethod(env, c, "aedStaticDecoderStop", "()V");
    info.aedCustomDecoderStart = findMethod(env, c, "aedCustomDecoderStart", "()V");
    info.aedCustomDecoderStop = findMethod(env, c, "aedCustomDecoderStop", "()V");
    info.nttDecoderStart = findMethod(env, c, "nttDecoderStart", "()V");
    info.nttDecoderStop = findMethod(env, c, "nttDecoderStop", "()V");
    info.pmaDecoderStart = findMethod(env, c, "pmaDecoderStart", "()V");
    info.pmaDecoderStop = findMethod(env, c, "pmaDecoderStop", "()V");
    info.recordMetrics = findMethod(env, c, "recordMetrics",
                                    "(Lvelmar/speech/wakewordservice/NorvoDMSMetricData;)V");
    info.recordQuillanMetrics =
            findMethod(env, c, "recordMetrics",
                       "(Lvelmar/speech/wakewordservice/NorvoDMSQuillanMetricData;)V");
    info.handleFederatedLearningEvent =
            findMethod(env, c, "handleFederatedLearningEvent",
                       "(Lvelmar/speech/federatedlearning/FederatedLearningEvent;)V");
    info.handleFederatedLearningUnsecuredEvent =
            findMethod(env, c, "handleFederatedLearningUnsecuredEvent",
                       "(Lvelmar/speech/federatedlearning/FederatedLearningUnsecuredEvent;)V");
    info.handleFederatedLearningIdleDetectionResult = findMethod(
            env, c, "handleFederatedLearningIdleDetectionResult",
            "(Lvelmar/speech/federatedlearning/FederatedLearningIdleDetectionResult;)V");
    info.handleFingerprintResultEvent =
            findMethod(env, c, "handleFingerprintResultEvent",
                       "(Lvelmar/speech/wakewordservice/fingerprint/FingerprintResult;)V");
    info.mNativeInstance = findField(env, c, "mNativeInstance", "J");
    if (c == nullptr) return JNI_ERR;
    return env->RegisterNatives(c, kNativeMethods, sizeof(kNativeMethods) / sizeof(kNativeMethods[0]));
}

extern "C" jint JNI_OnLoad(JavaVM* vm, void* /*reserved*/) {
    gVM = vm;
    JNIEnv* env = nullptr;
    if (vm->GetEnv(reinterpret_cast<void**>(&env), JNI_VERSION_1_4) != JNI_OK) return -1;
    init_java_util_ArrayListClass(env);
    init_velmar_speech_wakewordservice_NorvoDMSMetricDataClass(env);
    init_velmar_speech_wakewordservice_NorvoDMSMetricMetadataClass(env);
    init_velmar_speech_wakewordservice_NorvoDMSQuillanMetricDataClass(env);
    init_velmar_speech_wakewordservice_NorvoDMSQuillanMetricMetadataClass(env);
    init_velmar_speech_federatedlearning_wakeword_WWFederatedLearningEventClass(env);
    init_velmar_speech_federatedlearning_wakeword_WWFederatedLearningUnsecuredEventClass(env);
    init_velmar_speech_federatedlearning_wakeword_WWFederatedLearningIdleDetectionResultClass(env);
    init_velmar_speech_wakewordservice_fingerprint_FingerprintResultClass(env);
    if (register_velmar_speech_wakewordservice_WakeWordService(env) != 0) return -1;
    return JNI_VERSION_1_4;
}

// ---- ScopedJNICallback ---------------------------------------------------------------------------

ScopedJNICallback::ScopedJNICallback() : mAttached(false), mVm(gVM), mEnv(nullptr) {}

ScopedJNICallback::~ScopedJNICallback() {
    if (mAttached) mVm->DetachCurrentThread();
}

void ScopedJNICallback::attachThread(int version) {
    if (mVm == nullptr) {
        ALOGE("Failed to attach");
        return;
    }
    jint status = mVm->GetEnv(reinterpret_cast<void**>(&mEnv), version);
    if (status != JNI_EDETACHED) return;  // attached already (or the VM refused): not ours
    if (mVm->AttachCurrentThread(&mEnv, nullptr) != JNI_OK) {
        ALOGE("Failed to attach");
        mEnv = nullptr;
        return;
    }
    mAttached = true;
}

jobject acquireInstance(JNIEnv* env) {
    std::lock_guard<std::mutex> guard(gInstanceLock);
    return gInstance == nullptr ? nullptr : env->NewLocalRef(gInstance);
}

// Used by create and destroy (WakeWordServiceJniLifecycle.cpp) to publish and withdraw gInstance.
void setInstance(JNIEnv* env, jobject instance) {
    std::lock_guard<std::mutex> guard(gInstanceLock);
    if (gInstance != nullptr) env->DeleteGlobalRef(gInstance);
    gInstance = instance == nullptr ? nullptr : env->NewGlobalRef(instance);
}
