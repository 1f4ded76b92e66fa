// Detection results from the engine's threads to Java, with their metadata blobs placed in the
// metadata stream.
#define LOG_TAG "WakeWordService_JNI"
#define ATRACE_TAG ATRACE_TAG_AUDIO

#include <cutils/trace.h>
#include <log/log.h>
#include <utils/Trace.h>

#include <cstdio>

#include "WakeWordServiceJni.h"

namespace {

// Attached environment plus the Java object for one callback; makes no JNI call when either is
// missing. Local references are released by the callbacks themselves, in their order.
struct CallbackFrame {
    CallbackFrame() {
        scope.attachThread(JNI_VERSION_1_4);
        // A result delivered after destroy withdrew the Java object goes nowhere.
        if (scope.mEnv != nullptr) instance = acquireInstance(scope.mEnv);
    }
    ~CallbackFrame() {
        if (instance != nullptr) scope.mEnv->DeleteLocalRef(instance);
    }
    bool ready() const { return scope.mEnv != nullptr && instance != nullptr; }
    JNIEnv* env() const { return scope.mEnv; }
    // An exception thrown by the Java handler is logged and cleared: the engine thread goes on.
    void describeException() const {
        if (scope.mEnv->ExceptionCheck()) scope.mEnv->ExceptionDescribe();
    }

    ScopedJNICallback scope;
    jobject instance = nullptr;
};

void deleteLocal(JNIEnv* env, jobject object) {
    if (object != nullptr) env->DeleteLocalRef(object);
}

void callStatus(jmethodID start, jmethodID stop, bool started) {
    CallbackFrame frame;
    if (!frame.ready()) return;
    jmethodID method = started ? start : stop;
    if (method != nullptr) frame.env()->CallVoidMethod(frame.instance, method);
    // A handler's exception must not stay pending on the service's thread.
    frame.describeException();
}

bool knownDetectionType(int32_t type) { return type >= 0 && type <= 2; }

}  // namespace

void writeAsrBlob(const NorvoDataBlob& blob, uint32_t* position, uint32_t* size) {
    android::Mutex::Autolock lock(gBufferLock);
    if (size == nullptr || position == nullptr || gMetaDataWriter == nullptr) {
        ALOGE("cannot write metadata with null reference of metadataWriter or blobSize");
        return;
    }
    android::status_t status = gMetaDataWriter->getPosition(position);
    if (status != android::NO_ERROR) {
        ALOGE("Error: get position from metadataStream writer (%d).", status);
        *size = 0;
        *position = 0;
        return;
    }
    *size = blob.size;
    ALOGD("blob received from norvo with size = %d", static_cast<int>(*size));
    ssize_t written = gMetaDataWriter->write(blob.data, blob.size);
    if (written != static_cast<ssize_t>(*size)) {
        ALOGE("Expected to write metadata size %d, but only write %d", static_cast<int>(*size),
              static_cast<int>(written));
        *size = 0;
        *position = 0;
    }
}

void norvoEnumerationEventCallback_JNI(NorvoDecoderId decoderId, NorvoEnumeratedResult* result) {
    char label[256];
    snprintf(label, sizeof(label), "%s %llu:%llu", decoderId,
             static_cast<unsigned long long>(result->beginSampleIndex),
             static_cast<unsigned long long>(result->endSampleIndex));
    ATRACE_BEGIN(label);
    if (!knownDetectionType(result->detectionType)) {
        ALOGE("Unknown detectionType: %d", result->detectionType);
        ATRACE_END();
        return;
    }
    {
        CallbackFrame frame;
        if (frame.ready()) {
            JNIEnv* env = frame.env();
            jstring keyword = env->NewStringUTF(result->keyword);
            jstring detail = env->NewStringUTF(result->detailText);
            jstring decoder = env->NewStringUTF(decoderId);
            uint32_t position = 0;
            uint32_t size = 0;
            // Only the input decoder's results carry metadata the Java side reads back.
            if (velmar::WakeWordService::isInputDecoderId(decoderId)) {
                writeAsrBlob(result->blob, &position, &size);
            }
            env->CallVoidMethod(frame.instance,
                                gNativeWakeWordServiceCoreClassInfo.handleEnumeratedResult,
                                keyword, detail, static_cast<jlong>(result->beginSampleIndex),
                                static_cast<jlong>(result->endSampleIndex),
                                static_cast<jlong>(position), static_cast<jlong>(size),
                                static_cast<jint>(result->detailValue),
                                static_cast<jint>(result->detectionType + 1), decoder,
                                static_cast<jlong>(result->tailValue));
            deleteLocal(env, keyword);
            deleteLocal(env, detail);
            deleteLocal(env, decoder);
            frame.describeException();
        }
    }
    ATRACE_END();
}

