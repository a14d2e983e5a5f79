// SPDX-License-Identifier: Apache-2.0
package velmar.internal;

/** The focus verdict for one process. */
parcelable ClientStatus {
    int pid = 0;
    boolean hasFocus = false;
}
