// Host media buffer: owns its bytes; handed out by a source with one reference that the reader
// gives back with release().
#ifndef HOST_MEDIA_BUFFER_BASE_H
#define HOST_MEDIA_BUFFER_BASE_H

#include <cstddef>
#include <cstdint>
#include <vector>

namespace android {

class MediaBufferBase {
  public:
    explicit MediaBufferBase(size_t size) : mData(size), mRangeOffset(0), mRangeLength(size) {}
    MediaBufferBase(const MediaBufferBase&) = delete;
    MediaBufferBase& operator=(const MediaBufferBase&) = delete;

    // Gives the reader's reference back; the buffer is freed.
    virtual void release() { delete this; }

    void* data() { return mData.data(); }
    size_t size() const { return mData.size(); }
    size_t range_offset() const { return mRangeOffset; }
    size_t range_length() const { return mRangeLength; }
    void set_range(size_t offset, size_t length) {
        mRangeOffset = offset;
        mRangeLength = length;
    }

  protected:
    virtual ~MediaBufferBase() = default;

  private:
    std::vector<uint8_t> mData;
    size_t mRangeOffset;
    size_t mRangeLength;
};

}  // namespace android

#endif  // HOST_MEDIA_BUFFER_BASE_H
