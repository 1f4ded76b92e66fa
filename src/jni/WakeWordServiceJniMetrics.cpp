// Metrics and federated-learning reports from the engine's threads, as Java objects.
#define LOG_TAG "WakeWordService_JNI"

#include <log/log.h>
#include <nativehelper/JNIHelp.h>

#include "WakeWordServiceJni.h"

namespace {

void deleteLocal(JNIEnv* env, jobject object) {
    if (object != nullptr) env->DeleteLocalRef(object);
}

const char* dataPointTypeText(int32_t type) {
    switch (type) {
        case 0:
            return "CT";
        case 1:
            return "DV";
        default:
            return "";
    }
}

void setString(JNIEnv* env, jobject object, jfieldID field, const char* text) {
    jstring value = env->NewStringUTF(text);
    env->SetObjectField(object, field, value);
    deleteLocal(env, value);
}

// The metadata entries as a java.util.ArrayList of metadata objects of the given class.
jobject metadataList(JNIEnv* env, const NorvoDMSMetricMetadataEntry* entries, int32_t count,
                     const NorvoDMSMetricMetadataClassInfo& entryClass) {
    jobject list = env->NewObject(gArrayListClassInfo.clazz, gArrayListClassInfo.constructor,
                                  static_cast<jint>(count));
    for (int32_t i = 0; list != nullptr && i < count; ++i) {
        jstring name = env->NewStringUTF(entries[i].name);
        jstring value = env->NewStringUTF(entries[i].value);
        jobject entry = env->NewObject(entryClass.clazz, entryClass.constructor, name, value);
        if (entry != nullptr) env->CallBooleanMethod(list, gArrayListClassInfo.add, entry);
        const bool failed = env->ExceptionCheck();
        deleteLocal(env, entry);
        deleteLocal(env, value);
        deleteLocal(env, name);
        if (failed) {
            // The list stays as far as it got; the data point is still reported.
            env->ExceptionDescribe();
            break;
        }
    }
    return list;
}

// A handler's exception is logged and cleared, so that the engine's thread is left clean.
void describeException(JNIEnv* env) {
    if (env->ExceptionCheck()) env->ExceptionDescribe();
}

const char* eventTypeText(int32_t eventType) { return eventType == 0 ? "wakeword" : ""; }

// Raised after the event was handed over, so no JNI call is made with it pending. On a thread this
// callback attached, nobody would ever catch it: it is logged and cleared before detaching.
void raiseUnknownEventType(const ScopedJNICallback& scope) {
    jniThrowRuntimeException(scope.mEnv, "Received unknown Federated Learning event enum value");
    if (scope.mAttached) scope.mEnv->ExceptionDescribe();
}

jbyteArray byteArray(JNIEnv* env, const uint8_t* data, int32_t length) {
    jbyteArray array = env->NewByteArray(length < 0 ? 0 : length);
    if (array != nullptr && length > 0 && data != nullptr) {
        env->SetByteArrayRegion(array, 0, length, reinterpret_cast<const jbyte*>(data));
    }
    return array;
}

}  // namespace

namespace {

// What tells the two metrics channels apart.
struct MetricsChannel {
    const char* initiateMessage;
    const char* nullMessage;
    jclass clazz;
    jmethodID constructor;
    jfieldID firstText;   // programName / groupID
    jfieldID secondText;  // sourceName / schemaID
    jfieldID dataPointName, dataPointValue, dataPointType, metadataList;
    const NorvoDMSMetricMetadataClassInfo& metadataClass;
    jmethodID handler;
};

// Both records share their layout from the data point name on; Record is either one.
template <typename Record>
void reportMetrics(const MetricsChannel& channel, const Record* record, const char* firstText,
                   const char* secondText) {
    ScopedJNICallback scope;
    scope.attachThread(JNI_VERSION_1_4);
    if (scope.mEnv == nullptr) return;
    JNIEnv* env = scope.mEnv;
    ALOGI("%s", channel.initiateMessage);
    if (record == nullptr) {
        ALOGE("%s", channel.nullMessage);
        return;
    }
    jobject instance = acquireInstance(env);
    if (instance == nullptr) return;
    jobject data = env->NewObject(channel.clazz, channel.constructor);
    setString(env, data, channel.firstText, firstText);
    setString(env, data, channel.secondText, secondText);
    setString(env, data, channel.dataPointName, record->dataPointName);
    setString(env, data, channel.dataPointValue, record->dataPointValue);
    setString(env, data, channel.dataPointType, dataPointTypeText(record->dataPointType));
    if (record->metadataCount >= 1) {
        jobject list = metadataList(env, record->metadata, record->metadataCount,
                                    channel.metadataClass);
        env->SetObjectField(data, channel.metadataList, list);
        deleteLocal(env, list);
    }
    env->CallVoidMethod(instance, channel.handler, data);
    describeException(env);
    deleteLocal(env, data);
    deleteLocal(env, instance);
}

}  // namespace

