// SPDX-License-Identifier: Apache-2.0
package android.os;

import android.os.ConnectionInfo;
import android.os.IClientCallback;
import android.os.IServiceCallback;
import android.os.ServiceDebugInfo;

/** The context manager's interface: names to binders. Codes are those of Android 13. */
interface IServiceManager {
    @nullable IBinder getService(@utf8InCpp String name) = 0;
    @nullable IBinder checkService(@utf8InCpp String name) = 1;
    void addService(@utf8InCpp String name, IBinder service, boolean allowIsolated,
                    int dumpPriority) = 2;
    @utf8InCpp String[] listServices(int dumpPriority) = 3;
    void registerForNotifications(@utf8InCpp String name, IServiceCallback callback) = 4;
    void unregisterForNotifications(@utf8InCpp String name, IServiceCallback callback) = 5;
    boolean isDeclared(@utf8InCpp String name) = 6;
    @utf8InCpp String[] getDeclaredInstances(@utf8InCpp String iface) = 7;
    @nullable @utf8InCpp String updatableViaApex(@utf8InCpp String name) = 8;
    @nullable ConnectionInfo getConnectionInfo(@utf8InCpp String name) = 9;
    void registerClientCallback(@utf8InCpp String name, IBinder service,
                                IClientCallback callback) = 10;
    void tryUnregisterService(@utf8InCpp String name, IBinder service) = 11;
    ServiceDebugInfo[] getServiceDebugInfo() = 12;
}
