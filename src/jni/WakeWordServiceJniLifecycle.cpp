// Creating and destroying the one native service, and the detector switch natives.
#define LOG_TAG "WakeWordService_JNI"

#include <audiostream/AudioStreamJni.h>
#include <log/log.h>

#include <climits>
#include <cstdlib>
#include <cstring>
#include <new>

#include "JavaString.h"
#include "JniPointer.h"
#include "WakeWordServiceJni.h"

using android::sp;
using velmar::AudioStream;
using velmar::WakeWordService;

namespace {

// The reference id of the strong reference the Java object owns.
const void* javaOwnerId() { return &gInstance; }

template <typename T>
sp<T> getNativeInstance(JNIEnv* env, jobject object, jfieldID field) {
    android::Mutex::Autolock lock(velmar::gJniMutex);
    return javaLongToPointer<T>(env->GetLongField(object, field));
}

void setNativeInstance(JNIEnv* env, jlong value) {
    jobject instance = acquireInstance(env);
    if (instance == nullptr) return;
    env->SetLongField(instance, gNativeWakeWordServiceCoreClassInfo.mNativeInstance, value);
    env->DeleteLocalRef(instance);
}

void closeMetaDataWriter() {
    android::Mutex::Autolock lock(gBufferLock);
    if (gMetaDataWriter != nullptr) {
        gMetaDataWriter->close();
        gMetaDataWriter.clear();
    }
}

}  // namespace

sp<WakeWordService> getNativeService(JNIEnv* env) {
    jobject instance = acquireInstance(env);
    if (instance == nullptr) return nullptr;
    jlong address =
            env->GetLongField(instance, gNativeWakeWordServiceCoreClassInfo.mNativeInstance);
    env->DeleteLocalRef(instance);
    return javaLongToPointer<WakeWordService>(address);
}

int copyToCharArray(JNIEnv* env, jobjectArray array, const char**& out) {
    if (array == nullptr) return 0;
    const jsize count = env->GetArrayLength(array);
    if (count == 0) {
        ALOGI("No active wake words provided.");
        return 0;
    }
    // An element count whose array size would overflow asks for the largest size instead, so the
    // allocation fails rather than wrapping to a small array.
    const size_t elements = static_cast<size_t>(count) > SIZE_MAX / sizeof(const char*)
                                    ? SIZE_MAX / sizeof(const char*)
                                    : static_cast<size_t>(count);
    out = new (std::nothrow) const char*[elements];
    if (out == nullptr) return 0;
    for (jsize i = 0; i < count; ++i) {
        jstring element = static_cast<jstring>(env->GetObjectArrayElement(array, i));
        // A null element becomes an empty wake word: the list keeps its positions.
        const char* chars = element == nullptr ? nullptr : env->GetStringUTFChars(element, nullptr);
        out[i] = strdup(chars == nullptr ? "" : chars);
        if (chars != nullptr) env->ReleaseStringUTFChars(element, chars);
        if (element != nullptr) env->DeleteLocalRef(element);
    }
    return static_cast<int>(count);
}

void freeCharArray(const char**& array, int count) {
    if (array == nullptr) return;
    for (int i = 0; i < count; ++i) free(const_cast<char*>(array[i]));
    delete[] array;
    array = nullptr;
}