void recordMetricsCallback_JNI(NorvoDMSMetricData* record) {
    const NorvoDMSMetricDataClassInfo& info = gNorvoDMSMetricDataClassInfo;
    const MetricsChannel channel{"Initiate dmsMetricsCallback.",
                                 "DmsMetricCallback Failed, dmsMetric is null",
                                 info.clazz,
                                 info.constructor,
                                 info.programName,
                                 info.sourceName,
                                 info.dataPointName,
                                 info.dataPointValue,
                                 info.dataPointType,
                                 info.metadataList,
                                 gNorvoDMSMetricMetadataClassInfo,
                                 gNativeWakeWordServiceCoreClassInfo.recordMetrics};
    reportMetrics(channel, record, record == nullptr ? nullptr : record->programName,
                  record == nullptr ? nullptr : record->sourceName);
}

void recordQuillanMetricsCallback_JNI(NorvoDMSQuillanMetricData* record) {
    const NorvoDMSQuillanMetricDataClassInfo& info = gNorvoDMSQuillanMetricDataClassInfo;
    const MetricsChannel channel{"Initiate dmsQuillanMetricsCallback.",
                                 "DmsQuillanMetricCallback Failed, dmsMetric is null",
                                 info.clazz,
                                 info.constructor,
                                 info.groupID,
                                 info.schemaID,
                                 info.dataPointName,
                                 info.dataPointValue,
                                 info.dataPointType,
                                 info.metadataList,
                                 gNorvoDMSQuillanMetricMetadataClassInfo,
                                 gNativeWakeWordServiceCoreClassInfo.recordQuillanMetrics};
    reportMetrics(channel, record, record == nullptr ? nullptr : record->groupID,
                  record == nullptr ? nullptr : record->schemaID);
}

void handleFederatedLearningEventCallback_JNI(const char* modelSetId, const char* modelId,
                                              NorvoFederatedLearningEvent* event) {
    ScopedJNICallback scope;
    scope.attachThread(JNI_VERSION_1_4);
    if (scope.mEnv == nullptr) {
        ALOGE("The native java environment is null, cannot proceed with the native callback");
        return;
    }
    JNIEnv* env = scope.mEnv;
    ALOGI("Initiate FederatedLearningEventCallback");
    if (modelSetId == nullptr) {
        ALOGE("FederatedLearningEventCallback Failed, modelSet is null");
        return;
    }
    if (modelId == nullptr) {
        ALOGE("FederatedLearningEventCallback Failed, model is null");
        return;
    }
    if (event == nullptr) {
        ALOGE("FederatedLearningEventCallback Failed, eventDataPtr is null");
        return;
    }
    jobject instance = acquireInstance(env);
    if (instance == nullptr) return;
    jbyteArray data = byteArray(env, event->data, event->dataLength);
    jstring setId = env->NewStringUTF(modelSetId);
    jstring id = env->NewStringUTF(modelId);
    jstring type = env->NewStringUTF(eventTypeText(event->eventType));
    jstring json = env->NewStringUTF(event->metadataJson);
    const WWFederatedLearningEventClassInfo& info = gWWFederatedLearningEventClassInfo;
    jobject object = env->NewObject(info.clazz, info.constructor, setId, id, type, json, data);
    env->CallVoidMethod(instance, gNativeWakeWordServiceCoreClassInfo.handleFederatedLearningEvent,
                        object);
    describeException(env);
    for (jobject local : {static_cast<jobject>(setId), static_cast<jobject>(id),
                          static_cast<jobject>(type), static_cast<jobject>(json),
                          static_cast<jobject>(data), object, instance}) {
        deleteLocal(env, local);
    }
    if (event->eventType != 0) raiseUnknownEventType(scope);
}

