// Host implementation of the platform's service manager, in process: services registered by name,
// looked up by name (getService waits a short, bounded time for a name that is not registered
// yet, as the platform's lookup does; checkService does not wait).
#ifndef HOST_BINDER_I_SERVICE_MANAGER_H
#define HOST_BINDER_I_SERVICE_MANAGER_H

#include <binder/IInterface.h>

namespace android {

class IServiceManager : public IInterface {
  public:
    DECLARE_META_INTERFACE(ServiceManager)

    // The service registered under name, waiting up to the lookup time (1 s unless the host says
    // otherwise, binder/HostBinder.h) for it to appear; null when it does not.
    virtual sp<IBinder> getService(const String16& name) const = 0;
    // The service registered under name now, or null.
    virtual sp<IBinder> checkService(const String16& name) const = 0;
    // Registers (or replaces) service under name. BAD_VALUE for a null service.
    virtual status_t addService(const String16& name, const sp<IBinder>& service,
                                bool allowIsolated = false) = 0;
};

sp<IServiceManager> defaultServiceManager();

}  // namespace android

#endif  // HOST_BINDER_I_SERVICE_MANAGER_H
