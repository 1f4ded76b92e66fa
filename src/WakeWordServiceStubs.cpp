// Service operations whose subsystems have not landed yet. Each succeeds without effect, so that
// initialize(), destroy() and the model switch already run their full sequence:
//   setAudioEventDetectionMode, destroyAedCustomModel,
//   destroyAedDecoderAndStaticModel, setAedStaticModel,
//   setAedCustomModel, getAudioPresenceData       - audio event detection change
//   initializeNttDecoder, destroyNttModel, setNttDetectionMode,
//   switchNttModel, onCVEvent,
//   onSpeakerLocalizationEvent                    - natural turn taking change
//   switchPmaModel                                - PMA change
// Each change moves its operations out of this file.
#include "WakeWordService.h"

namespace velmar {

android::status_t WakeWordService::setAudioEventDetectionMode(bool) {
    return android::NO_ERROR;
}
void WakeWordService::destroyAedCustomModel() {}
void WakeWordService::destroyAedDecoderAndStaticModel(bool, bool) {}
android::status_t WakeWordService::initializeNttDecoder(const char*) {
    return android::NO_ERROR;
}
void WakeWordService::destroyNttModel() {}

android::status_t WakeWordService::setAedStaticModel(const char*) { return android::NO_ERROR; }
android::status_t WakeWordService::setAedCustomModel(const char*) { return android::NO_ERROR; }
android::status_t WakeWordService::getAudioPresenceData(const char*& json) {
    json = nullptr;
    return android::NO_ERROR;
}
android::status_t WakeWordService::setNttDetectionMode(bool, int) { return android::NO_ERROR; }
android::status_t WakeWordService::switchNttModel(const char*) { return android::NO_ERROR; }
android::status_t WakeWordService::onCVEvent(const char*, int64_t) { return android::NO_ERROR; }
android::status_t WakeWordService::onSpeakerLocalizationEvent(const char*, int64_t, int64_t) {
    return android::NO_ERROR;
}
android::status_t WakeWordService::switchPmaModel(const char*) { return android::NO_ERROR; }

}  // namespace velmar
