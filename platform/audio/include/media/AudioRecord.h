// Host implementation of the platform's capture client, callback mode only.
//
// A started recording delivers EVENT_MORE_DATA buffers of up to frameCount frames on a callback
// thread of its own, paced in real time from the PCM producer the host audio system has attached
// to its input source (media/HostAudio.h). When the callback falls behind by more than one period
// the missed periods are dropped and EVENT_OVERRUN is reported. The host audio system can also
// refuse a recording (initCheck, start) and stop a running one, as the platform does when another
// client takes the source.
#ifndef HOST_MEDIA_AUDIO_RECORD_H
#define HOST_MEDIA_AUDIO_RECORD_H

#include <media/AudioSystem.h>
#include <media/AudioTimestamp.h>
#include <sys/types.h>
#include <system/audio.h>
#include <utils/Errors.h>
#include <utils/RefBase.h>
#include <utils/String16.h>

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

namespace android {

namespace host {
class PcmProducer;
}

class AudioRecord : public virtual RefBase {
  public:
    enum event_type {
        EVENT_MORE_DATA = 0,  // info: Buffer*
        EVENT_OVERRUN = 1,    // info: null
        EVENT_MARKER = 2,
        EVENT_NEW_POS = 3,
        EVENT_NEW_IAUDIORECORD = 4,
    };
    enum transfer_type {
        TRANSFER_DEFAULT,
        TRANSFER_CALLBACK,
        TRANSFER_OBTAIN,
        TRANSFER_SYNC,
    };

    // One delivered buffer of interleaved frames.
    class Buffer {
      public:
        size_t frameCount;
        size_t size;  // bytes
        union {
            void* raw;
            int16_t* i16;
            int8_t* i8;
        };
    };

    typedef void (*callback_t)(int event, void* user, void* info);

    // The smallest frame count the host audio system accepts for these parameters (its configured
    // value, or an error it was told to return).
    static status_t getMinFrameCount(size_t* frameCount, uint32_t sampleRate, audio_format_t format,
                                     audio_channel_mask_t channelMask);

    AudioRecord(audio_source_t inputSource, uint32_t sampleRate, audio_format_t format,
                audio_channel_mask_t channelMask, const String16& opPackageName,
                size_t frameCount = 0, callback_t cbf = nullptr, void* user = nullptr,
                uint32_t notificationFrames = 0, audio_session_t sessionId = AUDIO_SESSION_ALLOCATE,
                transfer_type transferType = TRANSFER_DEFAULT,
                audio_input_flags_t flags = AUDIO_INPUT_FLAG_NONE,
                uid_t uid = static_cast<uid_t>(-1), pid_t pid = -1,
                const audio_attributes_t* pAttributes = nullptr,
                audio_port_handle_t selectedDeviceId = AUDIO_PORT_HANDLE_NONE);
    // Stops the callback thread if it still runs.
    ~AudioRecord() override;

    // NO_ERROR, or why the recording cannot be used (then start() fails with NO_INIT).
    status_t initCheck() const { return mStatus; }
    // Starts the callback thread. INVALID_OPERATION when already started.
    status_t start(AudioSystem::sync_event_t event = AudioSystem::SYNC_EVENT_NONE,
                   audio_session_t triggerSession = AUDIO_SESSION_NONE);
    // Stops capture; returns once no callback is running or will run. Not from the callback.
    void stop();
    // True until start() succeeds, and again after stop() or after the platform stopped it.
    bool stopped() const;
    // Newest captured frame: server and (when the host audio system provides it) kernel position
    // and monotonic time. WOULD_BLOCK before the first buffer, INVALID_OPERATION when not started.
    status_t getTimestamp(ExtendedTimestamp* timestamp);

    audio_source_t inputSource() const { return mInputSource; }
    uint32_t sampleRate() const { return mSampleRate; }
    audio_format_t format() const { return mFormat; }
    audio_channel_mask_t channelMask() const { return mChannelMask; }
    uint32_t channelCount() const { return mChannelCount; }
    size_t frameCount() const { return mFrameCount; }
    const String16& opPackageName() const { return mOpPackageName; }
    // Stops the recording from the platform's side (the callback thread ends; stopped() turns
    // true). Safe from any thread except the callback.
    void platformStop();

  private:
    void callbackLoop();
    void publishTimestamp(int64_t frames, int64_t timeNs);

    const audio_source_t mInputSource;
    const uint32_t mSampleRate;
    const audio_format_t mFormat;
    const audio_channel_mask_t mChannelMask;
    const uint32_t mChannelCount;
    const String16 mOpPackageName;
    const size_t mFrameCount;
    const callback_t mCallback;
    void* const mUser;
    status_t mStatus;

    void stopThread();
    // Ends capture once, whichever thread gets here first: stops the producer's capture and tells
    // the host audio system the source is free.
    void endCapture();

    std::mutex mLock;     // serialises start/stop and guards mThread
    std::thread mThread;  // guarded by mLock
    std::atomic<bool> mRunning{false};
    std::atomic<bool> mEverStarted{false};
    std::mutex mWakeLock;  // guards mStopRequested, goes with mWake
    std::condition_variable mWake;
    bool mStopRequested = false;
    std::vector<int16_t> mBuffer;  // used only by the callback thread
    // The producer whose capture this recording started: set by start() before the callback thread
    // runs, cleared by endCapture(); the thread that flips mRunning off owns it then.
    sp<host::PcmProducer> mCaptureProducer;

    std::mutex mTimestampLock;  // guards the two fields below
    int64_t mFramesDelivered = 0;
    int64_t mLastFrameTimeNs = -1;
};

}  // namespace android

#endif  // HOST_MEDIA_AUDIO_RECORD_H