namespace {

// The keyword copies of one create call, freed on every path.
struct Keywords {
    ~Keywords() { freeCharArray(array, count); }
    const char** array = nullptr;
    int count = 0;
};

// Steps of creation up to and including the service's construction; the caller cleans up after a
// failure. *service is set once the service exists (even when its initialisation failed).
jint constructService(JNIEnv* env, jstring packageName, jobject audioStream,
                      jobject oneMicAudioStream, jobject metadataStream,
                      jstring norvoModelManifestPath, jstring aedStaticModelManifestPath,
                      jstring nttModelManifestPath, jstring pmaModelManifestPath,
                      jstring aedCustomModelJsonPath, jobjectArray wakeWords, const bool flags[7],
                      const jint numbers[4], sp<WakeWordService>* service) {
    JavaString package(env, packageName);
    if (package.get() == nullptr) {
        ALOGE("Unable to get package name.");
        return android::BAD_VALUE;
    }
    if (audioStream == nullptr || metadataStream == nullptr) {
        ALOGE("Unable to create native wakewordservice when AudioStream is null");
        return android::BAD_VALUE;
    }
    const jfieldID pointerField = velmar::gAudioStreamClassInfo.mNativeInstance;
    sp<AudioStream> mainStream = getNativeInstance<AudioStream>(env, audioStream, pointerField);
    sp<AudioStream> oneMicStream;
    const bool oneMicSupplied = oneMicAudioStream != nullptr;
    if (oneMicSupplied) {
        oneMicStream = getNativeInstance<AudioStream>(env, oneMicAudioStream, pointerField);
    } else {
        ALOGE("OneMicAudioStream is not provided");
    }
    if (mainStream == nullptr) {
        ALOGE("Unable to create native AudioStream reference");
        return android::BAD_VALUE;
    }
    sp<AudioStream> metaStream = getNativeInstance<AudioStream>(env, metadataStream, pointerField);
    JavaString norvoPath(env, norvoModelManifestPath);
    if (norvoPath.get() == nullptr) {
        ALOGE("Unable to get norvoModelManifestPath infomation.");
        return android::BAD_VALUE;
    }
    Keywords keywords;
    keywords.count = copyToCharArray(env, wakeWords, keywords.array);
    JavaString aedStaticPath(env, aedStaticModelManifestPath);
    if (aedStaticPath.get() == nullptr) {
        ALOGE("Unable to get aedStaticModelManifestPath information.");
        return android::BAD_VALUE;
    }
    JavaString aedCustomPath(env, aedCustomModelJsonPath);
    if (aedCustomModelJsonPath != nullptr && aedCustomPath.get() == nullptr) {
        ALOGE("Unable to get aedCustomModelJsonPath information.");
        return android::BAD_VALUE;
    }
    if (metaStream == nullptr) {
        ALOGE("Unable to create native MetadataStream reference");
        return android::BAD_VALUE;
    }
    android::status_t status;
    {
        android::Mutex::Autolock lock(gBufferLock);
        status = metaStream->openWriter(gMetaDataWriter);
    }
    if (status != android::NO_ERROR) {
        ALOGE("Unable to open AudioStreamWriter (%d)", status);
        return android::BAD_VALUE;
    }
    JavaString nttPath(env, nttModelManifestPath);
    JavaString pmaPath(env, pmaModelManifestPath);
    // The first strong reference runs the service's initialisation.
    *service = new WakeWordService(
            package.get(), norvoEnumerationEventCallback_JNI, norvoPresenceDetectionCallback_JNI,
            norvoLocalCommandCallback_JNI, norvoNttResultCallback_JNI,
            norvoNttEndOfSpeechResultCallback_JNI, norvoSetJsondataCallback_JNI,
            aedStaticDecoderStatusCallback_JNI, aedCustomDecoderStatusCallback_JNI,
            nttDecoderStatusCallback_JNI, pmaDecoderStatusCallback_JNI, recordMetricsCallback_JNI,
            recordQuillanMetricsCallback_JNI, handleFederatedLearningEventCallback_JNI,
            handleFederatedLearningUnsecuredEventCallback_JNI,
            handleFederatedLearningIdleDetectionResultCallback_JNI, mainStream, oneMicStream,
            norvoPath.get(), aedStaticPath.get(), nttPath.get(), pmaPath.get(), aedCustomPath.get(),
            keywords.array, keywords.count, flags[0], flags[1], flags[2], flags[3], flags[4],
            flags[5], flags[6], oneMicSupplied, numbers[0], numbers[1], numbers[2], numbers[3]);
    setNativeInstance(env, pointerToJavaLong(service->get()));
    (*service)->incStrong(javaOwnerId());
    if ((*service)->mInitStatus != android::NO_ERROR) {
        ALOGE("Error initializing WakeWordService. Error=%d", (*service)->mInitStatus);
    }
    return (*service)->mInitStatus;
}

}  // namespace

