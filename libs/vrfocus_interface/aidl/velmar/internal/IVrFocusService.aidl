// SPDX-License-Identifier: Apache-2.0
package velmar.internal;

import velmar.internal.ClientStatus;
import velmar.internal.IVrFocusListener;
import velmar.internal.IVrTopActivityListener;
import velmar.internal.ImmersiveApp;

/**
 * The focus service ("vrfocus"). Focus types: 0 head tracking, 1 input tracking.
 *
 * Refusals carry an exception code and no message: EX_SECURITY for a missing permission (or
 * setAppState for another process), EX_ILLEGAL_ARGUMENT for a focus type other than 0 and 1 and
 * for a duplicate or missing listener, EX_NULL_POINTER when there is no immersive app.
 */
interface IVrFocusService {
    /** One entry per known pid, in ascending (uid, pid) order; unknown pids are left out. */
    ClientStatus[] getClientFocusStatus(int focusType, in int[] pids) = 0;
    boolean registerVrFocusListener(IVrFocusListener listener, int focusType) = 1;
    boolean unregisterVrFocusListener(int focusType) = 2;
    boolean registerVrTopActivityListener(IVrTopActivityListener listener) = 3;
    boolean unregisterVrTopActivityListener() = 4;
    /** The caller's own XR session state: 0 visible, 2 stopping; others are accepted and ignored. */
    void setAppState(int pid, int state) = 5;
    ImmersiveApp getImmersiveApp() = 6;
    String getTopActivity() = 7;
    /** Process names of the clients that render now, in ascending (uid, pid) order. */
    String[] getForegroundApps() = 8;
    void grantTrackingServiceAccess(int displayId) = 9;
    void revokeTrackingServiceAccess(int displayId) = 10;
}
