// SPDX-License-Identifier: Apache-2.0
package android.os;

/** Told by the service manager when a service gains its first or loses its last client. */
oneway interface IClientCallback {
    void onClients(IBinder registered, boolean hasClients);
}