jint velmar_speech_wakewordservice_WakeWordService_createNativeService(
        JNIEnv* env, jobject thiz, jstring packageName, jobject audioStream,
        jobject oneMicAudioStream, jobject metadataStream, jstring norvoModelManifestPath,
        jstring aedStaticModelManifestPath, jstring nttModelManifestPath,
        jstring pmaModelManifestPath, jstring aedCustomModelJsonPath, jobjectArray wakeWords,
        jboolean playbackViaAudioRecord, jboolean suppressPlaybackAtInit, jboolean aedAvailable,
        jboolean nearMissEnabled, jboolean threeChannelInput, jboolean nttEnabled,
        jboolean preloadNttModel, jint decoderThreadPriority, jint audioRecordFrameCount,
        jint localTimeOffset, jint ttsStreamType) {
    // One service per process: a second create would orphan the first and its engine state.
    if (getNativeService(env) != nullptr) {
        ALOGE("createNativeService: native service already created");
        return android::INVALID_OPERATION;
    }
    setInstance(env, thiz);
    const bool flags[7] = {playbackViaAudioRecord != 0, suppressPlaybackAtInit != 0,
                           aedAvailable != 0,           nearMissEnabled != 0,
                           threeChannelInput != 0,      nttEnabled != 0,
                           preloadNttModel != 0};
    const jint numbers[4] = {decoderThreadPriority, audioRecordFrameCount, localTimeOffset,
                             ttsStreamType};
    sp<WakeWordService> service;
    jint result = constructService(env, packageName, audioStream, oneMicAudioStream,
                                   metadataStream, norvoModelManifestPath,
                                   aedStaticModelManifestPath, nttModelManifestPath,
                                   pmaModelManifestPath, aedCustomModelJsonPath, wakeWords, flags,
                                   numbers, &service);
    if (result == android::NO_ERROR) return result;

    // Leave no service, no writer and no instance behind.
    if (service != nullptr) {
        service->release();
        service->decStrong(javaOwnerId());
        setNativeInstance(env, 0);
    }
    closeMetaDataWriter();
    setInstance(env, nullptr);
    return result;  // the service, if any, is torn down as `service` goes
}

jboolean velmar_speech_wakewordservice_WakeWordService_destroyNativeService(JNIEnv* env,
                                                                            jobject /*thiz*/) {
    sp<WakeWordService> service = getNativeService(env);
    if (service == nullptr) {
        ALOGE("destroyNativeService: native service not created yet");
        return JNI_FALSE;
    }
    service->release();
    service->decStrong(javaOwnerId());
    setNativeInstance(env, 0);
    setInstance(env, nullptr);
    closeMetaDataWriter();
    // The service is torn down here, when `service` drops the last strong reference.
    return JNI_TRUE;
}

jint velmar_speech_wakewordservice_WakeWordService_setDetectorEnabled(JNIEnv* env,
                                                                     jobject /*thiz*/,
                                                                     jboolean enabled) {
    sp<WakeWordService> service = getNativeService(env);
    if (service == nullptr) {
        ALOGE("setDetectorEnabled called before createNativeService.");
        return 22;
    }
    android::status_t status = service->setDetectorEnabled(enabled != 0);
    if (status != android::NO_ERROR) {
        ALOGE("Error setting native detector state. Error=%d", status);
    }
    return status;
}

jboolean velmar_speech_wakewordservice_WakeWordService_getDetectorEnabled(JNIEnv* env,
                                                                         jobject /*thiz*/) {
    sp<WakeWordService> service = getNativeService(env);
    if (service == nullptr) {
        ALOGE("getDetectorEnabled called before createNativeService.");
        return JNI_FALSE;
    }
    bool enabled = false;
    android::status_t status = service->getDetectorEnabled(&enabled);
    if (status != android::NO_ERROR) {
        ALOGE("Error getting native detector state. Error=%d", status);
    }
    return enabled ? JNI_TRUE : JNI_FALSE;
}
