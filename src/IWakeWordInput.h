// An audio input that can be started and stopped (the microphone capture supervisor implements it).
#ifndef VELMAR_I_WAKE_WORD_INPUT_H
#define VELMAR_I_WAKE_WORD_INPUT_H

#include <utils/Errors.h>
#include <utils/RefBase.h>

namespace velmar {

class IWakeWordInput : public virtual android::RefBase {
  public:
    ~IWakeWordInput() override = default;
    // Starts delivering audio. Returns 0 or the reason it could not start.
    virtual android::status_t start() = 0;
    // Stops delivering audio; returns once no more audio will be delivered.
    virtual android::status_t stop() = 0;
};

}  // namespace velmar

#endif  // VELMAR_I_WAKE_WORD_INPUT_H
