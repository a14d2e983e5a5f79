// SPDX-License-Identifier: Apache-2.0
package velmar.internal;

/** Told by the window manager which window has focus; implemented by the daemon. */
oneway interface IWindowLayoutObserver {
    /** Note the order: uid before pid, unlike every other notice. */
    void onFocusedWindowChanged(IBinder windowToken, int uid, int pid) = 0;
}
