// One capture stream that can be (re)started on demand and stopped.
#ifndef VELMAR_I_AUDIO_RECORD_ADAPTER_H
#define VELMAR_I_AUDIO_RECORD_ADAPTER_H

#include <media/AudioTimestamp.h>
#include <system/audio.h>
#include <utils/Errors.h>
#include <utils/RefBase.h>

namespace velmar {

class IAudioRecordAdapter : public android::RefBase {
  public:
    ~IAudioRecordAdapter() override = default;
    // Stops and releases the recording if there is one. Returns 0.
    virtual android::status_t stop() = 0;
    // Makes sure a live recording exists: re-creates it when the source is inactive or the held
    // recording was stopped by the platform. Returns 0 or the failure (already logged).
    virtual android::status_t ensureStarted() = 0;
    virtual audio_source_t getInputSource() const = 0;
    // The recording's timestamp; BAD_VALUE (-22) when there is no recording.
    virtual android::status_t getTimestamp(android::ExtendedTimestamp* timestamp) = 0;
};

}  // namespace velmar

#endif  // VELMAR_I_AUDIO_RECORD_ADAPTER_H
