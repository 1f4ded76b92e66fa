// Host implementation of the platform's binder interface base and its native (Bn) half. On the
// host there are no proxies: asInterface() finds the interface on the (always local) binder.
#ifndef HOST_BINDER_I_INTERFACE_H
#define HOST_BINDER_I_INTERFACE_H

#include <binder/Binder.h>

namespace android {

class IInterface : public virtual RefBase {
  public:
    IInterface() = default;
    static sp<IBinder> asBinder(const IInterface* iface);
    static sp<IBinder> asBinder(const sp<IInterface>& iface);

  protected:
    ~IInterface() override = default;
    virtual IBinder* onAsBinder() = 0;
};

template <typename INTERFACE>
inline sp<INTERFACE> interface_cast(const sp<IBinder>& binder) {
    return INTERFACE::asInterface(binder);
}

// The object that implements INTERFACE and is its own binder.
template <typename INTERFACE>
class BnInterface : public INTERFACE, public BBinder {
  public:
    sp<IInterface> queryLocalInterface(const String16& descriptor) override {
        if (descriptor == INTERFACE::descriptor) return sp<IInterface>(this);
        return nullptr;
    }
    const String16& getInterfaceDescriptor() const override { return INTERFACE::descriptor; }

  protected:
    IBinder* onAsBinder() override { return this; }
};

}  // namespace android

// In the interface's class: its descriptor and asInterface().
#define DECLARE_META_INTERFACE(INTERFACE)                                                      \
    static const ::android::String16 descriptor;                                               \
    static ::android::sp<I##INTERFACE> asInterface(const ::android::sp<::android::IBinder>& obj); \
    virtual const ::android::String16& getInterfaceDescriptor() const;                         \
    I##INTERFACE() = default;                                                                  \
    ~I##INTERFACE() override = default;

// In one source file of the interface.
#define IMPLEMENT_META_INTERFACE(INTERFACE, NAME)                                          \
    const ::android::String16 I##INTERFACE::descriptor(NAME);                              \
    const ::android::String16& I##INTERFACE::getInterfaceDescriptor() const {             \
        return I##INTERFACE::descriptor;                                                    \
    }                                                                                       \
    ::android::sp<I##INTERFACE> I##INTERFACE::asInterface(                                 \
            const ::android::sp<::android::IBinder>& obj) {                                 \
        if (obj == nullptr) return nullptr;                                                 \
        ::android::sp<::android::IInterface> local = obj->queryLocalInterface(descriptor);  \
        return static_cast<I##INTERFACE*>(local.get());                                     \
    }

#endif  // HOST_BINDER_I_INTERFACE_H
