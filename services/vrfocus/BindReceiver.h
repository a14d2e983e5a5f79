// SPDX-License-Identifier: Apache-2.0
//
// Bind receiver: a member function of an object, as a callable.
//
// Usage:
//
//      std::function<void(int)> notice =
//              BindReceiver<Owner, void(int)>(*this, &Owner::onNotice);
//
// Limits: holds a plain reference; the owner must outlive every call.
#pragma once

#include <utility>

namespace NQS::OS {

template <typename Owner, typename Signature>
class BindReceiver;

template <typename Owner, typename Result, typename... Arguments>
class BindReceiver<Owner, Result(Arguments...)> {
public:
    using Method = Result (Owner::*)(Arguments...);

    BindReceiver(Owner& owner, Method method) : mOwner(&owner), mMethod(method) {}

    Result operator()(Arguments... arguments) const {
        return (mOwner->*mMethod)(std::forward<Arguments>(arguments)...);
    }

private:
    Owner* mOwner;
    Method mMethod;
};

}  // namespace NQS::OS
