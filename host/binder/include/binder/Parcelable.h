// SPDX-License-Identifier: Apache-2.0
//
// A value that writes itself into a parcel and reads itself back.
#pragma once

#include <utils/Errors.h>
#include <utils/String16.h>

#include <vector>

namespace android {

class Parcel;

class Parcelable {
public:
    virtual ~Parcelable() = default;
    Parcelable() = default;
    Parcelable(const Parcelable&) = default;
    Parcelable& operator=(const Parcelable&) = default;

    virtual status_t writeToParcel(Parcel* parcel) const = 0;
    virtual status_t readFromParcel(const Parcel* parcel) = 0;
};

}  // namespace android
