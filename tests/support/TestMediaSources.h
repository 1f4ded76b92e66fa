// Media sources for injection tests: layered, each adding one behaviour to the inert base.
#pragma once

#include <media/IMediaSource.h>
#include <media/stagefright/MediaErrors.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstring>
#include <mutex>
#include <vector>

namespace wws_test {

// Refuses everything; counts stop() calls.
class InertSource : public android::IMediaSource {
  public:
    int stops = 0;
    android::status_t start(android::MetaData*) override { return android::NO_INIT; }
    android::status_t stop() override {
        ++stops;
        return android::NO_ERROR;
    }
    android::sp<android::MetaData> getFormat() override { return nullptr; }
    android::status_t read(android::MediaBufferBase**, const ReadOptions*) override {
        return android::NO_INIT;
    }
};

// Starts and reports a format with the given keys (a key is left out when its value is 0).
class FormatSource : public InertSource {
  public:
    FormatSource(int32_t rate, int32_t channels) : mRate(rate), mChannels(channels) {}
    android::status_t start(android::MetaData*) override { return android::NO_ERROR; }
    android::sp<android::MetaData> getFormat() override {
        android::sp<android::MetaData> format = new android::MetaData();
        if (mRate > 0) format->setInt32(android::kKeySampleRate, mRate);
        if (mChannels > 0) format->setInt32(android::kKeyChannelCount, mChannels);
        return format;
    }

  private:
    int32_t mRate;
    int32_t mChannels;
};

// Mono 16 kHz samples handed out in buffers of chunkBytes, then endStatus.
class ChunkedSource : public FormatSource {
  public:
    ChunkedSource(std::vector<int16_t> samples, size_t chunkBytes,
                  android::status_t endStatus = android::ERROR_END_OF_STREAM)
        : FormatSource(16000, 1),
          mSamples(std::move(samples)),
          mChunkBytes(chunkBytes),
          mEndStatus(endStatus) {}
    android::status_t read(android::MediaBufferBase** buffer, const ReadOptions*) override {
        size_t total = mSamples.size() * sizeof(int16_t);
        if (mOffset >= total) return mEndStatus;
        size_t take = std::min(mChunkBytes, total - mOffset);
        // Data placed after a non-zero range offset, as real extractors sometimes do.
        auto* out = new android::MediaBufferBase(take + 6);
        memcpy(static_cast<uint8_t*>(out->data()) + 6,
               reinterpret_cast<const uint8_t*>(mSamples.data()) + mOffset, take);
        out->set_range(6, take);
        mOffset += take;
        *buffer = out;
        return android::NO_ERROR;
    }

  private:
    std::vector<int16_t> mSamples;
    size_t mChunkBytes;
    android::status_t mEndStatus;
    size_t mOffset = 0;
};

// Delivers nothing until opened: its first read waits (at most 20 s) for open(), then the samples
// follow as from a ChunkedSource. An injection from it runs for as long as the test wants.
class GatedSource : public ChunkedSource {
  public:
    explicit GatedSource(std::vector<int16_t> samples)
        : ChunkedSource(std::move(samples), 256) {}
    void open() {
        std::lock_guard<std::mutex> guard(mLock);
        mOpen = true;
        mOpened.notify_all();
    }
    android::status_t read(android::MediaBufferBase** buffer, const ReadOptions* options) override {
        {
            std::unique_lock<std::mutex> lock(mLock);
            mOpened.wait_for(lock, std::chrono::seconds(20), [this] { return mOpen; });
        }
        return ChunkedSource::read(buffer, options);
    }

  private:
    std::mutex mLock;
    std::condition_variable mOpened;
    bool mOpen = false;  // guarded by mLock
};

}  // namespace wws_test
