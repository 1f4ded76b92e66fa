// Frame counters and their diagnostics.
#define LOG_TAG "WakeWordService"
#define ATRACE_TAG ATRACE_TAG_AUDIO

#include <log/log.h>
#include <sys/time.h>
#include <time.h>
#include <utils/Trace.h>

#include <memory>
#include <new>

#include "AudioRecordInput.h"
#include "WakeWordService.h"

namespace velmar {

using android::sp;
using android::status_t;

int64_t getTimeNs() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<int64_t>(now.tv_sec) * 1000000000LL + now.tv_nsec;
}

long system_currentTimeMillis() {
    timeval now{};
    gettimeofday(&now, nullptr);
    return now.tv_sec * 1000L + now.tv_usec / 1000L;
}

void WakeWordService::logFrameCountBoundaries() {
    // The guard words sit on both sides of each counter; a value other than 0xdeadbeef in a dump
    // shows that something wrote over the counter's neighbourhood.
    ALOGI("FRAME_COUNT_BOUNDARIES: before_boundary=0x%08x", mInputBeforeBoundary);
    ALOGI("FRAME_COUNT_BOUNDARIES: mInputFrameCount=%llu",
          static_cast<unsigned long long>(mInputFrameCount));
    ALOGI("FRAME_COUNT_BOUNDARIES: after_boundary=0x%08x", mInputAfterBoundary);
    ALOGI("FRAME_COUNT_BOUNDARIES: before_boundary=0x%08x", mPlaybackBeforeBoundary);
    ALOGI("FRAME_COUNT_BOUNDARIES: mPlaybackFrameCount=%llu",
          static_cast<unsigned long long>(mPlaybackFrameCount));
    ALOGI("FRAME_COUNT_BOUNDARIES: after_boundary=0x%08x", mPlaybackAfterBoundary);
}

status_t WakeWordService::getInputFrameCount(int64_t& frameCount) {
    frameCount = static_cast<int64_t>(mInputFrameCount);
    return android::NO_ERROR;
}

status_t WakeWordService::getPlaybackFrameCount(int64_t& frameCount) {
    frameCount = static_cast<int64_t>(mPlaybackFrameCount);
    return android::NO_ERROR;
}

status_t WakeWordService::getInputFrameTime(int64_t& timeMs) {
    ATRACE_NAME(__PRETTY_FUNCTION__);
    sp<AudioRecordInput> input = mAudioInput;
    if (input == nullptr) {
        ALOGE("AudioInput instance is null!");
    } else {
        // A copy of the list: the adapters are called without holding the input's internals.
        android::Vector<sp<IAudioRecordAdapter>> adapters = input->mAudioRecords;
        for (size_t i = 0; i < adapters.size(); ++i) {
            const sp<IAudioRecordAdapter>& adapter = adapters[i];
            if (adapter == nullptr || adapter->getInputSource() != AUDIO_SOURCE_HOTWORD) {
                ALOGE("AudioRecordAdapter instance is null or does not correspond to the "
                      "AudioInputSource!");
                continue;
            }
            android::ExtendedTimestamp ts;
            ts.clear();
            if (adapter->getTimestamp(&ts) != android::NO_ERROR) continue;
            for (int location : {android::ExtendedTimestamp::LOCATION_KERNEL,
                                 android::ExtendedTimestamp::LOCATION_SERVER}) {
                if (ts.mTimeNs[location] > 0) {
                    timeMs = (ts.mTimeNs[location] +
                              ts.mTimebaseOffset[android::ExtendedTimestamp::TIMEBASE_MONOTONIC]) /
                             1000000;
                    return android::NO_ERROR;
                }
            }
        }
    }
    timeMs = getTimeNs() / 1000000;
    return android::NO_ERROR;
}

status_t WakeWordService::backfillAudioIfNeeded() {
    ATRACE_NAME(__PRETTY_FUNCTION__);
    std::unique_lock<std::mutex> lock(mBackfillLock, std::try_to_lock);
    if (!lock.owns_lock()) return android::NO_ERROR;  // one backfill at a time
    if (!mBackfillPending) {
        ALOGD("backfillAudioIfNeeded: backfill is not required, skipping");
        return android::NO_ERROR;
    }
    ALOGI("backfillAudioIfNeeded: audio backfill is required, proceeding.. Channel Count: %d",
          gChannelCount);
    mBackfillPending = false;

    const uint32_t size = static_cast<uint32_t>(mBackfillDurationMs) * mBytesPerSample *
                          gChannelCount * 16000u / 1000u;
    std::unique_ptr<uint8_t[]> buffer(new (std::nothrow) uint8_t[size == 0 ? 1 : size]());
    if (buffer == nullptr) return android::NO_MEMORY;

    sp<AudioStreamReader> reader;
    mAudioStream->openReader(reader);
    if (reader == nullptr) {
        ALOGE("backfillAudioIfNeeded: android::sp<AudioStreamReader> mReader is null.");
        return android::NO_INIT;
    }
    uint32_t position = 0;
    status_t status = reader->getPosition(&position);
    if (status != android::NO_ERROR) {
        ALOGE("Error: get position from AudioStream reader (%d).", status);
        return status;
    }
    ALOGD("backfillAudioIfNeeded: got starting bytes position %u", position);
    status = reader->setPosition(position - size);
    if (status != android::NO_ERROR) {
        ALOGE("Error: set position from AudioStream reader (%d).", status);
        return status;
    }
    ssize_t read = reader->read(buffer.get(), size);
    ALOGD("backfillAudioIfNeeded: preparing to invoke audio callback fn with read size: %zd", read);
    if (read >= 1) {
        ALOGD("backfillAudioIfNeeded: invoking audio callback fn with (1) read count: %zd", read);
        const uint32_t frameBytes = mBytesPerSample * gChannelCount;
        const size_t frames = frameBytes == 0 ? 0 : static_cast<size_t>(read) / frameBytes;
        ALOGD("backfillAudioIfNeeded: invoking audio callback fn with (2) frame count: %zu", frames);
        processAudioDataFromInput(buffer.get(), frames);
    } else {
        ALOGE("backfillAudioIfNeeded: readSize was 0. Not invoking audio callback fn.");
    }
    reader->close();
    return android::NO_ERROR;
}

}  // namespace velmar
