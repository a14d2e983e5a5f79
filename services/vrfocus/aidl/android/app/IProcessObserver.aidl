// SPDX-License-Identifier: Apache-2.0
package android.app;

/** Told by the activity manager about processes; implemented by the daemon. */
oneway interface IProcessObserver {
    void onForegroundActivitiesChanged(int pid, int uid, boolean foregroundActivities) = 0;
    void onForegroundServicesChanged(int pid, int uid, int serviceTypes) = 1;
    void onProcessDied(int pid, int uid) = 2;
}
