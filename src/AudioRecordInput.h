// Capture supervisor: keeps the service's recordings running on a thread of its own.
//
// This declaration carries only what the service's lifecycle calls; the supervising thread and its
// recordings arrive with the capture change. Until then the service never creates one.
#ifndef VELMAR_AUDIO_RECORD_INPUT_H
#define VELMAR_AUDIO_RECORD_INPUT_H

#include "IWakeWordInput.h"

namespace velmar {

class AudioRecordInput : public IWakeWordInput {
  public:
    android::status_t start() override { return android::NO_ERROR; }
    android::status_t stop() override { return android::NO_ERROR; }
};

}  // namespace velmar

#endif  // VELMAR_AUDIO_RECORD_INPUT_H
