// Host implementation of the platform's local binder object. See binder/IBinder.h.
#ifndef HOST_BINDER_BINDER_H
#define HOST_BINDER_BINDER_H

#include <binder/IBinder.h>

#include <mutex>
#include <vector>

namespace android {

class BBinder : public IBinder {
  public:
    BBinder();

    const String16& getInterfaceDescriptor() const override;
    bool isBinderAlive() const override;
    status_t linkToDeath(const sp<DeathRecipient>& recipient, void* cookie = nullptr,
                         uint32_t flags = 0) override;
    status_t unlinkToDeath(const wp<DeathRecipient>& recipient, void* cookie = nullptr,
                           uint32_t flags = 0, wp<DeathRecipient>* outRecipient = nullptr) override;
    BBinder* localBinder() override;

    // Host only: marks the binder dead and tells every linked recipient on the binder thread. A
    // second call does nothing. Called by host::killService().
    void die();

  protected:
    ~BBinder() override;

  private:
    struct Link {
        wp<DeathRecipient> recipient;
        void* cookie;
    };
    mutable std::mutex mLock;
    bool mDead = false;         // guarded by mLock
    std::vector<Link> mLinks;   // guarded by mLock
};

}  // namespace android

#endif  // HOST_BINDER_BINDER_H
