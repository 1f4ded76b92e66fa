// Host subset of the media framework's MIME types.
#ifndef HOST_MEDIA_DEFS_H
#define HOST_MEDIA_DEFS_H

namespace android {

extern const char* MEDIA_MIMETYPE_CONTAINER_WAV;
extern const char* MEDIA_MIMETYPE_AUDIO_RAW;

}  // namespace android

#endif  // HOST_MEDIA_DEFS_H
