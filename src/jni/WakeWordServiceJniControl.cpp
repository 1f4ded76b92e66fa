// The remaining natives: each fetches the service, converts its arguments, calls one service
// operation and turns the result back into a Java value.
#define LOG_TAG "WakeWordService_JNI"

#include <log/log.h>
#include <nativehelper/JNIHelp.h>
#include <utils/String8.h>

#include "JavaString.h"
#include "NorvoIds.h"
#include "WakeWordServiceJni.h"

using android::sp;
using android::status_t;
using velmar::WakeWordService;

namespace {

constexpr jint kNotCreatedSetter = 22;            // simple setters without a service
constexpr jint kNotCreatedPath = android::BAD_VALUE;  // path-taking operations without a service

// The common shape of a status-returning wrapper: no service gives notCreatedValue (after
// notCreatedMessage); a failing operation is logged with errorFormat (when given).
template <typename Call>
jint statusWrapper(JNIEnv* env, const char* notCreatedMessage, jint notCreatedValue,
                   const char* errorFormat, Call call) {
    sp<WakeWordService> service = getNativeService(env);
    if (service == nullptr) {
        ALOGE("%s", notCreatedMessage);
        return notCreatedValue;
    }
    status_t status = call(*service);
    if (status != android::NO_ERROR && errorFormat != nullptr) ALOGE(errorFormat, status);
    return status;
}

// Path-taking wrappers: no service is -22 after its own message, and so is a missing or
// unconvertible path; every failure, those two included, is then logged with errorFormat.
template <typename Call>
jint pathWrapper(JNIEnv* env, jstring path, const char* notCreatedMessage,
                 const char* conversionMessage, const char* errorFormat, Call call) {
    sp<WakeWordService> service = getNativeService(env);
    status_t status = kNotCreatedPath;
    if (service == nullptr) {
        ALOGE("%s", notCreatedMessage);
    } else {
        JavaString text(env, path);
        if (text.get() == nullptr) {
            ALOGE("%s", conversionMessage);
            status = android::BAD_VALUE;
        } else {
            status = call(*service, text.get());
        }
    }
    if (status != android::NO_ERROR) ALOGE(errorFormat, status);
    return status;
}

// Frame getters: the value, raising RuntimeException(failure) when the operation fails.
template <typename Call>
jlong frameGetter(JNIEnv* env, const char* notCreatedMessage, const char* failureFormat,
                  const char* exceptionMessage, Call call) {
    sp<WakeWordService> service = getNativeService(env);
    if (service == nullptr) {
        ALOGE("%s", notCreatedMessage);
        return 0;
    }
    int64_t value = 0;
    status_t status = call(*service, value);
    if (status != android::NO_ERROR) {
        ALOGE(failureFormat, status);
        jniThrowRuntimeException(env, exceptionMessage);
    }
    return static_cast<jlong>(value);
}

}  // namespace

jint velmar_speech_wakewordservice_WakeWordService_setWWDetectionEnabled(JNIEnv* env, jobject,
                                                                        jboolean enabled) {
    return statusWrapper(env, "setWWDetectionEnabled called before createNativeService.",
                         kNotCreatedSetter, "Error setting native WW detection state. Error=%d",
                         [&](WakeWordService& s) { return s.setWWDetectionEnabled(enabled != 0); });
}

jint velmar_speech_wakewordservice_WakeWordService_setWWDetectionEnabledForLpm(JNIEnv* env,
                                                                              jobject,
                                                                              jboolean enabled,
                                                                              jint value) {
    return statusWrapper(env, "setWWDetectionEnabledForLpm called before createNativeService.",
                         kNotCreatedSetter,
                         "Error setting native WW detection state for LPM. Error=%d",
                         [&](WakeWordService& s) {
                             return s.setWWDetectionEnabledForLpm(enabled != 0, value);
                         });
}

jint velmar_speech_wakewordservice_WakeWordService_switchNorvoModel(JNIEnv* env, jobject,
                                                                   jstring manifestPath,
                                                                   jobjectArray wakeWords) {
    return pathWrapper(env, manifestPath, "switchNorvoModel called before createNativeService.",
                       "switchNorvoModel cannot get norvoModelManifestPath infomation.",
                       "Error switch Norvo Model. Error=%d",
                       [&](WakeWordService& s, const char* path) {
                           const char** keywords = nullptr;
                           int count = copyToCharArray(env, wakeWords, keywords);
                           status_t status = s.switchNorvoModel(path, keywords, count);
                           freeCharArray(keywords, count);
                           return status;
                       });
}

