// Host control of the in-process binder world, for tests and host programs: services die and come
// back, and work reaches clients on the binder thread as it would on a device. Thread-safe.
#ifndef HOST_BINDER_HOST_BINDER_H
#define HOST_BINDER_HOST_BINDER_H

#include <functional>

namespace android {
namespace host {

// Unregisters the service and kills its binder: every recipient linked to it is told on the
// binder thread. False when no service is registered under name.
bool killService(const char* name);
// Forgets every registration, without death notifications.
void resetServices();
// How long getService() waits for a name that is not registered (default 1000 ms).
void setServiceLookupWaitMs(int milliseconds);

// Runs task on the binder thread ("HostBinder"), after every task posted before it.
void postToBinderThread(std::function<void()> task);
// Returns once every task posted so far has run. Not from the binder thread itself.
void flushBinderThread();

}  // namespace host
}  // namespace android

#endif  // HOST_BINDER_HOST_BINDER_H
