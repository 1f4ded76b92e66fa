// Service operations whose subsystems have not landed yet. Each succeeds without effect, so that
// initialize(), destroy() and the model switch already run their full sequence:
//   enablePlaybackDetector, playbackDestroy,
//   playbackAudioRecordCallbackFn,
//   processAudioDataFromPlayback                  - playback detection change (until then playback
//                                                   audio is dropped)
//   setAudioEventDetectionMode, destroyAedCustomModel,
//   destroyAedDecoderAndStaticModel               - audio event detection change
//   initializeNttDecoder, destroyNttModel         - natural turn taking change
// Each change moves its operations out of this file.
#include "WakeWordService.h"

namespace velmar {

android::status_t WakeWordService::enablePlaybackDetector() {
    return android::NO_ERROR;
}
void WakeWordService::playbackDestroy() {}
void WakeWordService::playbackAudioRecordCallbackFn(int, void*, void*) {}
android::status_t WakeWordService::processAudioDataFromPlayback(void*, size_t, uint32_t) {
    return android::NO_ERROR;
}
android::status_t WakeWordService::setAudioEventDetectionMode(bool) {
    return android::NO_ERROR;
}
void WakeWordService::destroyAedCustomModel() {}
void WakeWordService::destroyAedDecoderAndStaticModel(bool, bool) {}
android::status_t WakeWordService::initializeNttDecoder(const char*) {
    return android::NO_ERROR;
}
void WakeWordService::destroyNttModel() {}

}  // namespace velmar
