#include <media/AudioRecord.h>
#include <media/HostAudio.h>
#include <pthread.h>
#include <time.h>

#include <chrono>

namespace android {

namespace {

int64_t monotonicNs() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec * 1000000000LL + now.tv_nsec;
}

constexpr size_t kDefaultFrameCount = 320;  // 20 ms at 16 kHz

}  // namespace

status_t AudioRecord::getMinFrameCount(size_t* frameCount, uint32_t sampleRate,
                                       audio_format_t format, audio_channel_mask_t channelMask) {
    if (frameCount == nullptr) return BAD_VALUE;
    if (sampleRate == 0 || audio_bytes_per_sample(format) == 0 ||
        audio_channel_count_from_in_mask(channelMask) == 0) {
        return BAD_VALUE;
    }
    return host::internal::minFrameCount(frameCount);
}

AudioRecord::AudioRecord(audio_source_t inputSource, uint32_t sampleRate, audio_format_t format,
                         audio_channel_mask_t channelMask, const String16& opPackageName,
                         size_t frameCount, callback_t cbf, void* user,
                         uint32_t /*notificationFrames*/, audio_session_t /*sessionId*/,
                         transfer_type transferType, audio_input_flags_t /*flags*/, uid_t /*uid*/,
                         pid_t /*pid*/, const audio_attributes_t* /*pAttributes*/,
                         audio_port_handle_t /*selectedDeviceId*/)
    : mInputSource(inputSource),
      mSampleRate(sampleRate),
      mFormat(format),
      mChannelMask(channelMask),
      mChannelCount(audio_channel_count_from_in_mask(channelMask)),
      mOpPackageName(opPackageName),
      mFrameCount(frameCount == 0 ? kDefaultFrameCount : frameCount),
      mCallback(cbf),
      mUser(user),
      mStatus(NO_ERROR) {
    // The host supports what the service uses: callback mode, 16-bit PCM.
    if (cbf == nullptr || (transferType != TRANSFER_DEFAULT && transferType != TRANSFER_CALLBACK) ||
        format != AUDIO_FORMAT_PCM_16_BIT || mChannelCount == 0 || sampleRate == 0) {
        mStatus = BAD_VALUE;
    }
    host::internal::recordingCreated(this, &mStatus);
}

AudioRecord::~AudioRecord() {
    stopThread();
    host::internal::recordingDestroyed(this);
}

status_t AudioRecord::start(AudioSystem::sync_event_t /*event*/,
                            audio_session_t /*triggerSession*/) {
    std::lock_guard<std::mutex> guard(mLock);
    if (mStatus != NO_ERROR) return NO_INIT;
    if (mRunning.load()) return INVALID_OPERATION;
    // A thread that ended earlier (the platform stopped it, or its producer failed) has finished
    // its own bookkeeping once joined.
    if (mThread.joinable()) mThread.join();
    status_t status = host::internal::recordingStarting(this);
    if (status != NO_ERROR) return status;
    sp<host::PcmProducer> producer = host::internal::producerFor(mInputSource);
    if (producer != nullptr) {
        status = producer->startCapture(mSampleRate, mChannelCount);
        if (status != NO_ERROR) {
            host::internal::recordingStopped(this);
            return status;
        }
    }
    mCaptureProducer = producer;
    {
        std::lock_guard<std::mutex> wake(mWakeLock);
        mStopRequested = false;
    }
    mBuffer.assign(mFrameCount * mChannelCount, 0);
    mRunning.store(true);
    mEverStarted.store(true);
    mThread = std::thread(&AudioRecord::callbackLoop, this);
    return NO_ERROR;
}

void AudioRecord::stopThread() {
    std::lock_guard<std::mutex> guard(mLock);
    {
        std::lock_guard<std::mutex> wake(mWakeLock);
        mStopRequested = true;
    }
    mWake.notify_all();
    if (mThread.joinable()) {
        if (mThread.get_id() == std::this_thread::get_id()) {
            mThread.detach();
        } else {
            mThread.join();
        }
    }
    endCapture();
}