void norvoLocalCommandCallback_JNI(NorvoDecoderId decoderId, NorvoEnumeratedResult* result) {
    ALOGI("Detected a norvo local command");
    CallbackFrame frame;
    if (!knownDetectionType(result->detectionType)) {
        ALOGD("SPCH-WW: Local Command DetectionType: %d", -1);
        ALOGE("Unknown detectionType @ local command detection: %d", result->detectionType);
        return;
    }
    ALOGD("SPCH-WW: Local Command DetectionType: %d", result->detectionType + 1);
    if (!frame.ready()) return;
    JNIEnv* env = frame.env();
    jstring keyword = env->NewStringUTF(result->keyword);
    jstring detail = env->NewStringUTF(result->detailText);
    jstring decoder = env->NewStringUTF(decoderId);
    uint32_t position = 0;
    uint32_t size = 0;
    if (velmar::WakeWordService::isInputDecoderId(decoderId)) {
        writeAsrBlob(result->blob, &position, &size);
    }
    env->CallVoidMethod(frame.instance, gNativeWakeWordServiceCoreClassInfo.handleLocalCommandResult,
                        keyword, detail, static_cast<jlong>(result->beginSampleIndex),
                        static_cast<jlong>(result->endSampleIndex), static_cast<jlong>(position),
                        static_cast<jlong>(size), static_cast<jint>(result->detailValue),
                        static_cast<jint>(result->detectionType + 1), decoder);
    deleteLocal(env, keyword);
    deleteLocal(env, detail);
    deleteLocal(env, decoder);
    frame.describeException();
}

void norvoPresenceDetectionCallback_JNI(NorvoDecoderId decoderId,
                                        NorvoAcousticEventDetectionResult* result) {
    ATRACE_NAME(
            "void norvoPresenceDetectionCallback_JNI(NorvoDecoderId, "
            "NorvoAcousticEventDetectionResult)");
    if (!knownDetectionType(result->detectionType)) {
        ALOGD("SPCH-WW: Presence DetectionType: %d", -1);
        ALOGE("Unknown detectionType @ presenceDetection: %d", result->detectionType);
        return;
    }
    ALOGD("SPCH-WW: Presence DetectionType: %d", result->detectionType);
    CallbackFrame frame;
    if (!frame.ready()) return;
    JNIEnv* env = frame.env();
    jstring eventName = env->NewStringUTF(result->eventName);
    jstring decoder = env->NewStringUTF(decoderId);
    env->CallVoidMethod(frame.instance,
                        gNativeWakeWordServiceCoreClassInfo.handleAudioPresenceDetectionResult,
                        eventName, static_cast<jlong>(result->beginSampleIndex),
                        static_cast<jlong>(result->endSampleIndex), static_cast<jlong>(0),
                        static_cast<jlong>(0), static_cast<jboolean>(result->eventFlag != 0),
                        static_cast<jint>(result->detectionType), decoder);
    deleteLocal(env, eventName);
    deleteLocal(env, decoder);
    frame.describeException();
}

