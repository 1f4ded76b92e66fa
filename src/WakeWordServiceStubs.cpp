// Service operations whose subsystems have not landed yet. Each succeeds without effect, so that
// initialize() and destroy() already run their full sequence:
//   initializeAudioRecordAndInjector  - capture sources (input path change)
//   initializeNorvo, destroyNorvoModel - engine setup and wake-word model change
//   enablePlaybackDetector, playbackDestroy - playback detection change
//   destroyAedCustomModel, destroyAedDecoderAndStaticModel - audio event detection change
//   destroyNttModel - natural turn taking change
// Each change moves its operations out of this file.
#include "WakeWordService.h"

namespace velmar {

android::status_t WakeWordService::initializeAudioRecordAndInjector() { return android::NO_ERROR; }
android::status_t WakeWordService::initializeNorvo() { return android::NO_ERROR; }
void WakeWordService::destroyNorvoModel() {}
android::status_t WakeWordService::enablePlaybackDetector() { return android::NO_ERROR; }
void WakeWordService::playbackDestroy() {}
void WakeWordService::destroyAedCustomModel() {}
void WakeWordService::destroyAedDecoderAndStaticModel(bool, bool) {}
void WakeWordService::destroyNttModel() {}

}  // namespace velmar
