// Engine setup: registers the engine's sinks and the result callbacks, hands over the local time
// offset and the device description, builds the wake-word model, and starts the auxiliary parts.
#define LOG_TAG "WakeWordService"
#define ATRACE_TAG ATRACE_TAG_AUDIO

#include <cutils/properties.h>
#include <log/log.h>
#include <sys/resource.h>
#include <utils/Trace.h>

#include <cerrno>
#include <cstdio>

#include "NorvoIds.h"
#include "WakeWordService.h"

namespace velmar {

using android::status_t;

namespace {

constexpr size_t kDeviceInfoJsonSize = 256;

int androidPriorityForEngineLevel(int level) {
    switch (level) {
        case 1:
            return ANDROID_LOG_FATAL;
        case 2:
            return ANDROID_LOG_ERROR;
        case 3:
            return ANDROID_LOG_WARN;
        case 4:
            return ANDROID_LOG_INFO;
        case 5:
            return ANDROID_LOG_DEBUG;
        case 6:
            return ANDROID_LOG_VERBOSE;
        default:
            return ANDROID_LOG_INFO;
    }
}

// Reads one property for the device description. A missing property is logged with its name and
// becomes the empty string; a present one is logged with its value when presentFormat is given.
void readDeviceProperty(const char* name, char (&value)[PROPERTY_VALUE_MAX],
                        const char* missingFormat, const char* presentFormat) {
    if (property_get(name, value, "") < 1) {
        value[0] = '\0';
        ALOGW(missingFormat, name);
    } else if (presentFormat != nullptr) {
        ALOGD(presentFormat, value);
    }
}

}  // namespace

void WakeWordService::norvoLoggingCallback(int level, const char* /*component*/,
                                           const char* message) {
    LOG_PRI(androidPriorityForEngineLevel(level), LOG_TAG, "%s", message);
}

void WakeWordService::norvoMetricsCallback(const char* /*component*/, const char* metrics) {
    ALOGI("Dump norvo metrics: @ %s ", metrics);
}

void WakeWordService::norvoGetDeviceInfoJson(char* buffer, size_t size) {
    char buildType[PROPERTY_VALUE_MAX];
    char buildDisplayId[PROPERTY_VALUE_MAX];
    char versionRelease[PROPERTY_VALUE_MAX];
    char versionIncremental[PROPERTY_VALUE_MAX];
    char device[PROPERTY_VALUE_MAX];
    readDeviceProperty("ro.build.type", buildType,
                       "norvoGetDeviceInfoJson cannot get buildType from system properties %s",
                       "buildType @ %s");
    readDeviceProperty("ro.build.display.id", buildDisplayId,
                       "norvoGetDeviceInfoJson cannot get buildDisplayId from system properties %s",
                       "buildDisplayId @ %s");
    readDeviceProperty(
            "ro.build.version.release", versionRelease,
            "norvoGetDeviceInfoJson cannot get buildVersionReleaseNumber from system properties %s",
            "buildVersionReleaseNumber @ %s");
    readDeviceProperty(
            "ro.build.version.incremental", versionIncremental,
            "norvoGetDeviceInfoJson cannot get buildVersionIncremental from system properties %s",
            "buildVersionIncremental @ %s");
    readDeviceProperty("ro.product.device", device,
                       "norvoGetDeviceInfoJson cannot get deviceType from system properties %s",
                       nullptr);
    ALOGD("DeviceType @ %s", device);
    // Property values are inserted as they are: the engine receives exactly what the build says.
    snprintf(buffer, size,
             "{ \"build_type\":\"%s\", \"build_display_id\":\"%s\", "
             "\"device_firmware_version\":\"%s-%s\", \"device_type\":\"%s\"}",
             buildType, buildDisplayId, versionRelease, versionIncremental, device);
}

void WakeWordService::norvoGetSampleEventJson(char* buffer, unsigned int size,
                                              unsigned int sampleCount,
                                              unsigned long long firstSampleIndex) {
    snprintf(buffer, size, "{ \"sample_count\":%u, \"first_sample_index\":%llu }", sampleCount,
             firstSampleIndex);
}

status_t WakeWordService::setNorvoDecoderThreadPriority(NorvoDecoderId decoderId, int priority) {
    NorvoDecoderThreadIdResult thread = NorvoDecoder_GetDecoderThreadId(decoderId);
    status_t result = android::INVALID_OPERATION;
    if (thread.status == NORVO_SUCCESS) {
        // setpriority's own return value is ambiguous; errno is what tells success from failure.
        errno = 0;
        setpriority(PRIO_PROCESS, static_cast<id_t>(thread.threadId), priority);
        result = -errno;
    }
    ALOGI("Set Norvo thread priority for decoder '%s', threadId: %d to priority=%d", decoderId,
          thread.threadId, priority);
    return result;
}

status_t WakeWordService::initializeNorvo() {
    ATRACE_NAME(__PRETTY_FUNCTION__);
    // Registrations first: nothing the engine reports while the model is built may be lost.
    status_t status = NORVO_SUCCESS;
    auto failed = [&status](status_t result, const char* message) {
        status = result;
        if (result != NORVO_SUCCESS) ALOGE("%s", message);
        return result != NORVO_SUCCESS;
    };
    if (failed(NorvoApi_SetLoggingCallback(norvoLoggingCallback),
               "Error setting Norvo LoggingCallback.") ||
        failed(NorvoApi_SetEnumeratedResultCallback(mEnumeratedResultCallback),
               "Error setting Norvo EnumeratedResultCallback.") ||
        failed(NorvoApi_SetJsondataCallback(mJsondataCallback),
               "Error setting Norvo JsonDataCallback.") ||
        (mAedAvailable && failed(NorvoApi_SetAcousticEventDetectionResultCallback(
                                         mAcousticEventDetectionResultCallback),
                                 "Error setting Norvo AcousticEventDetectionResultCallback.")) ||
        failed(NorvoApi_SetLocalCommandEnumeratedResultCallback(
                       mLocalCommandEnumeratedResultCallback),
               "Error setting Norvo NorvoApi_SetLocalCommandEnumeratedResultCallback.") ||
        failed(NorvoApi_SetMetricsCallback(norvoMetricsCallback),
               "Error setting Norvo MetricsCallback.") ||
        failed(NorvoApi_SetDmsMetricsCallback(mRecordMetricsCallback),
               "Error setting Norvo DMS Metrics Callback.") ||
        failed(NorvoApi_SetDmsQuillanMetricsCallback(mRecordQuillanMetricsCallback),
               "Error setting Norvo DMS Quillan Metrics Callback.") ||
        failed(NorvoApi_SetLocalTimeOffset(mLocalTimeOffset),
               "Error setting UTC local time offset") ||
        failed(NorvoApi_SetFederatedLearningEventCallback(mFederatedLearningResultCallback),
               "Error setting Norvo Federated Learning Event Callback.") ||
        failed(NorvoApi_SetFederatedLearningUnsecuredEventCallback(
                       mFederatedLearningUnsecuredResultCallback),
               "Error setting Norvo Federated Learning Unsecured Event Callback.") ||
        failed(NorvoApi_SetFederatedLearningIdleDetectionCallback(
                       mFederatedLearningIdleDetectionCallback),
               "Error setting Norvo Federated Learning Idle Detection Callback.")) {
        return status;
    }

    char deviceInfoJson[kDeviceInfoJsonSize];
    norvoGetDeviceInfoJson(deviceInfoJson, sizeof(deviceInfoJson));
    ALOGD("deviceInfoJson: %s set into Norvo LookaheadMetadata", deviceInfoJson);
    status = NorvoApi_SetClientLookaheadMetadata(deviceInfoJson);
    if (status != NORVO_SUCCESS) {
        ALOGE("Error: setting Norvo LookaheadMetadata.");
        return status;
    }

    // A model that cannot be loaded leaves the service running without keyword decoders; only a
    // fatal engine error is worth failing start-up for.
    status = setNewNorvoModel(mNorvoModelManifestPath, mWakeWords, mWakeWordCount);
    if (status == NORVO_ERROR_FATAL) {
        ALOGE("Error setting Norvo model.");
        return NORVO_ERROR_FATAL;
    }

    mAspEventMonitor = new AspEventMonitor(AspEventCallback, this);
    mAspEventMonitor->start();

    if (mNttEnabled) {
        if (NorvoApi_SetNttResultCallback(mNttResultCallback) != NORVO_SUCCESS) {
            ALOGE("Error setting Norvo NttResultCallback.");
        }
        ALOGI("TEMP LOG: setting EOS callback here");
        if (NorvoApi_SetNttEndOfSpeechCallback(mNttEndOfSpeechCallback) != NORVO_SUCCESS) {
            ALOGE("Error setting Norvo nttEndOfSpeechCallback.");
        }
    }

    if (mNttSupportedInWwModel) {
        status = NorvoDecoder_SetNttConfiguration(kInputDecoderId, mNttConfiguration);
        if (status != NORVO_SUCCESS) ALOGE("Error setting NTT configuration (%d)", status);
    } else if (mPreloadNttModel) {
        if (initializeNttDecoder(mNttModelPath.c_str()) != android::NO_ERROR) {
            ALOGE("Error initializing NTT Decoder on non-unified Norvo keyword model.");
        }
    }

    if (mAedAvailable) {
        status = setAudioEventDetectionMode(mAedEnabled);
        if (status != android::NO_ERROR) {
            ALOGE("%s : %s", "android::status_t velmar::WakeWordService::initializeNorvo()",
                  "Failed to initialize AED.");
            return status;
        }
    }

    status = pushClientEventToNorvo("NearMissEnabled", mNearMissEnabled ? 1 : 0, kInputDecoderId);
    if (status == NORVO_ERROR_FATAL) {
        ALOGE("Error pushing event to Norvo.");
        return NORVO_ERROR_FATAL;
    }
    return status;
}

}  // namespace velmar
