// SPDX-License-Identifier: Apache-2.0
package velmar.internal;

/** The rendering application that is in front. */
parcelable ImmersiveApp {
    String packageName;
    int pid = 0;
    int uid = 0;
    boolean isTopActivity = false;
}
