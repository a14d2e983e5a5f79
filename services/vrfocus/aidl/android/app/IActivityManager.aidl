// SPDX-License-Identifier: Apache-2.0
package android.app;

import android.app.IProcessObserver;

/**
 * The part of the activity manager ("activity") that the daemon calls. The ids are those of the
 * whole platform interface, so that this subset reaches the real service.
 */
interface IActivityManager {
    void registerProcessObserver(IProcessObserver observer) = 109;
    void unregisterProcessObserver(IProcessObserver observer) = 110;
    boolean hasForegroundPanelService(int pid, int uid) = 224;
    boolean hasActivityOnPrimaryDisplay(int pid, int uid) = 225;

    /** The subset of displayIds on which the process has a top activity. */
    int[] getDisplaysWithTopActivities(int pid, in int[] displayIds) = 226;

    /** Package of the top activity on the primary display; empty when there is none. */
    String getTopActivityOnPrimaryDisplay() = 227;
}
