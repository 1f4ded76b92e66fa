// Watches the audio signal processor service and reports its state changes.
//
// This declaration carries only what the service's lifecycle calls; the binder client and its
// threads arrive with the monitor change. Until then start() and stop() do nothing.
#ifndef VELMAR_ASP_EVENT_MONITOR_H
#define VELMAR_ASP_EVENT_MONITOR_H

#include <utils/Errors.h>
#include <utils/RefBase.h>

#include <cstdint>

namespace velmar {

class AspEventMonitor : public virtual android::RefBase {
  public:
    // Receives (userData, event name, value) for every processor event.
    typedef void (*Callback)(void* userData, const char* event, int64_t value);

    AspEventMonitor(Callback callback, void* userData) : mCallback(callback), mUserData(userData) {}
    android::status_t start() { return android::NO_ERROR; }
    void stop() {}

  private:
    Callback mCallback;
    void* mUserData;
};

}  // namespace velmar

#endif  // VELMAR_ASP_EVENT_MONITOR_H
