#include <binder/Binder.h>
#include <binder/HostBinder.h>
#include <binder/IInterface.h>

namespace android {

sp<IInterface> IBinder::queryLocalInterface(const String16& /*descriptor*/) {
    return nullptr;
}

BBinder* IBinder::localBinder() {
    return nullptr;
}

sp<IBinder> IInterface::asBinder(const IInterface* iface) {
    if (iface == nullptr) return nullptr;
    return const_cast<IInterface*>(iface)->onAsBinder();
}

sp<IBinder> IInterface::asBinder(const sp<IInterface>& iface) {
    if (iface == nullptr) return nullptr;
    return iface->onAsBinder();
}

BBinder::BBinder() = default;

BBinder::~BBinder() = default;

const String16& BBinder::getInterfaceDescriptor() const {
    static const String16 kEmpty;
    return kEmpty;
}

bool BBinder::isBinderAlive() const {
    std::lock_guard<std::mutex> guard(mLock);
    return !mDead;
}

status_t BBinder::linkToDeath(const sp<DeathRecipient>& recipient, void* cookie,
                              uint32_t /*flags*/) {
    if (recipient == nullptr) return BAD_VALUE;
    std::lock_guard<std::mutex> guard(mLock);
    if (mDead) return DEAD_OBJECT;
    mLinks.push_back(Link{recipient, cookie});
    return NO_ERROR;
}

status_t BBinder::unlinkToDeath(const wp<DeathRecipient>& recipient, void* cookie,
                                uint32_t /*flags*/, wp<DeathRecipient>* outRecipient) {
    std::lock_guard<std::mutex> guard(mLock);
    if (mDead) return DEAD_OBJECT;
    for (auto link = mLinks.begin(); link != mLinks.end(); ++link) {
        if (link->recipient == recipient && link->cookie == cookie) {
            if (outRecipient != nullptr) *outRecipient = link->recipient;
            mLinks.erase(link);
            return NO_ERROR;
        }
    }
    return NAME_NOT_FOUND;
}

BBinder* BBinder::localBinder() {
    return this;
}

void BBinder::die() {
    std::vector<Link> links;
    {
        std::lock_guard<std::mutex> guard(mLock);
        if (mDead) return;
        mDead = true;
        links.swap(mLinks);
    }
    // As on a device, the news arrives on a binder thread; the weak reference to this binder is
    // all a recipient gets.
    wp<IBinder> who(this);
    for (const Link& link : links) {
        wp<DeathRecipient> recipient = link.recipient;
        host::postToBinderThread([recipient, who] {
            sp<DeathRecipient> alive = recipient.promote();
            if (alive != nullptr) alive->binderDied(who);
        });
    }
}

}  // namespace android
