// The audio signal processor's event listener interface (host implementation of its client
// library). A listener registered with the processor receives each event on a binder thread.
#ifndef HOST_ASP_I_AUDIO_EVENT_LISTENER_H
#define HOST_ASP_I_AUDIO_EVENT_LISTENER_H

#include <binder/IInterface.h>

namespace asp {

class IAudioEventListener : public android::IInterface {
  public:
    DECLARE_META_INTERFACE(AudioEventListener)

    // One event: its number and a payload of size bytes (data may be null).
    virtual void onEvent(int event, unsigned int size, const void* data) = 0;
};

// The native side a listener derives from. On a device its transaction handler unmarshals
// incoming events; in process, the processor calls onEvent() directly on the binder thread.
class BnAudioEventListener : public android::BnInterface<IAudioEventListener> {};

}  // namespace asp

#endif  // HOST_ASP_I_AUDIO_EVENT_LISTENER_H
