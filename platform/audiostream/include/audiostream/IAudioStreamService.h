// The binder interface through which a service publishes an AudioStream (host implementation of
// the audio stream library's service interface), and a host service that publishes one.
#ifndef VELMAR_AUDIOSTREAM_I_AUDIO_STREAM_SERVICE_H
#define VELMAR_AUDIOSTREAM_I_AUDIO_STREAM_SERVICE_H

#include <audiostream/AudioStream.h>
#include <binder/IInterface.h>

#include <mutex>

namespace velmar {

class IAudioStreamService : public android::IInterface {
  public:
    DECLARE_META_INTERFACE(AudioStreamService)

    // The stream the service publishes, or null when it has none.
    virtual android::sp<AudioStream> getAudioStream() = 0;
};

namespace host {

// Publishes whatever stream it is given. Thread-safe.
class AudioStreamService : public android::BnInterface<IAudioStreamService> {
  public:
    android::sp<AudioStream> getAudioStream() override;
    void setAudioStream(const android::sp<AudioStream>& stream);

  private:
    std::mutex mLock;
    android::sp<AudioStream> mStream;  // guarded by mLock
};

}  // namespace host
}  // namespace velmar

#endif  // VELMAR_AUDIOSTREAM_I_AUDIO_STREAM_SERVICE_H