void norvoNttResultCallback_JNI(NorvoDecoderId decoderId, NorvoNttResult* result) {
    ATRACE_NAME("void norvoNttResultCallback_JNI(NorvoDecoderId, NorvoNttResult)");
    ALOGI("SPCH-WW: Received NTT event with beginSampleIndex of %lld and detectionSampleIndex of "
          "%lld",
          static_cast<long long>(result->beginSampleIndex),
          static_cast<long long>(result->detectionSampleIndex));
    if (static_cast<uint32_t>(result->activeMode) >= 5) {
        ALOGE("SPCH-WW: Unknown NTT active mode: %d. Ignoring event.", result->activeMode);
        return;
    }
    if (result->eventType != 0) {
        ALOGE("SPCH-WW: Unknown NTT event type: %d. Ignoring event.", result->eventType);
        return;
    }
    CallbackFrame frame;
    if (!frame.ready()) return;
    JNIEnv* env = frame.env();
    jstring decoder = env->NewStringUTF(decoderId);
    uint32_t position = 0;
    uint32_t size = 0;
    if (result->blob.size != 0 && result->blob.data != nullptr) {
        writeAsrBlob(result->blob, &position, &size);
    }
    constexpr jint kJavaEndOfTurnEvent = 1;  // the engine's type 0, as Java numbers it
    env->CallVoidMethod(frame.instance, gNativeWakeWordServiceCoreClassInfo.handleNttResult,
                        static_cast<jlong>(result->beginSampleIndex),
                        static_cast<jlong>(result->detectionSampleIndex),
                        static_cast<jlong>(position), static_cast<jlong>(size), kJavaEndOfTurnEvent,
                        static_cast<jint>(result->activeMode), decoder);
    deleteLocal(env, decoder);
    frame.describeException();
}

void norvoNttEndOfSpeechResultCallback_JNI(NorvoDecoderId /*decoderId*/,
                                           NorvoNttEndOfSpeech* result) {
    ATRACE_NAME("void norvoNttEndOfSpeechResultCallback_JNI(NorvoDecoderId, NorvoNttEndOfSpeech)");
    if (gNativeWakeWordServiceCoreClassInfo.handleNttEndOfSpeechResult == nullptr) {
        ALOGW("Can not surface NttEndOfSpeech to jni");
        return;
    }
    CallbackFrame frame;
    if (!frame.ready()) return;
    frame.env()->CallVoidMethod(frame.instance,
                                gNativeWakeWordServiceCoreClassInfo.handleNttEndOfSpeechResult,
                                static_cast<jlong>(result->endOfSpeechValue));
    frame.describeException();
}

void norvoSetJsondataCallback_JNI(NorvoString text1, NorvoString /*text2*/, NorvoString /*text3*/,
                                  NorvoString text4, int /*value1*/, int /*value2*/) {
    ATRACE_NAME(
            "void norvoSetJsondataCallback_JNI(NorvoString, NorvoString, NorvoString, "
            "NorvoString, int, int)");
    CallbackFrame frame;
    if (!frame.ready()) return;
    JNIEnv* env = frame.env();
    jstring first = env->NewStringUTF(text1);
    jstring fourth = env->NewStringUTF(text4);
    if (gNativeWakeWordServiceCoreClassInfo.handleUtteranceJsonAvailable != nullptr) {
        env->CallVoidMethod(frame.instance,
                            gNativeWakeWordServiceCoreClassInfo.handleUtteranceJsonAvailable, first,
                            fourth);
    }
    deleteLocal(env, first);
    deleteLocal(env, fourth);
    frame.describeException();
}

void aedStaticDecoderStatusCallback_JNI(bool started) {
    callStatus(gNativeWakeWordServiceCoreClassInfo.aedStaticDecoderStart,
               gNativeWakeWordServiceCoreClassInfo.aedStaticDecoderStop, started);
}

void aedCustomDecoderStatusCallback_JNI(bool started) {
    callStatus(gNativeWakeWordServiceCoreClassInfo.aedCustomDecoderStart,
               gNativeWakeWordServiceCoreClassInfo.aedCustomDecoderStop, started);
}

void nttDecoderStatusCallback_JNI(bool started) {
    callStatus(gNativeWakeWordServiceCoreClassInfo.nttDecoderStart,
               gNativeWakeWordServiceCoreClassInfo.nttDecoderStop, started);
}

void pmaDecoderStatusCallback_JNI(bool started) {
    callStatus(gNativeWakeWordServiceCoreClassInfo.pmaDecoderStart,
               gNativeWakeWordServiceCoreClassInfo.pmaDecoderStop, started);
}