jboolean velmar_speech_wakewordservice_WakeWordService_injectWaveFile(JNIEnv* env, jobject,
                                                                     jstring path,
                                                                     jboolean toPlayback) {
    sp<WakeWordService> service = getNativeService(env);
    if (service == nullptr) {
        ALOGE("injectWaveFile called before createNativeService.");
        return JNI_FALSE;
    }
    JavaString file(env, path);
    if (file.get() == nullptr) {
        ALOGE("injectWaveFile cannot get filePath infomation.");
        return JNI_FALSE;
    }
    status_t status = service->injectWaveFile(file.get(), toPlayback != 0);
    if (status != android::NO_ERROR) {
        ALOGE("Error injecting wave file. Error=%d", status);
        return JNI_FALSE;
    }
    return JNI_TRUE;
}

namespace {

jint setProperty(JNIEnv* env, jstring name, jint value, const char* notCreatedMessage,
                 status_t (WakeWordService::*operation)(const char*, int64_t)) {
    sp<WakeWordService> service = getNativeService(env);
    if (service == nullptr) {
        ALOGE("%s", notCreatedMessage);
        return kNotCreatedSetter;
    }
    JavaString text(env, name);
    if (text.get() == nullptr) {
        ALOGE("norvo property name is NULL.");
        return android::BAD_VALUE;
    }
    const int64_t wide = value;  // sign-extended
    ALOGD("Setting norvo property (JNI): %s=%lld", text.get(), static_cast<long long>(wide));
    return ((*service).*operation)(text.get(), wide);
}

}  // namespace

jint velmar_speech_wakewordservice_WakeWordService_setNorvoProperty(JNIEnv* env, jobject,
                                                                   jstring name, jint value) {
    return setProperty(env, name, value, "setNorvoProperty called before createNativeService.",
                       &WakeWordService::setNorvoProperty);
}

jint velmar_speech_wakewordservice_WakeWordService_setNorvoAcousticProperty(JNIEnv* env, jobject,
                                                                           jstring name,
                                                                           jint value) {
    return setProperty(env, name, value,
                       "setNorvoAcousticProperty called before createNativeService.",
                       &WakeWordService::setNorvoAcousticProperty);
}

jint velmar_speech_wakewordservice_WakeWordService_onCVEvent(JNIEnv* env, jobject,
                                                            jstring eventJson,
                                                            jlong clientTimestamp) {
    sp<WakeWordService> service = getNativeService(env);
    if (service == nullptr) {
        ALOGE("onCVEvent called before createNativeService.");
        return kNotCreatedSetter;
    }
    JavaString json(env, eventJson);
    if (json.get() == nullptr) {
        ALOGE("CV eventJson native string is NULL.");
        return android::BAD_VALUE;
    }
    ALOGD("onCVEvent JSON (JNI): %s, clientTimestamp: %d", json.get(),
          static_cast<int>(clientTimestamp));
    return service->onCVEvent(json.get(), clientTimestamp);
}

jint velmar_speech_wakewordservice_WakeWordService_onSpeakerLocalizationEvent(
        JNIEnv* env, jobject, jstring eventJson, jlong clientBeginTimestamp,
        jlong clientEndTimestamp) {
    sp<WakeWordService> service = getNativeService(env);
    if (service == nullptr) {
        ALOGE("onSpeakerLocalizationEvent called before createNativeService.");
        return kNotCreatedSetter;
    }
    JavaString json(env, eventJson);
    if (json.get() == nullptr) {
        ALOGE("SpeakerLocalizationEvent eventJson native string is NULL.");
        return android::BAD_VALUE;
    }
    ALOGD("onSpeakerLocalizationEvent JSON (JNI): %s, clientBeginTimestamp: %d, "
          "clientEndTimestamp: %d",
          json.get(), static_cast<int>(clientBeginTimestamp), static_cast<int>(clientEndTimestamp));
    return service->onSpeakerLocalizationEvent(json.get(), clientBeginTimestamp,
                                               clientEndTimestamp);
}

jint velmar_speech_wakewordservice_WakeWordService_setAudioEventDetectionMode(JNIEnv* env,
                                                                             jobject,
                                                                             jboolean enabled) {
    return statusWrapper(env, "setAudioEventDetectionMode called before createNativeService.",
                         kNotCreatedSetter,
                         "Error setting audio event detection mode flag. Error=%d",
                         [&](WakeWordService& s) {
                             return s.setAudioEventDetectionMode(enabled != 0);
                         });
}

jint velmar_speech_wakewordservice_WakeWordService_setNttDetectionMode(JNIEnv* env, jobject,
                                                                      jboolean enabled,
                                                                      jint mode) {
    return statusWrapper(env, "setNttDetectionMode called before createNativeService.",
                         kNotCreatedSetter, "Error setting NTT detection mode flag. Error=%d",
                         [&](WakeWordService& s) {
                             return s.setNttDetectionMode(enabled != 0, mode);
                         });
}

