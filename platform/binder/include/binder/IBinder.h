// Host implementation of the platform's binder object interface, in process.
//
// On the host every binder lives in this process and is registered with the in-process service
// manager (binder/IServiceManager.h). A client gets the service's own object, never a proxy, and
// calls it directly. Death notification works as for a remote binder: a test or host program
// kills a registered service (binder/HostBinder.h), and every recipient linked to it is told on
// the layer's binder thread, never on the caller's.
#ifndef HOST_BINDER_I_BINDER_H
#define HOST_BINDER_I_BINDER_H

#include <utils/Errors.h>
#include <utils/RefBase.h>
#include <utils/String16.h>
#include <utils/StrongPointer.h>

#include <cstdint>

namespace android {

class BBinder;
class IInterface;

class IBinder : public virtual RefBase {
  public:
    // Told (on a binder thread) that a binder it linked to has died.
    class DeathRecipient : public virtual RefBase {
      public:
        virtual void binderDied(const wp<IBinder>& who) = 0;
    };

    // The interface object this binder implements for descriptor, or null.
    virtual sp<IInterface> queryLocalInterface(const String16& descriptor);
    virtual const String16& getInterfaceDescriptor() const = 0;
    virtual bool isBinderAlive() const = 0;

    // The recipient is held weakly: a recipient that is gone by the time of the death is skipped.
    // DEAD_OBJECT when the binder has died already.
    virtual status_t linkToDeath(const sp<DeathRecipient>& recipient, void* cookie = nullptr,
                                 uint32_t flags = 0) = 0;
    // NAME_NOT_FOUND when no such link exists; DEAD_OBJECT after the death.
    virtual status_t unlinkToDeath(const wp<DeathRecipient>& recipient, void* cookie = nullptr,
                                   uint32_t flags = 0, wp<DeathRecipient>* outRecipient = nullptr) = 0;

    virtual BBinder* localBinder();

  protected:
    ~IBinder() override = default;
};

}  // namespace android

#endif  // HOST_BINDER_I_BINDER_H
