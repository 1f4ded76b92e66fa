// A host "audiosignalprocessor" service that tests and host programs drive: it keeps the
// registered listeners and sends them events on the binder thread. Thread-safe.
#ifndef HOST_ASP_HOST_AUDIO_SIGNAL_PROCESSOR_H
#define HOST_ASP_HOST_AUDIO_SIGNAL_PROCESSOR_H

#include <asp/IAudioSignalProcessor.h>

#include <cstdint>
#include <mutex>
#include <vector>

namespace asp {
namespace host {

constexpr const char* kServiceName = "audiosignalprocessor";

class AudioSignalProcessorService : public android::BnInterface<IAudioSignalProcessor> {
  public:
    android::status_t registerListener(const android::sp<IAudioEventListener>& listener) override;
    android::status_t unregisterListener(const android::sp<IAudioEventListener>& listener) override;

    // Delivers the event to every listener registered now, on the binder thread, with a copy of
    // payload as its data.
    void sendEvent(int event, const std::vector<uint8_t>& payload);
    // The same with a null data pointer and the given size (a malformed event).
    void sendEventWithoutData(int event, unsigned int size);
    size_t listenerCount() const;

  private:
    mutable std::mutex mLock;
    std::vector<android::sp<IAudioEventListener>> mListeners;  // guarded by mLock
};

// Registers a new service under kServiceName (replacing any registered one) and returns it.
android::sp<AudioSignalProcessorService> publishService();

}  // namespace host
}  // namespace asp

#endif  // HOST_ASP_HOST_AUDIO_SIGNAL_PROCESSOR_H
