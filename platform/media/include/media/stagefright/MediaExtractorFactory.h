// Host media extractor: WAV containers, read through libsndfile; every track delivers 16-bit PCM.
#ifndef HOST_MEDIA_EXTRACTOR_FACTORY_H
#define HOST_MEDIA_EXTRACTOR_FACTORY_H

#include <media/IMediaSource.h>
#include <media/stagefright/FileSource.h>
#include <utils/RefBase.h>
#include <utils/StrongPointer.h>

namespace android {

class IMediaExtractor : public virtual RefBase {
  public:
    virtual size_t countTracks() = 0;
    // Null when index is out of range.
    virtual sp<IMediaSource> getTrack(size_t index) = 0;
};

class MediaExtractorFactory {
  public:
    // An extractor for the source's content, or null when the source cannot be read or is not of
    // the given container type (only MEDIA_MIMETYPE_CONTAINER_WAV, or null for any, is known).
    static sp<IMediaExtractor> Create(const sp<DataSource>& source, const char* mime = nullptr);
};

}  // namespace android

#endif  // HOST_MEDIA_EXTRACTOR_FACTORY_H
