// SPDX-License-Identifier: Apache-2.0
//
// Typed interfaces over binders.
//
//      IFoo ◀── BnFoo ── BBinder       the service derives from BnFoo
//           ◀── BpFoo ── BpRefBase     interface_cast<IFoo>(binder) makes one of a remote binder
//
// DECLARE_META_INTERFACE and IMPLEMENT_META_INTERFACE give an interface its descriptor, its cast
// and a default implementation, used for methods that the other side does not know.
#pragma once

#include <binder/Binder.h>

#include <memory>
#include <utility>

namespace android {

class IInterface : public virtual RefBase {
public:
    IInterface();

    /** The binder of an interface; null for null. */
    static sp<IBinder> asBinder(const IInterface* interface);
    static sp<IBinder> asBinder(const sp<IInterface>& interface);

protected:
    ~IInterface() override;
    virtual IBinder* onAsBinder() = 0;
};

/** Null only for a null binder: whether a remote object is of that kind shows at the first call. */
template <typename INTERFACE>
inline sp<INTERFACE> interface_cast(const sp<IBinder>& binder) {
    return INTERFACE::asInterface(binder);
}

/** As interface_cast, but asks the object first; null when it is of another kind. */
template <typename INTERFACE>
inline sp<INTERFACE> checked_interface_cast(const sp<IBinder>& binder) {
    if (binder == nullptr || binder->getInterfaceDescriptor() != INTERFACE::descriptor) {
        return nullptr;
    }
    return interface_cast<INTERFACE>(binder);
}

template <typename INTERFACE>
class BnInterface : public INTERFACE, public BBinder {
public:
    sp<IInterface> queryLocalInterface(const String16& descriptor) override {
        return descriptor == INTERFACE::descriptor ? sp<IInterface>(this) : nullptr;
    }
    const String16& getInterfaceDescriptor() const override { return INTERFACE::descriptor; }

protected:
    using BaseInterface = INTERFACE;
    IBinder* onAsBinder() override { return this; }
};

template <typename INTERFACE>
class BpInterface : public INTERFACE, public BpRefBase {
public:
    explicit BpInterface(const sp<IBinder>& remote) : BpRefBase(remote) {}

protected:
    using BaseInterface = INTERFACE;
    IBinder* onAsBinder() override { return remote(); }
};

namespace internal {

template <typename INTERFACE, typename PROXY>
sp<INTERFACE> interfaceOf(const sp<IBinder>& binder) {
    if (binder == nullptr) return nullptr;
    if (sp<IInterface> local = binder->queryLocalInterface(INTERFACE::descriptor)) {
        return static_cast<INTERFACE*>(local.get());
    }
    return new PROXY(binder);
}

}  // namespace internal

}  // namespace android

#define DECLARE_META_INTERFACE(NAME)                                                         \
public:                                                                                      \
    static const ::android::String16 descriptor;                                             \
    static ::android::sp<I##NAME> asInterface(const ::android::sp<::android::IBinder>& obj); \
    virtual const ::android::String16& getInterfaceDescriptor() const;                       \
    I##NAME();                                                                               \
    virtual ~I##NAME();                                                                      \
    /* Before the first call only; false when one is set already. */                         \
    static bool setDefaultImpl(::std::unique_ptr<I##NAME> impl);                             \
    static const ::std::unique_ptr<I##NAME>& getDefaultImpl();                               \
                                                                                             \
private:                                                                                     \
    static ::std::unique_ptr<I##NAME> default_impl;                                          \
                                                                                             \
public:

// The text is a constant: a descriptor may be read while other static objects are constructed.
#define IMPLEMENT_META_INTERFACE(NAME, DESCRIPTOR)                                              \
    static constinit const ::android::StaticString16 k##NAME##DescriptorText(u"" DESCRIPTOR);   \
    const ::android::String16 I##NAME::descriptor(k##NAME##DescriptorText);                     \
    ::std::unique_ptr<I##NAME> I##NAME::default_impl;                                           \
    I##NAME::I##NAME() = default;                                                               \
    I##NAME::~I##NAME() = default;                                                              \
    const ::android::String16& I##NAME::getInterfaceDescriptor() const {                        \
        return descriptor;                                                                      \
    }                                                                                           \
    ::android::sp<I##NAME> I##NAME::asInterface(const ::android::sp<::android::IBinder>& obj) { \
        return ::android::internal::interfaceOf<I##NAME, Bp##NAME>(obj);                        \
    }                                                                                           \
    bool I##NAME::setDefaultImpl(::std::unique_ptr<I##NAME> impl) {                             \
        if (default_impl != nullptr || impl == nullptr) return false;                           \
        default_impl = ::std::move(impl);                                                       \
        return true;                                                                            \
    }                                                                                           \
    const ::std::unique_ptr<I##NAME>& I##NAME::getDefaultImpl() {                               \
        return default_impl;                                                                    \
    }

/** For hand-written stubs: refuses a request whose token is not the interface's. */
#define CHECK_INTERFACE(interface, data, reply)                     \
    do {                                                            \
        if (!(data).checkInterface(this)) return PERMISSION_DENIED; \
    } while (false)
