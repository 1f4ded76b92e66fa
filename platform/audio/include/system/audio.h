/*
 * Host subset of the platform's audio type definitions (<system/audio.h> on a device): the
 * values the wake-word service and its host layers use, with the platform's numeric values.
 */
#ifndef HOST_SYSTEM_AUDIO_H
#define HOST_SYSTEM_AUDIO_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef uint32_t audio_format_t;
enum {
    AUDIO_FORMAT_INVALID = 0xFFFFFFFFu,
    AUDIO_FORMAT_DEFAULT = 0,
    AUDIO_FORMAT_PCM_16_BIT = 0x1u,
    AUDIO_FORMAT_PCM_8_BIT = 0x2u,
    AUDIO_FORMAT_PCM_32_BIT = 0x3u,
    AUDIO_FORMAT_PCM_8_24_BIT = 0x4u,
    AUDIO_FORMAT_PCM_FLOAT = 0x5u,
    AUDIO_FORMAT_PCM_24_BIT_PACKED = 0x6u,
    AUDIO_FORMAT_MP3 = 0x01000000u,
    AUDIO_FORMAT_IEC61937 = 0x0D000000u,
};

typedef uint32_t audio_channel_mask_t;
enum {
    AUDIO_CHANNEL_NONE = 0x0u,
    AUDIO_CHANNEL_IN_LEFT = 0x4u,
    AUDIO_CHANNEL_IN_RIGHT = 0x8u,
    AUDIO_CHANNEL_IN_FRONT = 0x10u,
    AUDIO_CHANNEL_IN_MONO = AUDIO_CHANNEL_IN_FRONT,
    AUDIO_CHANNEL_IN_STEREO = AUDIO_CHANNEL_IN_LEFT | AUDIO_CHANNEL_IN_RIGHT,
    AUDIO_CHANNEL_INDEX_HDR = 0x80000000u,
};

typedef int32_t audio_source_t;
typedef int32_t audio_session_t;
enum { AUDIO_SESSION_NONE = 0 };

// Bytes per sample of a PCM format (the platform's rule); 0 for anything that is not linear PCM.
static inline uint32_t audio_bytes_per_sample(audio_format_t format) {
    switch (format) {
        case AUDIO_FORMAT_PCM_32_BIT:
        case AUDIO_FORMAT_PCM_8_24_BIT:
        case AUDIO_FORMAT_PCM_FLOAT:
            return 4;
        case AUDIO_FORMAT_PCM_24_BIT_PACKED:
            return 3;
        case AUDIO_FORMAT_PCM_16_BIT:
        case AUDIO_FORMAT_IEC61937:
            return 2;
        case AUDIO_FORMAT_PCM_8_BIT:
            return 1;
        default:
            return 0;
    }
}

#ifdef __cplusplus
}
#endif

#endif  // HOST_SYSTEM_AUDIO_H
