#define LOG_TAG "AudioRecordAdapter"

#include "AudioRecordAdapter.h"

#include <log/log.h>
#include <media/AudioSystem.h>

namespace velmar {

using android::sp;
using android::status_t;

AudioRecordAdapter::AudioRecordAdapter(const android::String16& opPackageName,
                                       audio_source_t inputSource, uint32_t sampleRate,
                                       audio_format_t format, audio_channel_mask_t channelMask,
                                       size_t frameCount, android::AudioRecord::callback_t callback,
                                       void* userData)
    : mOpPackageName(opPackageName),
      mInputSource(inputSource),
      mSampleRate(sampleRate),
      mFormat(format),
      mChannelMask(channelMask),
      mFrameCount(frameCount),
      mCallback(callback),
      mUserData(userData) {}

AudioRecordAdapter::~AudioRecordAdapter() = default;

sp<android::AudioRecord> AudioRecordAdapter::record() const {
    std::lock_guard<std::mutex> guard(mRecordLock);
    return mAudioRecord;
}

void AudioRecordAdapter::setRecord(const sp<android::AudioRecord>& record) {
    sp<android::AudioRecord> previous;
    {
        std::lock_guard<std::mutex> guard(mRecordLock);
        previous = mAudioRecord;
        mAudioRecord = record;
    }
}

status_t AudioRecordAdapter::start() {
    sp<android::AudioRecord> recording = new android::AudioRecord(
            mInputSource, mSampleRate, mFormat, mChannelMask, mOpPackageName, mFrameCount,
            mCallback, mUserData, 0 /*notificationFrames*/, AUDIO_SESSION_ALLOCATE,
            android::AudioRecord::TRANSFER_DEFAULT, AUDIO_INPUT_FLAG_NONE, static_cast<uid_t>(-1),
            -1 /*pid*/, nullptr /*attributes*/, AUDIO_PORT_HANDLE_NONE);
    setRecord(recording);
    status_t status = recording->initCheck();
    if (status != android::NO_ERROR) {
        ALOGE("Error initializing AudioRecord: %d", status);
        setRecord(nullptr);
        return status;
    }
    status = recording->start(android::AudioSystem::SYNC_EVENT_NONE, AUDIO_SESSION_NONE);
    if (status != android::NO_ERROR) {
        ALOGE("Error starting AudioRecord: %d", status);
        setRecord(nullptr);
        return status;
    }
    return android::NO_ERROR;
}

status_t AudioRecordAdapter::stop() {
    sp<android::AudioRecord> recording = record();
    if (recording == nullptr) return android::NO_ERROR;
    if (!recording->stopped()) recording->stop();
    setRecord(nullptr);
    return android::NO_ERROR;
}

status_t AudioRecordAdapter::ensureStarted() {
    bool active = false;
    status_t status = android::AudioSystem::isSourceActive(getInputSource(), &active);
    if (status != android::NO_ERROR) {
        ALOGE("Error getting AudioSource state: %d", status);
        return status;
    }
    if (active) {
        // The platform may have stopped our recording while another client holds the source.
        sp<android::AudioRecord> recording = record();
        if (recording != nullptr && recording->stopped()) {
            setRecord(nullptr);
            recording.clear();
        }
        if (recording != nullptr) return android::NO_ERROR;
    }
    // An inactive source means our recording, whatever we hold, is not capturing: start afresh.
    status = start();
    if (status != android::NO_ERROR) {
        ALOGE("Error restarting audio record: %d", status);
        return status;
    }
    return android::NO_ERROR;
}

audio_source_t AudioRecordAdapter::getInputSource() const {
    return mInputSource;
}

status_t AudioRecordAdapter::getTimestamp(android::ExtendedTimestamp* timestamp) {
    sp<android::AudioRecord> recording = record();
    if (recording == nullptr) return android::BAD_VALUE;
    return recording->getTimestamp(timestamp);
}

}  // namespace velmar
