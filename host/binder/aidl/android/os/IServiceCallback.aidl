// SPDX-License-Identifier: Apache-2.0
package android.os;

/** Told by the service manager when a service of the watched name is registered. */
oneway interface IServiceCallback {
    void onRegistration(@utf8InCpp String name, IBinder binder);
}
