#define LOG_TAG "WakeWordInjector"
#define ATRACE_TAG ATRACE_TAG_ALWAYS

#include "WakeWordInjector.h"

#include <log/log.h>
#include <media/stagefright/FileSource.h>
#include <media/stagefright/MediaErrors.h>
#include <media/stagefright/MediaExtractorFactory.h>
#include <media/stagefright/foundation/MediaDefs.h>
#include <time.h>
#include <unistd.h>
#include <utils/Trace.h>

#include <algorithm>
#include <cstring>

namespace velmar {

using android::sp;
using android::status_t;

namespace {
constexpr int32_t kThreadPriority = -16;  // ANDROID_PRIORITY_AUDIO
}

WakeWordInjector::WakeWordInjector(unsigned int samplesPerPush, Callback callback, void* user)
    : android::Thread(true /*canCallJava*/),
      mMediaBuffer(nullptr),
      mBufferOffset(0),
      mChannelCount(0),
      mSampleRate(0),
      mBytesPerSample(0),
      mSamplesPerPush(samplesPerPush),
      mCallback(callback),
      mUserData(user),
      mToPlayback(false),
      mBlock(samplesPerPush),
      mOversleptUs(0) {
    resetInjectorVariables();
}

WakeWordInjector::~WakeWordInjector() {
    if (mMediaBuffer != nullptr) mMediaBuffer->release();
    mMediaSource.clear();
}

void WakeWordInjector::stopInjection() {
    requestExitAndWait();
    // An exit requested between two blocks, or before the first one, ends the thread without a
    // pass that cleans up: the thread is gone now, so the caller can.
    if (isInjecting()) finishInjection();
}

status_t WakeWordInjector::doInjectWaveFileInRealTime(const char* path, bool toPlayback) {
    if (isInjecting()) {
        ALOGE("Unable to inject wave file, the previous one is still injecting");
        return android::BAD_VALUE;
    }
    sp<android::DataSource> file = new android::FileSource(path);
    sp<android::IMediaExtractor> extractor =
            android::MediaExtractorFactory::Create(file, android::MEDIA_MIMETYPE_CONTAINER_WAV);
    if (extractor == nullptr) {
        ALOGE("Unable to get wave file data from filePath: %s", path);
        return android::BAD_VALUE;
    }
    sp<android::IMediaSource> track = extractor->getTrack(0);
    if (track == nullptr) {
        ALOGE("Unable to load first track from : %s", path);
        return android::BAD_VALUE;
    }
    return doPushInRealTime(track, toPlayback);
}

status_t WakeWordInjector::doPushInRealTime(const sp<android::IMediaSource>& source,
                                            bool toPlayback) {
    if (isInjecting()) return android::ALREADY_EXISTS;
    // The previous injection's thread clears the injecting flag a moment before it has fully
    // exited; until then run() would refuse to start a new one. Its work is done, so this wait is
    // at most that moment, and nothing below can start another thread.
    join();
    // Nothing of an earlier injection may leak into this one.
    resetInjectorVariables();
    auto fail = [this](status_t status) {
        resetInjectorVariables();
        return status;
    };
    if (source == nullptr) return fail(android::BAD_VALUE);
    if (mSamplesPerPush == 0) {
        // Blocks of no samples would never advance through the file.
        ALOGE("Error no samples per push configured");
        return fail(android::BAD_VALUE);
    }

    mMediaSource = source;
    status_t status = mMediaSource->start(nullptr);
    if (status != android::NO_ERROR) {
        ALOGE("Error starting media source (%d)", status);
        return fail(status);
    }
    sp<android::MetaData> format = mMediaSource->getFormat();
    if (format == nullptr) {
        ALOGE("Error reading format from media source.");
        return fail(android::BAD_VALUE);
    }
    if (!format->findInt32(android::kKeySampleRate, &mSampleRate)) {
        ALOGE("Error reading sample rate from media source");
        return fail(android::NAME_NOT_FOUND);
    }
    if (!format->findInt32(android::kKeyChannelCount, &mChannelCount)) {
        ALOGE("Error reading channel count from media source");
        return fail(android::NAME_NOT_FOUND);
    }
    if (mChannelCount != 1) {
        ALOGE("Injected wav files may only contain one channel.");
        return fail(android::INVALID_OPERATION);
    }
    // Blocks are taken as 16-bit samples (the extractor delivers that) and paced at the file's own
    // rate, whatever it is: the pipeline does not resample.
    mBytesPerSample = 2;
    if (mCallback == nullptr) {
        ALOGE("Error no callback function defined");
        return fail(android::INVALID_OPERATION);
    }
    mToPlayback = toPlayback;
    // Set before the thread exists, so that no live buffer is taken once the first injected block
    // can arrive.
    mInjecting.store(true, std::memory_order_seq_cst);
    status = run("WakeWordInjector", kThreadPriority, 0);
    if (status != android::NO_ERROR) {
        ALOGE("Error starting thread to push audio to wakeWorkService");
        mInjecting.store(false, std::memory_order_release);
        return fail(status);
    }
    return android::NO_ERROR;
}

size_t WakeWordInjector::bytesAvailable() {
    if (mMediaBuffer == nullptr) return 0;
    size_t length = mMediaBuffer->range_length();
    return length > mBufferOffset ? length - mBufferOffset : 0;
}

status_t WakeWordInjector::fillMediaBuffer() {
    if (mMediaSource == nullptr) {
        ALOGE("Error there is no media source");
        return android::BAD_VALUE;
    }
    if (mSampleRate == 0 || mChannelCount == 0 || mBytesPerSample == 0) {
        ALOGE("Error media format is not set: sample rate %d, channel count %d, bytes per sample "
              "%d",
              mSampleRate, mChannelCount, mBytesPerSample);
        return android::BAD_VALUE;
    }
    if (mMediaBuffer != nullptr) {
        mMediaBuffer->release();
        mMediaBuffer = nullptr;
    }
    status_t status = mMediaSource->read(&mMediaBuffer, nullptr);
    if (status != android::NO_ERROR) {
        ALOGE("Error reading from media source (%d)", status);
        return status;
    }
    if (mMediaBuffer == nullptr) {
        ALOGE("Error reading from media source. Buffer returned is null.");
        return android::INVALID_OPERATION;
    }
    mBufferOffset = 0;
    return android::NO_ERROR;
}

status_t WakeWordInjector::readMediaBuffer(void* dst, size_t bytes, size_t* copied) {
    if (bytes == 0) {
        *copied = 0;
        return android::NO_ERROR;
    }
    size_t total = 0;
    for (;;) {
        if (bytesAvailable() == 0) {
            status_t status = fillMediaBuffer();
            if (status != android::NO_ERROR) {
                if (status == android::ERROR_END_OF_STREAM) *copied = total;
                return status;
            }
        }
        size_t take = std::min(bytesAvailable(), bytes - total);
        const uint8_t* start = static_cast<const uint8_t*>(mMediaBuffer->data()) +
                               mMediaBuffer->range_offset() + mBufferOffset;
        memcpy(static_cast<uint8_t*>(dst) + total, start, take);
        total += take;
        mBufferOffset += take;
        if (total == bytes) {
            *copied = total;
            return android::NO_ERROR;
        }
    }
}

void WakeWordInjector::resetInjectorVariables() {
    if (mMediaSource != nullptr) {
        mMediaSource->stop();
        mMediaSource.clear();
    }
    if (mMediaBuffer != nullptr) {
        mMediaBuffer->release();
        mMediaBuffer = nullptr;
    }
    mBufferOffset = 0;
    mChannelCount = 0;
    mSampleRate = 0;
    mBytesPerSample = 0;
    mOversleptUs = 0;
}

namespace {
// Sleeps on the monotonic clock; returns how long the sleep really took.
int64_t sleepMicroseconds(int64_t us) {
    timespec before{};
    timespec after{};
    clock_gettime(CLOCK_MONOTONIC, &before);
    usleep(static_cast<useconds_t>(us));
    clock_gettime(CLOCK_MONOTONIC, &after);
    return (after.tv_sec - before.tv_sec) * 1000000LL + (after.tv_nsec - before.tv_nsec) / 1000;
}
}  // namespace

void WakeWordInjector::sleepForBlock(uint64_t blockUs) {
    // The timer wakes a little late on every sleep (tens of microseconds, more on virtual
    // machines); over thousands of blocks that adds up to percent of drift. What the last sleep
    // overran is taken off the next one. The callback's own time is never taken off, so the
    // injection still runs at most at real-time speed.
    int64_t want = static_cast<int64_t>(blockUs) - mOversleptUs;
    if (want <= 0) {
        mOversleptUs = -want;
        return;
    }
    int64_t sleptUs = mSleeper ? mSleeper(want) : sleepMicroseconds(want);
    mOversleptUs = sleptUs > want ? sleptUs - want : 0;
}

bool WakeWordInjector::threadLoop() {
    int16_t* block = mBlock.data();
    size_t copied = 0;
    uint64_t blockUs = 0;
    status_t status = readMediaBuffer(block, 2u * mSamplesPerPush, &copied);
    if (status != android::NO_ERROR && status != android::ERROR_END_OF_STREAM) {
        ALOGE("Error reading media buffer (%d)", status);
    } else if (copied > 0) {
        size_t samples = copied / static_cast<size_t>(mBytesPerSample * mChannelCount);
        mCallback(mUserData, block, samples, mToPlayback);
        blockUs = static_cast<uint64_t>(samples) * 1000000ULL / static_cast<uint64_t>(mSampleRate);
    }
    if (status == android::NO_ERROR && !exitPending()) {
        sleepForBlock(blockUs);
        // An exit requested during the sleep ends the injection here, with its cleanup.
        if (!exitPending()) return true;
    }
    // End of file (its partial block was delivered above, without a sleep), a read error, or an
    // exit request.
    finishInjection();
    return false;
}

void WakeWordInjector::finishInjection() {
    ATRACE_BEGIN("CSM_injection_utterance_end");
    resetInjectorVariables();
    ATRACE_END();
    mInjecting.store(false, std::memory_order_release);
}

}  // namespace velmar
