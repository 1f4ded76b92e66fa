#define LOG_TAG "AudioStreamReaderThread"

#include "AudioStreamReaderThread.h"

#include <log/log.h>
#include <system/audio.h>

namespace velmar {

using android::sp;
using android::status_t;

namespace {

constexpr int32_t kThreadPriority = -16;     // ANDROID_PRIORITY_AUDIO
constexpr int64_t kReopenPauseNs = 1000000000;  // one second
constexpr size_t kBufferBytes = 2048;

}  // namespace

AudioStreamReaderThread::AudioStreamReaderThread(const sp<IAudioStreamService>& service,
                                                 Callback callback, void* user)
    : android::Thread(true /*canCallJava*/),
      mAudioStreamService(service),
      mBuffer(new int16_t[kBufferBytes / sizeof(int16_t)]),
      mCallback(callback),
      mUserData(user),
      mBytesPerSample(0),
      mWake(android::Condition::PRIVATE) {}

AudioStreamReaderThread::~AudioStreamReaderThread() {
    closeReader();
}

status_t AudioStreamReaderThread::openReader() {
    android::Mutex::Autolock lock(mLock);
    if (mAudioStreamService == nullptr) {
        ALOGE("Cannot openReader from null audioStreamService");
        return android::INVALID_OPERATION;
    }
    if (mReader != nullptr) return android::NO_ERROR;
    sp<AudioStream> stream = mAudioStreamService->getAudioStream();
    if (stream == nullptr) {
        ALOGE("audioStream instance is null");
        return android::BAD_VALUE;
    }
    status_t status = stream->openReader(mReader);
    mBytesPerSample = static_cast<int32_t>(audio_bytes_per_sample(stream->getFormat().format));
    if (status != android::NO_ERROR) {
        ALOGE("Unable to open AudioStreamReader from audioStream (%d)", status);
    }
    return status;
}

void AudioStreamReaderThread::closeReader() {
    android::Mutex::Autolock lock(mLock);
    if (mReader != nullptr) {
        mReader->close();
        mReader.clear();
    }
}

status_t AudioStreamReaderThread::start() {
    if (isRunning()) {
        ALOGE("AudioStreamReaderThread has already started");
        return android::ALREADY_EXISTS;
    }
    status_t status = openReader();
    if (status != android::NO_ERROR) {
        ALOGE("Error open reader from audioStream.");
        return status;
    }
    status = run("AudioStreamReader", kThreadPriority, 0);
    if (status != android::NO_ERROR) ALOGE("Error starting thread");
    return status;
}

status_t AudioStreamReaderThread::stop() {
    if (!isRunning()) return android::NO_ERROR;
    requestExit();
    {
        android::Mutex::Autolock lock(mWakeLock);
        mWake.signal();
    }
    // Releases a read that waits for data; the thread then sees the exit and closes the reader.
    android::Mutex::Autolock lock(mLock);
    if (mReader != nullptr) mReader->unblock();
    return android::NO_ERROR;
}

bool AudioStreamReaderThread::threadLoop() {
    if (mReader == nullptr) {
        ALOGE("Error reader from audioStream is null ");
        return true;
    }
    uint32_t position = 0;
    status_t result = mReader->getPosition(&position);
    if (result != android::NO_ERROR) {
        ALOGE("Error: get position from AudioStream reader (%d).", result);
    } else {
        // Waits for data: the stream paces this loop.
        ssize_t n = mReader->read(mBuffer.get(), kReadBytes, -1);
        if (n >= 1) {
            const size_t samples = mBytesPerSample == 0 ? 0 : static_cast<size_t>(n) / mBytesPerSample;
            mCallback(mUserData, mBuffer.get(), samples, position);
            result = android::NO_ERROR;
        } else {
            result = android::INVALID_OPERATION;
        }
    }
    if (result == android::INVALID_OPERATION && !exitPending()) {
        // Nothing came (the stream went away or this reader fell behind): start over at the
        // stream's current end, a second from now.
        closeReader();
        {
            android::Mutex::Autolock lock(mWakeLock);
            if (!exitPending()) mWake.waitRelative(mWakeLock, kReopenPauseNs);
        }
        if (exitPending()) return false;
        return openReader() == android::NO_ERROR;
    }
    if (result != android::NO_ERROR || exitPending()) {
        closeReader();
        return false;
    }
    return true;
}

}  // namespace velmar
