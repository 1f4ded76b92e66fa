// Polls playback, alarm and text-to-speech stream activity.
//
// This declaration carries only what the service calls; the polling thread arrives with the
// playback change. Until then the service never creates one.
#ifndef VELMAR_PLAYBACK_STATUS_NOTIFIER_H
#define VELMAR_PLAYBACK_STATUS_NOTIFIER_H

#include <utils/RefBase.h>

namespace velmar {

class PlaybackStatusNotifier : public virtual android::RefBase {
  public:
    void notifyTtsState(bool /*isPlaying*/) {}
};

}  // namespace velmar

#endif  // VELMAR_PLAYBACK_STATUS_NOTIFIER_H
