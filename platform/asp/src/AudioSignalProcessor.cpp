#include <asp/HostAudioSignalProcessor.h>
#include <binder/HostBinder.h>
#include <binder/IServiceManager.h>

#include <algorithm>
#include <memory>

namespace asp {

IMPLEMENT_META_INTERFACE(AudioEventListener, "asp.IAudioEventListener")
IMPLEMENT_META_INTERFACE(AudioSignalProcessor, "asp.IAudioSignalProcessor")

namespace host {

using android::sp;

android::status_t AudioSignalProcessorService::registerListener(
        const sp<IAudioEventListener>& listener) {
    if (listener == nullptr) return android::BAD_VALUE;
    std::lock_guard<std::mutex> guard(mLock);
    mListeners.push_back(listener);
    return android::NO_ERROR;
}

android::status_t AudioSignalProcessorService::unregisterListener(
        const sp<IAudioEventListener>& listener) {
    std::lock_guard<std::mutex> guard(mLock);
    auto found = std::find(mListeners.begin(), mListeners.end(), listener);
    if (found == mListeners.end()) return android::NAME_NOT_FOUND;
    mListeners.erase(found);
    return android::NO_ERROR;
}

void AudioSignalProcessorService::sendEvent(int event, const std::vector<uint8_t>& payload) {
    std::vector<sp<IAudioEventListener>> listeners;
    {
        std::lock_guard<std::mutex> guard(mLock);
        listeners = mListeners;
    }
    auto data = std::make_shared<std::vector<uint8_t>>(payload);
    for (const sp<IAudioEventListener>& listener : listeners) {
        android::host::postToBinderThread([listener, event, data] {
            listener->onEvent(event, static_cast<unsigned int>(data->size()),
                              data->empty() ? nullptr : data->data());
        });
    }
}

void AudioSignalProcessorService::sendEventWithoutData(int event, unsigned int size) {
    std::vector<sp<IAudioEventListener>> listeners;
    {
        std::lock_guard<std::mutex> guard(mLock);
        listeners = mListeners;
    }
    for (const sp<IAudioEventListener>& listener : listeners) {
        android::host::postToBinderThread(
                [listener, event, size] { listener->onEvent(event, size, nullptr); });
    }
}

size_t AudioSignalProcessorService::listenerCount() const {
    std::lock_guard<std::mutex> guard(mLock);
    return mListeners.size();
}

sp<AudioSignalProcessorService> publishService() {
    sp<AudioSignalProcessorService> service = new AudioSignalProcessorService();
    android::defaultServiceManager()->addService(android::String16(kServiceName), service);
    return service;
}

}  // namespace host
}  // namespace asp
