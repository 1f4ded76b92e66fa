// Host subset of a media track: started, read buffer by buffer, stopped.
#ifndef HOST_I_MEDIA_SOURCE_H
#define HOST_I_MEDIA_SOURCE_H

#include <media/MediaBufferBase.h>
#include <media/stagefright/MetaDataBase.h>
#include <utils/Errors.h>
#include <utils/RefBase.h>

namespace android {

class IMediaSource : public virtual RefBase {
  public:
    struct ReadOptions {};

    // Prepares reading. INVALID_OPERATION when already started.
    virtual status_t start(MetaData* params = nullptr) = 0;
    virtual status_t stop() = 0;
    // The track's format: kKeySampleRate, kKeyChannelCount (and kKeyBitsPerSample).
    virtual sp<MetaData> getFormat() = 0;
    // *buffer receives a buffer the caller must release(); ERROR_END_OF_STREAM after the last
    // one; another status on a read failure or when not started.
    virtual status_t read(MediaBufferBase** buffer, const ReadOptions* options = nullptr) = 0;
};

}  // namespace android

#endif  // HOST_I_MEDIA_SOURCE_H
