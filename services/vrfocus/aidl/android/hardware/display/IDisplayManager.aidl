// SPDX-License-Identifier: Apache-2.0
package android.hardware.display;

import android.hardware.display.IDisplayManagerCallback;

/** The part of the display manager ("display") that the daemon calls. */
interface IDisplayManager {
    /** Replaces the caller's event mask; 2 asks for removed displays only, 0 for nothing. */
    void registerCallbackWithEventMask(IDisplayManagerCallback callback, long eventMask) = 4;
}