void AudioRecord::endCapture() {
    if (!mRunning.exchange(false)) return;
    if (mCaptureProducer != nullptr) mCaptureProducer->stopCapture();
    mCaptureProducer.clear();
    host::internal::recordingStopped(this);
}

void AudioRecord::stop() {
    stopThread();
}

void AudioRecord::platformStop() {
    stopThread();
}

bool AudioRecord::stopped() const {
    return !mRunning.load();
}

status_t AudioRecord::getTimestamp(ExtendedTimestamp* timestamp) {
    if (timestamp == nullptr) return BAD_VALUE;
    if (!mEverStarted.load()) return INVALID_OPERATION;
    int64_t frames;
    int64_t timeNs;
    {
        std::lock_guard<std::mutex> guard(mTimestampLock);
        frames = mFramesDelivered;
        timeNs = mLastFrameTimeNs;
    }
    if (frames == 0) return WOULD_BLOCK;
    host::TimestampConfig config = host::timestampConfig();
    timestamp->clear();
    timestamp->mPosition[ExtendedTimestamp::LOCATION_CLIENT] = frames;
    timestamp->mTimeNs[ExtendedTimestamp::LOCATION_CLIENT] = timeNs;
    if (config.server) {
        timestamp->mPosition[ExtendedTimestamp::LOCATION_SERVER] = frames;
        timestamp->mTimeNs[ExtendedTimestamp::LOCATION_SERVER] = timeNs;
    }
    if (config.kernel) {
        timestamp->mPosition[ExtendedTimestamp::LOCATION_KERNEL] = frames;
        timestamp->mTimeNs[ExtendedTimestamp::LOCATION_KERNEL] = timeNs - config.kernelLatencyNs;
    }
    timestamp->mTimebaseOffset[ExtendedTimestamp::TIMEBASE_MONOTONIC] = config.monotonicOffsetNs;
    return NO_ERROR;
}

void AudioRecord::publishTimestamp(int64_t frames, int64_t timeNs) {
    std::lock_guard<std::mutex> guard(mTimestampLock);
    mFramesDelivered = frames;
    mLastFrameTimeNs = timeNs;
}

void AudioRecord::callbackLoop() {
    pthread_setname_np(pthread_self(), "AudioRecordCb");
    const int64_t periodNs = static_cast<int64_t>(mFrameCount) * 1000000000LL / mSampleRate;
    int64_t framesDelivered = 0;
    int64_t next = monotonicNs() + periodNs;
    for (;;) {
        {
            std::unique_lock<std::mutex> wake(mWakeLock);
            // steady_clock is CLOCK_MONOTONIC on Linux: deadlines are absolute, so pacing does not
            // drift with the time the callback takes.
            mWake.wait_until(wake,
                             std::chrono::steady_clock::time_point(std::chrono::nanoseconds(next)),
                             [this] { return mStopRequested; });
            if (mStopRequested) return;
        }
        if (mCaptureProducer != nullptr && mCaptureProducer->failed()) {
            // A broken device ends the recording as the platform would; the client notices that
            // its source went inactive and starts a new recording, which reopens the device.
            endCapture();
            return;
        }
        // The producer whose capture started is the one read; without one (nothing was attached
        // when the recording started) whatever is attached now.
        sp<host::PcmProducer> producer = mCaptureProducer != nullptr
                                                 ? mCaptureProducer
                                                 : host::internal::producerFor(mInputSource);
        size_t frames = producer == nullptr
                                ? 0
                                : producer->produce(mBuffer.data(), mFrameCount, mChannelCount);
        if (frames > 0) {
            framesDelivered += static_cast<int64_t>(frames);
            publishTimestamp(framesDelivered, monotonicNs());
            Buffer buffer;
            buffer.frameCount = frames;
            buffer.size = frames * mChannelCount * sizeof(int16_t);
            buffer.raw = mBuffer.data();
            mCallback(EVENT_MORE_DATA, mUser, &buffer);
        }
        next += periodNs;
        // A consumer more than a period late has lost those periods, as a device's would.
        int64_t late = monotonicNs() - next;
        if (late > periodNs) {
            next += (late / periodNs) * periodNs;
            mCallback(EVENT_OVERRUN, mUser, nullptr);
        }
    }
}

}  // namespace android
