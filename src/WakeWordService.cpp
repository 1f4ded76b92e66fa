// Construction, initialisation order, teardown and dump of the service.
#define LOG_TAG "WakeWordService"
#define ATRACE_TAG ATRACE_TAG_AUDIO

#include "WakeWordService.h"

#include <log/log.h>
#include <system/audio.h>
#include <unistd.h>
#include <utils/Trace.h>

#include <cstdio>
#include <cstring>

namespace velmar {

using android::sp;
using android::status_t;

uint32_t gChannelCount = 1;

namespace {

constexpr uint32_t kBoundaryGuard = 0xdeadbeef;
constexpr uint16_t kDefaultBackfillDurationMs = 500;

std::string pathOrEmpty(const char* path) {
    return path == nullptr ? std::string() : path;
}

uint32_t bytesPerSample(const sp<AudioStream>& stream) {
    if (stream == nullptr) return 0;
    return audio_bytes_per_sample(stream->getFormat().format);
}

}  // namespace

WakeWordService::WakeWordService(
        const char* opPackageName, EnumeratedResult_Callback enumeratedResultCallback,
        AcousticEventDetectionResult_Callback acousticEventDetectionResultCallback,
        LocalCommandEnumeratedResult_Callback localCommandEnumeratedResultCallback,
        NttResult_Callback nttResultCallback, NttEndOfSpeech_Callback nttEndOfSpeechCallback,
        Jsondata_Callback jsondataCallback,
        AedStaticDecoderStatus_Callback aedStaticDecoderStatusCallback,
        AedCustomDecoderStatus_Callback aedCustomDecoderStatusCallback,
        NttDecoderStatus_Callback nttDecoderStatusCallback,
        PmaDecoderStatus_Callback pmaDecoderStatusCallback,
        RecordMetrics_Callback recordMetricsCallback,
        RecordQuillanMetrics_Callback recordQuillanMetricsCallback,
        NorvoFederatedLearning_resultCallback federatedLearningResultCallback,
        NorvoFederatedLearning_unsecuredResultCallback federatedLearningUnsecuredResultCallback,
        NorvoFederatedLearning_idleDetectionCallback federatedLearningIdleDetectionCallback,
        const sp<AudioStream>& audioStream, const sp<AudioStream>& oneMicAudioStream,
        const char* norvoModelManifestPath, const char* aedStaticModelManifestPath,
        const char* nttModelPath, const char* pmaModelPath, const char* aedCustomModelPath,
        const char** wakeWords, int wakeWordCount, bool playbackViaAudioRecord,
        bool suppressPlaybackAtInit, bool aedAvailable, bool nearMissEnabled,
        bool threeChannelInput, bool nttEnabled, bool preloadNttModel, bool oneMicEnabled,
        int decoderThreadPriority, int audioRecordFrameCount, int32_t localTimeOffset,
        int ttsStreamType)
    : mInitStatus(android::NO_ERROR),
      mBackfillPending(false),
      mBackfillDurationMs(0),
      mDetectorEnabled(false),
      mWWDetectionEnabled(true),
      mInputModelReady(false),
      mPackageName(opPackageName == nullptr ? "" : opPackageName),
      mAudioStream(audioStream),
      mOneMicEnabled(oneMicEnabled),
      mOneMicAudioStream(oneMicAudioStream),
      mBytesPerSample(bytesPerSample(audioStream)),
      mInputBeforeBoundary(kBoundaryGuard),
      mInputFrameCount(0),
      mInputAfterBoundary(kBoundaryGuard),
      mPlaybackViaAudioRecord(playbackViaAudioRecord),
      mSuppressPlaybackAtInit(suppressPlaybackAtInit),
      mPlaybackDetectorInitiated(false),
      mPlaybackModelReady(false),
      mPlaybackBeforeBoundary(kBoundaryGuard),
      mPlaybackFrameCount(0),
      mPlaybackAfterBoundary(kBoundaryGuard),
      mNearMissEnabled(nearMissEnabled),
      mThreeChannelInput(threeChannelInput),
      mDecoderThreadPriority(decoderThreadPriority),
      mAudioRecordFrameCount(audioRecordFrameCount),
      mLocalTimeOffset(localTimeOffset),
      mTtsStreamType(ttsStreamType),
      mAedAvailable(aedAvailable),
      mAedModelSetCreated(false),
      mAedDecoderCreated(false),
      mAedEnabled(false),
      mPushDataToPlaybackDetector(true),
      mNttDetectionEnabled(false),
      mNttEnabled(nttEnabled),
      mPreloadNttModel(preloadNttModel),
      mNttDecoderReady(false),
      mNttModelPath(pathOrEmpty(nttModelPath)),
      mNttResultCallback(nttResultCallback),
      mNttEndOfSpeechCallback(nttEndOfSpeechCallback),
      mNttConfiguration(NORVO_NTT_CONFIGURATION_DISABLED),
      mNttSupportedInWwModel(false),
      mPmaDecoderReady(false),
      mPmaModelPath(pathOrEmpty(pmaModelPath)),
      mNorvoModelManifestPath(norvoModelManifestPath),
      mAedStaticModelManifestPath(pathOrEmpty(aedStaticModelManifestPath)),
      mAedCustomModelPath(pathOrEmpty(aedCustomModelPath)),
      mWakeWords(wakeWords),
      mWakeWordCount(wakeWordCount),
      mEnumeratedResultCallback(enumeratedResultCallback),
      mAcousticEventDetectionResultCallback(acousticEventDetectionResultCallback),
      mLocalCommandEnumeratedResultCallback(localCommandEnumeratedResultCallback),
      mJsondataCallback(jsondataCallback),
      mAedStaticDecoderStatusCallback(aedStaticDecoderStatusCallback),
      mAedCustomDecoderStatusCallback(aedCustomDecoderStatusCallback),
      mNttDecoderStatusCallback(nttDecoderStatusCallback),
      mPmaDecoderStatusCallback(pmaDecoderStatusCallback),
      mRecordMetricsCallback(recordMetricsCallback),
      mRecordQuillanMetricsCallback(recordQuillanMetricsCallback),
      mFederatedLearningResultCallback(federatedLearningResultCallback),
      mFederatedLearningUnsecuredResultCallback(federatedLearningUnsecuredResultCallback),
      mFederatedLearningIdleDetectionCallback(federatedLearningIdleDetectionCallback) {
    ATRACE_NAME(__PRETTY_FUNCTION__);
    gChannelCount = mThreeChannelInput ? 3 : (mOneMicEnabled ? 2 : 1);
    logFrameCountBoundaries();
    mBackfillDurationMs = kDefaultBackfillDurationMs;
}

WakeWordService::~WakeWordService() {
    ATRACE_NAME(__PRETTY_FUNCTION__);
    // A running injection calls back into this object from its own thread: it must end before the
    // object does.
    if (mInjector != nullptr) mInjector->stopInjection();
    destroy();
}

void WakeWordService::onFirstRef() {
    ATRACE_NAME(__PRETTY_FUNCTION__);
    mInitStatus = initialize();
}

status_t WakeWordService::initialize() {
    ATRACE_NAME(__PRETTY_FUNCTION__);
    status_t status = initializeAudioRecordAndInjector();
    if (status != android::NO_ERROR) {
        ALOGE("Error initializing AudioRecord. (%d)", status);
    } else if ((status = initializeNorvo()) != android::NO_ERROR) {
        ALOGE("Error initializing Norvo. (%d)", status);
    } else if ((status = startAudioStream()) != android::NO_ERROR) {
        ALOGE("Error opening the AudioStream (%d)", status);
    } else if (mOneMicEnabled && (status = startOneMicAudioStream()) != android::NO_ERROR) {
        ALOGE("Error opening OneMicAudioStream (%d)", status);
    }
    if (status != android::NO_ERROR) {
        ALOGE("Error initializing WakeWordService: %d", status);
        // destroy() resets mInitStatus; the caller stores this status after it returns.
        destroy();
        return status;
    }
    if (mOneMicEnabled) {
        ALOGI("OneMicAudio enabled.");
    } else {
        ALOGI("OneMicAudio disabled.");
    }

    if (mSuppressPlaybackAtInit) {
        ALOGD("Will NOT initialize playback as it is suppressed at ww service initiation time");
    } else {
        // Playback detection is an extra: the service is usable without it.
        status_t playbackStatus = enablePlaybackDetector();
        if (playbackStatus != android::NO_ERROR) {
            ALOGE("Error enabling playback detector (%d)", playbackStatus);
        }
    }
    return android::NO_ERROR;
}

void WakeWordService::destroy() {
    ATRACE_NAME(__PRETTY_FUNCTION__);
    mInputFrameCount = 0;
    mEnumeratedResultCallback = nullptr;
    mInitStatus = android::NO_ERROR;
    mDetectorEnabled = false;

    if (mAudioInput != nullptr) {
        mAudioInput->stop();
        mAudioInput.clear();
    }
    playbackDestroy();
    destroyNorvoModel();

    // Each removal is attempted even when an earlier one failed, so that as few engine callbacks
    // as possible can reach a service that is going away.
    if (NorvoApi_SetEnumeratedResultCallback(nullptr) != NORVO_SUCCESS) {
        ALOGE("Error removing EnumeratedResultCallback.");
    }
    if (NorvoApi_SetLoggingCallback(nullptr) != NORVO_SUCCESS) {
        ALOGE("Error removing LoggingCallback.");
    }
    if (NorvoApi_SetDmsMetricsCallback(nullptr) != NORVO_SUCCESS) {
        ALOGE("Error removing DMSMetricsCallback.");
    }
    if (NorvoApi_SetDmsQuillanMetricsCallback(nullptr) != NORVO_SUCCESS) {
        ALOGE("Error removing DMSQuillanMetricsCallback.");
    }
    if (NorvoApi_SetFederatedLearningEventCallback(nullptr) != NORVO_SUCCESS) {
        ALOGE("Error removing FederatedLearningEventCallback.");
    }
    if (NorvoApi_SetFederatedLearningUnsecuredEventCallback(nullptr) != NORVO_SUCCESS) {
        ALOGE("Error removing FederatedLearningUnsecuredEventCallback.");
    }
    if (NorvoApi_SetFederatedLearningIdleDetectionCallback(nullptr) != NORVO_SUCCESS) {
        ALOGE("Error removing FederatedLearningIdleDetectionCallback.");
    }

    destroyAedCustomModel();
    destroyAedDecoderAndStaticModel(true, true);
    if (NorvoApi_SetPresenceDetectionResultCallback(nullptr) != NORVO_SUCCESS) {
        ALOGE("Error removing PresenceDetectionResultCallback.");
    }

    mNttDetectionEnabled = false;
    if (mNttDecoderReady) {
        destroyNttModel();
        if (NorvoApi_SetNttResultCallback(nullptr) != NORVO_SUCCESS) {
            ALOGE("Error removing NttResultsCallback.");
        }
    }

    if (mAspEventMonitor != nullptr) {
        mAspEventMonitor->stop();
        mAspEventMonitor.clear();
    }
    mBytesPerSample = 0;
}

void WakeWordService::release() {
    ATRACE_NAME(__PRETTY_FUNCTION__);
}

status_t WakeWordService::dump(int fd, const android::Vector<android::String16>& /*args*/) {
    ATRACE_NAME(__PRETTY_FUNCTION__);
    // After destroy() the sample size is unknown; report no frames rather than divide by zero.
    unsigned long long frames =
            mBytesPerSample == 0 ? 0ULL : mInputFrameCount / static_cast<uint64_t>(mBytesPerSample);
    char text[256];
    snprintf(text, sizeof(text), "Audio frames read: %llu\n", frames);
    ssize_t written = write(fd, text, strnlen(text, sizeof(text)));
    (void)written;  // dump output is best effort
    return android::NO_ERROR;
}

}  // namespace velmar