jint velmar_speech_wakewordservice_WakeWordService_switchNttModel(JNIEnv* env, jobject,
                                                                 jstring manifestPath) {
    return pathWrapper(env, manifestPath, "switchNttModel called before createNativeService.",
                       "switchNttModel cannot get nttModelManifestPath infomation.",
                       "Error switching NTT Model. Error=%d",
                       [](WakeWordService& s, const char* path) { return s.switchNttModel(path); });
}

jint velmar_speech_wakewordservice_WakeWordService_switchPmaModel(JNIEnv* env, jobject,
                                                                 jstring manifestPath) {
    return pathWrapper(env, manifestPath, "switchPmaModel called before createNativeService.",
                       "switchPmaModel cannot get pmaModelManifestPath infomation.",
                       "Error switch PMA Model. Error=%d",
                       [](WakeWordService& s, const char* path) { return s.switchPmaModel(path); });
}

jint velmar_speech_wakewordservice_WakeWordService_enablePlaybackDetector(JNIEnv*, jobject) {
    // The playback detector is enabled by the service's own initialisation.
    return 0;
}

jboolean velmar_speech_wakewordservice_WakeWordService_setPushDataToPlaybackDetectorEnabled(
        JNIEnv* env, jobject, jboolean enabled) {
    sp<WakeWordService> service = getNativeService(env);
    if (service == nullptr) {
        ALOGE("setPushDataToPlaybackDetectorEnabled called before createNativeService.");
        jniThrowRuntimeException(env, "setPushDataToPlaybackDetectorEnabled failure");
        return JNI_FALSE;
    }
    return service->setPushDataToPlaybackDetectorEnabled(enabled != 0) ? JNI_TRUE : JNI_FALSE;
}

jint velmar_speech_wakewordservice_WakeWordService_resetAudioInput(JNIEnv* env, jobject) {
    return statusWrapper(env, "resetAudioInput called before createNativeService.",
                         kNotCreatedSetter, "Error resetting audio input. Error=%d",
                         [](WakeWordService& s) { return s.resetAudioInput(); });
}

jstring velmar_speech_wakewordservice_WakeWordService_getAudioPresenceData(JNIEnv* env,
                                                                          jobject) {
    sp<WakeWordService> service = getNativeService(env);
    if (service == nullptr) {
        ALOGE("getAudioPresenceData called before createNativeService.");
        return nullptr;
    }
    const char* json = nullptr;
    status_t status = service->getAudioPresenceData(json);
    if (status != android::NO_ERROR) {
        ALOGE("Error getting audio presence data. Error=%d", status);
        return nullptr;
    }
    return json == nullptr ? nullptr : env->NewStringUTF(json);
}

jlong velmar_speech_wakewordservice_WakeWordService_getInputFrameCount(JNIEnv* env, jobject) {
    return frameGetter(env, "getInputFrameCount called before createNativeService.",
                       "getInputFrameCount failure. Error=%d", "getInputFrameCount failure",
                       [](WakeWordService& s, int64_t& v) { return s.getInputFrameCount(v); });
}

jlong velmar_speech_wakewordservice_WakeWordService_getInputFrameTime(JNIEnv* env, jobject) {
    return frameGetter(env, "getInputFrameTime called before createNativeService.",
                       "getInputFrameTime failure. Error=%d", "getInputFrameTime failure",
                       [](WakeWordService& s, int64_t& v) { return s.getInputFrameTime(v); });
}

jlong velmar_speech_wakewordservice_WakeWordService_getPlaybackFrameCount(JNIEnv* env, jobject) {
    return frameGetter(env, "getPlaybackFrameCount called before createNativeService.",
                       "getPlaybackFrameCount failure. Error=%d", "getPlaybackFrameCount failure",
                       [](WakeWordService& s, int64_t& v) { return s.getPlaybackFrameCount(v); });
}

jint velmar_speech_wakewordservice_WakeWordService_setFingerprintDatabase(JNIEnv* env, jobject,
                                                                         jstring path) {
    return pathWrapper(env, path, "setFingerprintDatabase called before createNativeService.",
                       "setFingerprintDatabase cannot get fingerprintDatabasePath information.",
                       "Error setting fingerprint database. Error=%d",
                       [](WakeWordService& s, const char* database) {
                           return s.setFingerprintDatabase(database);
                       });
}

