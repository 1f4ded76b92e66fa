// Host subset of the platform's audio system queries, answered by the host audio system
// (media/HostAudio.h) that tests and host programs drive.
#ifndef HOST_MEDIA_AUDIO_SYSTEM_H
#define HOST_MEDIA_AUDIO_SYSTEM_H

#include <system/audio.h>
#include <utils/Errors.h>

namespace android {

class AudioSystem {
  public:
    enum sync_event_t {
        SYNC_EVENT_SAME = -1,
        SYNC_EVENT_NONE = 0,
        SYNC_EVENT_PRESENTATION_COMPLETE,
        SYNC_EVENT_CNT,
    };

    // *state: whether a recording on this source is capturing now. BAD_VALUE for a null state.
    static status_t isSourceActive(audio_source_t source, bool* state);
    // *state: whether the output stream played within the last inPastMs milliseconds (the host
    // audio system marks streams active or inactive). BAD_VALUE for a null state or a bad stream.
    static status_t isStreamActive(audio_stream_type_t stream, bool* state, uint32_t inPastMs);
};

}  // namespace android

#endif  // HOST_MEDIA_AUDIO_SYSTEM_H
