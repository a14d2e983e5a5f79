// SPDX-License-Identifier: Apache-2.0
package android.hardware.display;

/** Told by the display manager about displays; implemented by the daemon. */
oneway interface IDisplayManagerCallback {
    /** event: 1 added, 2 changed, 3 removed. */
    void onDisplayEvent(int displayId, int event) = 0;
}
