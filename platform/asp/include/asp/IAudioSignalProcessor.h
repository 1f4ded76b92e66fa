// The audio signal processor service interface ("audiosignalprocessor"), host implementation of its
// client library.
#ifndef HOST_ASP_I_AUDIO_SIGNAL_PROCESSOR_H
#define HOST_ASP_I_AUDIO_SIGNAL_PROCESSOR_H

#include <asp/IAudioEventListener.h>

namespace asp {

class IAudioSignalProcessor : public android::IInterface {
  public:
    DECLARE_META_INTERFACE(AudioSignalProcessor)

    // Adds a listener for every event from now on (a listener registered twice is told twice).
    virtual android::status_t registerListener(const android::sp<IAudioEventListener>& listener) = 0;
    // Removes one registration of listener; NAME_NOT_FOUND when it has none.
    virtual android::status_t unregisterListener(
            const android::sp<IAudioEventListener>& listener) = 0;
};

}  // namespace asp

#endif  // HOST_ASP_I_AUDIO_SIGNAL_PROCESSOR_H
