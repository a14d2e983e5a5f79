// SPDX-License-Identifier: Apache-2.0
package android.os;

/** Which process registered a service. */
parcelable ServiceDebugInfo {
    @utf8InCpp String name;
    int debugPid = 0;
}
