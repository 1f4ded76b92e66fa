#define LOG_TAG "AudioRecordInput"

#include "AudioRecordInput.h"

#include <log/log.h>

namespace velmar {

using android::sp;
using android::status_t;

namespace {
constexpr int32_t kThreadPriority = 10;  // ANDROID_PRIORITY_BACKGROUND: supervision is not urgent
}

AudioRecordInput::AudioRecordInput(const sp<IAudioRecordAdapter>& first, int checkIntervalNs)
    : android::Thread(true /*canCallJava*/),
      mCondition(android::Condition::PRIVATE),
      mStopRequested(false),
      mCheckIntervalNs(checkIntervalNs) {
    addAudioRecord(first);
}

AudioRecordInput::~AudioRecordInput() = default;

void AudioRecordInput::addAudioRecord(const sp<IAudioRecordAdapter>& adapter) {
    android::Mutex::Autolock control(mControlLock);
    mAudioRecords.push_back(adapter);
}

status_t AudioRecordInput::start() {
    android::Mutex::Autolock control(mControlLock);
    if (isRunning()) return android::NO_ERROR;
    // The request left by the last stop() is withdrawn before the new thread can see it: a thread
    // that finds it set never waits, and would spin until it was cleared.
    bool previousRequest;
    {
        android::Mutex::Autolock lock(mLock);
        previousRequest = mStopRequested;
        mStopRequested = false;
    }
    status_t status = run("AudioRecordInput", kThreadPriority, 0);
    if (status != android::NO_ERROR) {
        ALOGE("Error starting AudioRecordManager thread: %d", status);
        {
            android::Mutex::Autolock lock(mLock);
            mStopRequested = previousRequest;
        }
        stopAudioRecords();
        return status;
    }
    return android::NO_ERROR;
}

status_t AudioRecordInput::stop() {
    android::Mutex::Autolock control(mControlLock);
    if (!isRunning()) return android::NO_ERROR;
    {
        android::Mutex::Autolock lock(mLock);
        mStopRequested = true;
    }
    mCondition.signal();
    requestExitAndWait();
    return stopAudioRecords();
}

status_t AudioRecordInput::stopAudioRecords() {
    status_t result = android::NO_ERROR;
    for (size_t i = 0; i < mAudioRecords.size(); ++i) {
        status_t status = mAudioRecords[i]->stop();
        if (status != android::NO_ERROR) {
            ALOGE("Error stopping AudioRecord: %d", status);
            result = status;
        }
    }
    return result;
}

bool AudioRecordInput::threadLoop() {
    // Each adapter logs its own failures; a failed one is simply tried again next pass.
    for (size_t i = 0; i < mAudioRecords.size(); ++i) mAudioRecords[i]->ensureStarted();
    {
        android::Mutex::Autolock lock(mLock);
        if (!mStopRequested) mCondition.waitRelative(mLock, mCheckIntervalNs);
    }
    if (exitPending()) {
        stopAudioRecords();
        return false;
    }
    return true;
}

}  // namespace velmar
