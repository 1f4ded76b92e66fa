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

enum {
    AUDIO_CHANNEL_INVALID = 0xC0000000u,
};

typedef int32_t audio_source_t;
enum {
    AUDIO_SOURCE_DEFAULT = 0,
    AUDIO_SOURCE_MIC = 1,
    AUDIO_SOURCE_HOTWORD = 1999,
};

typedef int32_t audio_session_t;
enum { AUDIO_SESSION_NONE = 0, AUDIO_SESSION_ALLOCATE = 0 };

typedef int32_t audio_stream_type_t;
enum {
    AUDIO_STREAM_VOICE_CALL = 0,
    AUDIO_STREAM_SYSTEM = 1,
    AUDIO_STREAM_RING = 2,
    AUDIO_STREAM_MUSIC = 3,
    AUDIO_STREAM_ALARM = 4,
    AUDIO_STREAM_NOTIFICATION = 5,
    AUDIO_STREAM_TTS = 9,
    AUDIO_STREAM_CNT = 13,
};

typedef uint32_t audio_input_flags_t;
enum { AUDIO_INPUT_FLAG_NONE = 0 };

typedef int32_t audio_port_handle_t;
enum { AUDIO_PORT_HANDLE_NONE = 0 };

typedef struct audio_attributes {
    int32_t content_type;
    int32_t usage;
    audio_source_t source;
    uint32_t flags;
    char tags[256];
} audio_attributes_t;

// Input channel mask for a channel count: mono and stereo positional masks, index masks for 3 to
// 8 channels, AUDIO_CHANNEL_INVALID beyond.
static inline audio_channel_mask_t audio_channel_in_mask_from_count(uint32_t channelCount) {
    switch (channelCount) {
        case 0:
            return AUDIO_CHANNEL_NONE;
        case 1:
            return AUDIO_CHANNEL_IN_MONO;
        case 2:
            return AUDIO_CHANNEL_IN_STEREO;
        default:
            if (channelCount > 8) return AUDIO_CHANNEL_INVALID;
            return AUDIO_CHANNEL_INDEX_HDR | ((1u << channelCount) - 1u);
    }
}

// Channel count of an input mask (positional or index); 0 for an invalid mask.
static inline uint32_t audio_channel_count_from_in_mask(audio_channel_mask_t mask) {
    uint32_t bits = (mask & AUDIO_CHANNEL_INDEX_HDR) != 0 ? (mask & 0xFFu) : mask;
    if (mask == AUDIO_CHANNEL_INVALID) return 0;
    return (uint32_t)__builtin_popcount(bits);
}

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
