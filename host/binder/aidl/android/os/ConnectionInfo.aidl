// SPDX-License-Identifier: Apache-2.0
package android.os;

/** Where a service can be reached over a network. */
parcelable ConnectionInfo {
    @utf8InCpp String ipAddress;
    int port = 0;
}