void handleFederatedLearningUnsecuredEventCallback_JNI(
        const char* modelSetId, const char* modelId, NorvoFederatedLearningUnsecuredEvent* unsecured) {
    ScopedJNICallback scope;
    scope.attachThread(JNI_VERSION_1_4);
    if (scope.mEnv == nullptr) {
        ALOGE("The native java environment is null, cannot proceed with the native callback");
        return;
    }
    JNIEnv* env = scope.mEnv;
    ALOGI("Initiate FederatedLearningUnsecuredEventCallback");
    if (modelSetId == nullptr) {
        ALOGE("FederatedLearningUnsecuredEventCallback Failed, modelSet is null");
        return;
    }
    if (modelId == nullptr) {
        ALOGE("FederatedLearningUnsecuredEventCallback Failed, model is null");
        return;
    }
    if (unsecured == nullptr || unsecured->event == nullptr) {
        ALOGE("FederatedLearningUnsecuredEventCallback Failed, unsecuredEventDataPtr is null");
        return;
    }
    jobject instance = acquireInstance(env);
    if (instance == nullptr) return;
    const NorvoFederatedLearningEvent& event = *unsecured->event;
    jstring setId = env->NewStringUTF(modelSetId);
    jstring id = env->NewStringUTF(modelId);
    jbyteArray data = byteArray(env, event.data, event.dataLength);
    jstring type = env->NewStringUTF(eventTypeText(event.eventType));
    jstring json = env->NewStringUTF(event.metadataJson);
    jstring application = env->NewStringUTF(unsecured->applicationId);
    const WWFederatedLearningUnsecuredEventClassInfo& info =
            gWWFederatedLearningUnsecuredEventClassInfo;
    jobject object = env->NewObject(info.clazz, info.constructor, setId, id, type, json, data,
                                    static_cast<jfloat>(unsecured->smpcScaleValue), application);
    env->CallVoidMethod(instance,
                        gNativeWakeWordServiceCoreClassInfo.handleFederatedLearningUnsecuredEvent,
                        object);
    describeException(env);
    for (jobject local : {static_cast<jobject>(setId), static_cast<jobject>(id),
                          static_cast<jobject>(data), static_cast<jobject>(type),
                          static_cast<jobject>(json), static_cast<jobject>(application), object,
                          instance}) {
        deleteLocal(env, local);
    }
    if (event.eventType != 0) raiseUnknownEventType(scope);
}

void handleFederatedLearningIdleDetectionResultCallback_JNI(
        const char* modelSetId, const char* modelId,
        NorvoFederatedLearningIdleDetectionResult* result) {
    ScopedJNICallback scope;
    scope.attachThread(JNI_VERSION_1_4);
    if (scope.mEnv == nullptr) return;
    JNIEnv* env = scope.mEnv;
    ALOGI("Initiate FederatedLearningIdleDetectionResultCallback");
    if (modelSetId == nullptr) {
        ALOGE("FederatedLearningIdleDetectionResultCallback Failed, modelSet is null");
        return;
    }
    if (modelId == nullptr) {
        ALOGE("FederatedLearningIdleDetectionResultCallback Failed, model is null");
        return;
    }
    if (result == nullptr) {
        ALOGE("FederatedLearningIdleDetectionResultCallback Failed, idleDetectionResultPtr is "
              "null");
        return;
    }
    jobject instance = acquireInstance(env);
    if (instance == nullptr) return;
    jstring setId = env->NewStringUTF(modelSetId);
    jstring id = env->NewStringUTF(modelId);
    const WWFederatedLearningIdleDetectionResultClassInfo& info =
            gWWFederatedLearningIdleDetectionResultClassInfo;
    jobject object = env->NewObject(info.clazz, info.constructor, setId, id,
                                    static_cast<jlong>(result->timeSinceLastIdleSec));
    env->CallVoidMethod(
            instance, gNativeWakeWordServiceCoreClassInfo.handleFederatedLearningIdleDetectionResult,
            object);
    if (env->ExceptionCheck()) {
        // The handler failed: the engine keeps its own value.
        env->ExceptionDescribe();
    } else {
        result->timeSinceLastIdleSec = env->CallLongMethod(object, info.getTimeSinceLastIdleSec);
        describeException(env);
    }
    ALOGD("FederatedLearningIdleDetectionResultCallback - Device idle time (seconds): %lld",
          static_cast<long long>(result->timeSinceLastIdleSec));
    for (jobject local : {static_cast<jobject>(setId), static_cast<jobject>(id), object, instance}) {
        deleteLocal(env, local);
    }
}
