// The input audio path: capture set-up, and for every buffer from the microphone or the injector,
// mirroring into the audio streams, pushing to the enabled decoders with running sample indices,
// and counting frames.
//
// Real-time rules for everything reached from audioRecordCallbackFn: no heap allocation, no lock,
// no blocking; logging only on failure.
#define LOG_TAG "WakeWordService"
#define ATRACE_TAG ATRACE_TAG_AUDIO

#include <cutils/properties.h>
#include <log/log.h>
#include <media/AudioRecord.h>
#include <utils/Trace.h>

#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <memory>
#include <new>

#include "AudioRecordAdapter.h"
#include "NorvoIds.h"
#include "WakeWordService.h"

namespace velmar {

using android::sp;
using android::status_t;

// Read once when the library is loaded: a device in test mode feeds silence from the microphone.
bool gTestMode = property_get_bool("persist.wakeword.testmode", false);

namespace {

constexpr audio_source_t kPlaybackSource = 2999;  // the device's own playback, as a capture source
constexpr uint32_t kSampleRate = 16000;
constexpr int kCheckIntervalNs = 1000000000;
constexpr unsigned int kInjectorSamplesPerPush = 128;
constexpr size_t kMetadataSize = 1024;

}  // namespace

status_t WakeWordService::initializeAudioRecordAndInjector() {
    ATRACE_NAME(__PRETTY_FUNCTION__);
    const audio_channel_mask_t mask =
            mThreeChannelInput ? 0x80000007u : audio_channel_in_mask_from_count(gChannelCount);
    if (mAudioRecordFrameCount < -1) {
        ALOGE("Invalid AudioRecord frame count %d", mAudioRecordFrameCount);
        return android::BAD_VALUE;
    }
    size_t frameCount = static_cast<size_t>(mAudioRecordFrameCount);
    if (mAudioRecordFrameCount == -1) {
        status_t status = android::AudioRecord::getMinFrameCount(&frameCount, kSampleRate,
                                                                 AUDIO_FORMAT_PCM_16_BIT, mask);
        if (status != android::NO_ERROR) return status;
    }

    sp<IAudioRecordAdapter> microphone =
            new AudioRecordAdapter(mPackageName, AUDIO_SOURCE_HOTWORD, kSampleRate,
                                   AUDIO_FORMAT_PCM_16_BIT, mask, frameCount, audioRecordCallbackFn,
                                   this);
    mAudioInput = new AudioRecordInput(microphone, kCheckIntervalNs);
    if (mPlaybackViaAudioRecord) {
        ALOGI("Initialize playback for wakeword service using AudioRecord");
        mAudioInput->addAudioRecord(new AudioRecordAdapter(
                mPackageName, kPlaybackSource, kSampleRate, AUDIO_FORMAT_PCM_16_BIT,
                AUDIO_CHANNEL_IN_MONO, frameCount, playbackAudioRecordCallbackFn, this));
    } else {
        ALOGI("Will NOT initialize AudioRecord playback for wakeword service");
    }
    mInjector = new WakeWordInjector(kInjectorSamplesPerPush, injectorCallbackFn, this);

    // The microphone's one-mic split needs two channel buffers as large as the largest accepted
    // buffer; they are made once here so that the microphone path never allocates.
    if (gChannelCount == 2 && mOneMicEnabled) {
        const size_t bytes = static_cast<size_t>(kMaxFramesPerBuffer) * mBytesPerSample;
        mMicrophoneSplitStorage.reset(new (std::nothrow) uint8_t[2 * bytes]);
        if (mMicrophoneSplitStorage == nullptr) return android::NO_MEMORY;
        mMicrophoneSplit = ChannelSplit{mMicrophoneSplitStorage.get(),
                                        mMicrophoneSplitStorage.get() + bytes, bytes};
    }
    return android::NO_ERROR;
}

void WakeWordService::audioRecordCallbackFn(int event, void* user, void* info) {
    audioRecordCallbackHandler(event, user, info, processAudioFromInput, "input");
}

void WakeWordService::audioRecordCallbackHandler(int event, void* user, void* info,
                                                 ProcessAudio process, const char* sourceName) {
    WakeWordService* service = static_cast<WakeWordService*>(user);
    switch (event) {
        case android::AudioRecord::EVENT_OVERRUN:
            ALOGW("[%s] AudioRecord reported overrun!", sourceName);
            break;
        case android::AudioRecord::EVENT_MORE_DATA: {
            auto* buffer = static_cast<android::AudioRecord::Buffer*>(info);
            const size_t frameCount = buffer->frameCount;
            if (frameCount >= 1 && frameCount <= kMaxFramesPerBuffer) {
                status_t status = process(service, buffer->raw, frameCount);
                if (status != android::NO_ERROR) {
                    ALOGE("Error processing audio from %s: %d", sourceName, status);
                }
            } else {
                ALOGE("EVENT_MORE_DATA: audioBuffer->frameCount from %s is out of range. "
                      "frameCount=%zu, minAllowed=%zu, maxAllowed=%zu, mInputFrameCount=%llu, "
                      "mPlaybackFrameCount=%llu",
                      sourceName, frameCount, static_cast<size_t>(1),
                      static_cast<size_t>(kMaxFramesPerBuffer),
                      static_cast<unsigned long long>(service->mInputFrameCount.load()),
                      static_cast<unsigned long long>(service->mPlaybackFrameCount.load()));
                service->logFrameCountBoundaries();
            }
            break;
        }
        default:
            break;
    }
}

status_t WakeWordService::processAudioFromInput(WakeWordService* service, void* buffer,
                                                size_t frameCount) {
    ATRACE_NAME(__PRETTY_FUNCTION__);
    // While a file is injected, the file is the input: live audio would interleave with it.
    LiveBufferInFlight inFlight(service);
    if (service->mInjector == nullptr || service->mInjector->isInjecting()) {
        return android::NO_ERROR;
    }
    if (gTestMode) memset(buffer, 0, service->mBytesPerSample * frameCount);
    // Only this path may use the preallocated split buffers: injection and backfill run on other
    // threads, possibly at the same time.
    return service->processInputBuffer(buffer, frameCount, &service->mMicrophoneSplit);
}

WakeWordService::LiveBufferInFlight::LiveBufferInFlight(WakeWordService* service)
    : mService(service) {
    // Sequentially consistent with the injecting flag: either this buffer sees the injection, or
    // the injector sees this buffer in flight.
    mService->mLiveBuffersInFlight.fetch_add(1, std::memory_order_seq_cst);
}

WakeWordService::LiveBufferInFlight::~LiveBufferInFlight() {
    mService->mLiveBuffersInFlight.fetch_sub(1, std::memory_order_release);
}

void WakeWordService::waitForLiveBuffersInFlight_injector() const {
    // A buffer in flight takes well under a millisecond; one that began after the injection
    // started leaves at its injecting check.
    while (mLiveBuffersInFlight.load(std::memory_order_seq_cst) != 0) usleep(100);
}

status_t WakeWordService::processAudioDataFromInput(void* buffer, size_t frameCount) {
    return processInputBuffer(buffer, frameCount, nullptr);
}

status_t WakeWordService::processInterleavedAudioDataFromInput(void* buffer, size_t frameCount) {
    return processInterleavedInputBuffer(buffer, frameCount, nullptr);
}

status_t WakeWordService::processInputBuffer(void* buffer, size_t frameCount,
                                             const ChannelSplit* split) {
    ATRACE_NAME(__PRETTY_FUNCTION__);
    if (!mInputModelReady.load(std::memory_order_relaxed)) {
        ALOGE("Error: mInputModelReady not ready");
        return android::NO_ERROR;
    }
    if (gChannelCount == 2 && mOneMicEnabled) {
        return processInterleavedInputBuffer(buffer, frameCount, split);
    }
    sp<AudioStreamWriter> writer = mAudioStreamWriter;
    if (writer == nullptr) {
        ALOGE("Error: cannot find AudioStreamWriter");
        return android::BAD_VALUE;
    }
    writer->write(buffer, gChannelCount * frameCount * mBytesPerSample);
    status_t result = android::NO_ERROR;
    if (passAudioForDetection(buffer, gChannelCount * frameCount) != android::NO_ERROR) {
        ALOGE("Unable to pass audio data into norvo");
        result = android::BAD_VALUE;
    }
    mInputFrameCount.fetch_add(frameCount, std::memory_order_relaxed);
    return result;
}

status_t WakeWordService::processInterleavedInputBuffer(void* buffer, size_t frameCount,
                                                        const ChannelSplit* split) {
    ATRACE_NAME(__PRETTY_FUNCTION__);
    if (!mOneMicEnabled) {
        ALOGE("Error: OneMic is disabled.");
        return android::BAD_VALUE;
    }
    if (!mInputModelReady.load(std::memory_order_relaxed)) {
        ALOGE("Error: mInputModelReady not ready");
        return android::NO_ERROR;
    }
    sp<AudioStreamWriter> writer = mAudioStreamWriter;
    if (writer == nullptr) {
        ALOGE("Error: cannot find AudioStreamWriter");
        return android::BAD_VALUE;
    }
    const size_t channelBytes = mBytesPerSample * frameCount;
    // Callers off the microphone path (injection, backfill) bring no split buffers: they get
    // their own for this buffer.
    std::unique_ptr<uint8_t[]> own;
    ChannelSplit ownSplit{};
    if (split == nullptr) {
        own.reset(new (std::nothrow) uint8_t[2 * channelBytes]);
        if (own == nullptr) {
            ALOGE("Error: no memory to split %zu frames", frameCount);
            return android::NO_MEMORY;
        }
        ownSplit = ChannelSplit{own.get(), own.get() + channelBytes, channelBytes};
        split = &ownSplit;
    }
    if (split->channel0 == nullptr || channelBytes > split->bytes) {
        ALOGE("Error: OneMic buffers are not set up for %zu frames", frameCount);
        return android::NO_MEMORY;
    }
    uint8_t* channel0 = split->channel0;
    uint8_t* channel1 = split->channel1;
    // One 16-bit stereo frame (four bytes) per step: left to channel 0, right to channel 1.
    const uint8_t* in = static_cast<const uint8_t*>(buffer);
    const size_t total = (channelBytes * gChannelCount) & ~static_cast<size_t>(3);
    for (size_t i = 0, out = 0; i < total; i += 4, out += 2) {
        memcpy(channel0 + out, in + i, 2);
        memcpy(channel1 + out, in + i + 2, 2);
    }
    sp<AudioStreamWriter> oneMicWriter = mOneMicAudioStreamWriter;
    if (oneMicWriter == nullptr) {
        ALOGE("OneMicAudioStreamWriter is NULL.");
    } else {
        oneMicWriter->write(channel1, channelBytes);
    }
    writer->write(channel0, channelBytes);
    status_t result = android::NO_ERROR;
    if (passAudioForDetection(channel0, frameCount) != android::NO_ERROR) {
        ALOGE("Unable to pass audio data into norvo");
        result = android::BAD_VALUE;
    }
    mInputFrameCount.fetch_add(frameCount, std::memory_order_relaxed);
    return result;
}

status_t WakeWordService::passAudioForDetection(void* buffer, size_t sampleCount) {
    ATRACE_NAME(__PRETTY_FUNCTION__);
    const uint64_t index = mInputFrameCount.load(std::memory_order_relaxed);
    status_t status = android::NO_ERROR;
    if (mWWDetectionEnabled.load(std::memory_order_relaxed)) {
        status = detectAudioDataFromAudioInput(buffer, sampleCount, index);
    }
    if (mAedEnabled.load(std::memory_order_relaxed)) {
        status_t aed = detectAudioPresenceData(buffer, sampleCount, index);
        if (aed != android::NO_ERROR) {
            ALOGE("Failed to detect AED data.");
            return aed;
        }
        status = android::NO_ERROR;
    }
    if (mNttDetectionEnabled.load(std::memory_order_relaxed)) {
        status = pushAudioToNttDecoder(buffer, sampleCount, index);
    }
    // The last enabled step decides: an input-decoder failure is reported only when AED and NTT
    // are both off.
    return status;
}

status_t WakeWordService::detectAudioData(void* buffer, size_t sampleCount,
                                          uint64_t firstSampleIndex, const char* decoderId) {
    ATRACE_NAME(__PRETTY_FUNCTION__);
    char metadata[kMetadataSize];
    snprintf(metadata, sizeof(metadata), "{ \"sample_count\":%u, \"first_sample_index\":%llu }",
             static_cast<unsigned int>(sampleCount),
             static_cast<unsigned long long>(firstSampleIndex));
    NorvoAudioEvent event{"samples", metadata, buffer, 0};
    status_t status = NorvoDecoder_PushAudioEvent(decoderId, &event);
    if (status != NORVO_SUCCESS) {
        ALOGE("processWaveData: Error pushing waveData.");
        ALOGI("FRAME_COUNT_BOUNDARIES: frameStartPosition=%llu",
              static_cast<unsigned long long>(firstSampleIndex));
        logFrameCountBoundaries();
        // A fatal engine error leaves no decoder to recover: end the process so the device
        // restarts the service cleanly.
        LOG_ALWAYS_FATAL_IF(status == NORVO_ERROR_FATAL, "Fatal error from Norvo");
    }
    return status;
}

status_t WakeWordService::detectAudioDataFromAudioInput(void* buffer, size_t sampleCount,
                                                        uint64_t firstSampleIndex) {
    return detectAudioData(buffer, sampleCount, firstSampleIndex, kInputDecoderId);
}

bool WakeWordService::isInputDecoderId(const char* decoderId) {
    return decoderId != nullptr && strcmp(decoderId, kInputDecoderId) == 0;
}

void WakeWordService::injectorCallbackFn(void* user, int16_t* samples, size_t frameCount,
                                         bool toPlayback) {
    WakeWordService* service = static_cast<WakeWordService*>(user);
    service->waitForLiveBuffersInFlight_injector();
    if (toPlayback) {
        service->processAudioDataFromPlayback(samples, frameCount, 0);
        return;
    }
    if (gChannelCount == 1) {
        service->processAudioDataFromInput(samples, frameCount);
        return;
    }
    // Injected files are mono: every channel of the input gets the same sample. This path is not
    // real-time (it runs on the injector's own thread), so a buffer per block is acceptable.
    std::unique_ptr<int16_t[]> frames(new (std::nothrow) int16_t[gChannelCount * frameCount]());
    if (frames == nullptr) {
        ALOGE("injectorCallbackFn: no memory for %zu frames; block dropped", frameCount);
        return;
    }
    for (size_t f = 0; f < frameCount; ++f) {
        for (uint32_t c = 0; c < gChannelCount; ++c) frames[f * gChannelCount + c] = samples[f];
    }
    service->processAudioDataFromInput(frames.get(), frameCount);
}

status_t WakeWordService::injectWaveFile(const char* path, bool toPlayback) {
    ATRACE_NAME(__PRETTY_FUNCTION__);
    if (mInjector == nullptr) {
        ALOGE("injectWaveFile: Injector in WakeWordService not initialized.");
        return android::NO_INIT;
    }
    return mInjector->doInjectWaveFileInRealTime(path, toPlayback);
}

status_t WakeWordService::resetAudioInput() {
    ATRACE_NAME(__PRETTY_FUNCTION__);
    if (!mDetectorEnabled) {
        ALOGW("resetAudioInput: audio input is not enabled. Skipping reset");
        return android::NO_ERROR;
    }
    status_t status = setDetectorEnabled(false);
    if (status == android::NO_ERROR) status = setDetectorEnabled(true);
    return status;
}

}  // namespace velmar
