// Owns at most one android::AudioRecord in callback mode and re-creates it on demand. The audio
// never passes through the adapter: the recording delivers its buffers straight to the callback.
//
// Threads: ensureStarted() runs on the supervision thread; stop() on that thread or, after it has
// ended, on the controlling thread; getTimestamp() may be called at any time.
#ifndef VELMAR_AUDIO_RECORD_ADAPTER_H
#define VELMAR_AUDIO_RECORD_ADAPTER_H

#include <media/AudioRecord.h>
#include <utils/String16.h>
#include <utils/StrongPointer.h>

#include <mutex>

#include "IAudioRecordAdapter.h"

namespace velmar {

class AudioRecordAdapter : public IAudioRecordAdapter {
  public:
    // opPackageName is owned by the caller and must outlive the adapter. No recording is created.
    AudioRecordAdapter(const android::String16& opPackageName, audio_source_t inputSource,
                       uint32_t sampleRate, audio_format_t format, audio_channel_mask_t channelMask,
                       size_t frameCount, android::AudioRecord::callback_t callback,
                       void* userData);
    // Releases the recording without stopping it first.
    ~AudioRecordAdapter() override;

    // Creates and starts a new recording, replacing the held one. The initCheck or start status
    // on failure (logged), leaving no recording.
    android::status_t start();
    android::status_t stop() override;
    android::status_t ensureStarted() override;
    audio_source_t getInputSource() const override;
    android::status_t getTimestamp(android::ExtendedTimestamp* timestamp) override;

  private:
    android::sp<android::AudioRecord> record() const;
    // Replaces the held recording; the old one is released outside the lock.
    void setRecord(const android::sp<android::AudioRecord>& record);

    const android::String16& mOpPackageName;
    const audio_source_t mInputSource;
    const uint32_t mSampleRate;
    const audio_format_t mFormat;
    const audio_channel_mask_t mChannelMask;
    const size_t mFrameCount;
    const android::AudioRecord::callback_t mCallback;
    void* const mUserData;
    // Guards the pointer only (never held while calling the recording): getTimestamp() reads it
    // from the service's threads while the supervision thread replaces it.
    mutable std::mutex mRecordLock;
    android::sp<android::AudioRecord> mAudioRecord;  // guarded by mRecordLock
};

}  // namespace velmar

#endif  // VELMAR_AUDIO_RECORD_ADAPTER_H