jstring velmar_speech_wakewordservice_WakeWordService_getNorvoLibraryAttributes(JNIEnv* env,
                                                                               jobject) {
    sp<WakeWordService> service = getNativeService(env);
    if (service == nullptr) {
        ALOGE("getNorvoLibraryAttributes called before createNativeService.");
        return nullptr;
    }
    const char* attributes = nullptr;
    status_t status = service->getNorvoLibraryAttributes(attributes);
    if (status != android::NO_ERROR) {
        ALOGE("Error querying norvo library attributes. Error=%d", status);
        return nullptr;
    }
    return attributes == nullptr ? nullptr : env->NewStringUTF(attributes);
}

jstring getModelSetAttributesInternal(JNIEnv* env, jobject, const char* modelSetId) {
    android::String8 text;
    sp<WakeWordService> service = getNativeService(env);
    if (service == nullptr) {
        ALOGE("getModelSetAttributes called before createNativeService.");
        return nullptr;
    }
    status_t status = service->getModelSetAttributes(modelSetId, text);
    if (status != android::NO_ERROR) {
        ALOGE("Error getting model set attributes, %d", status);
        return nullptr;
    }
    if (text.length() == 0) return nullptr;
    return env->NewStringUTF(text.c_str());
}

jstring velmar_speech_wakewordservice_WakeWordService_getWakeWordModelSetAttributes(JNIEnv* env,
                                                                                   jobject thiz) {
    return getModelSetAttributesInternal(env, thiz, velmar::kWakeWordModelSetId);
}

jstring velmar_speech_wakewordservice_WakeWordService_getAudioPresenceModelSetAttributes(
        JNIEnv* env, jobject thiz) {
    return getModelSetAttributesInternal(env, thiz, velmar::kAudioPresenceModelSetId);
}

jstring velmar_speech_wakewordservice_WakeWordService_getNaturalTurnTakingModelSetAttributes(
        JNIEnv* env, jobject thiz) {
    sp<WakeWordService> service = getNativeService(env);
    if (service == nullptr) {
        ALOGE("getNaturalTurnTakingModelSetAttributes called before createNativeService.");
        return nullptr;
    }
    // A unified wake-word model carries turn taking itself.
    return getModelSetAttributesInternal(env, thiz,
                                         service->isNttSupportedInWwModel()
                                                 ? velmar::kWakeWordModelSetId
                                                 : velmar::kNttModelSetId);
}

jint velmar_speech_wakewordservice_WakeWordService_setAedStaticModel(JNIEnv* env, jobject,
                                                                    jstring manifestPath) {
    return pathWrapper(env, manifestPath, "setAedStaticModel called before createNativeService.",
                       "setAedStaticModel cannot get manifestPath information.",
                       "Error setting AED static directory path. Error=%d",
                       [](WakeWordService& s, const char* path) {
                           return s.setAedStaticModel(path);
                       });
}

jint velmar_speech_wakewordservice_WakeWordService_setAedCustomModel(JNIEnv* env, jobject,
                                                                    jstring jsonPath) {
    static constexpr const char* kFunction =
            "velmar_speech_wakewordservice_WakeWordService_setAedCustomModel";
    sp<WakeWordService> service = getNativeService(env);
    status_t status;
    if (service == nullptr) {
        ALOGE("%s %s", kFunction, "called before getNativeService");
        status = android::BAD_VALUE;
    } else {
        // A null path is meaningful here: it removes the custom model.
        JavaString path(env, jsonPath);
        if (jsonPath != nullptr && path.get() == nullptr) {
            ALOGE("%s %s", kFunction, "cannot convert jsonPath");
            status = android::BAD_VALUE;
        } else {
            status = service->setAedCustomModel(path.get());
        }
    }
    if (status != android::NO_ERROR) {
        ALOGE("Error setting AED Custom Sounds config. Error=%d", status);
    }
    return status;
}

void velmar_speech_wakewordservice_WakeWordService_setBacklogWatermarks(JNIEnv*, jobject, jint,
                                                                       jint) {
    // Accepted for compatibility; this service keeps no backlog to bound.
}

void velmar_speech_wakewordservice_WakeWordService_setNorvoPriorities(JNIEnv*, jobject, jint,
                                                                     jint) {
    // Accepted for compatibility; decoder priorities come from nCreateNativeService.
}

jint velmar_speech_wakewordservice_WakeWordService_notifyTtsState(JNIEnv* env, jobject,
                                                                 jboolean isPlaying) {
    return statusWrapper(env, "notifyTtsState called before createNativeService.",
                         kNotCreatedSetter, "notifyTtsState: Error setting native tts state. Error=%d",
                         [&](WakeWordService& s) { return s.notifyTtsState(isPlaying != 0); });
}
