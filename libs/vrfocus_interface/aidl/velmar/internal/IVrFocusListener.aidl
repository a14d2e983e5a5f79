// SPDX-License-Identifier: Apache-2.0
package velmar.internal;

/** Told that focus of a type may have changed; ask getClientFocusStatus for the new state. */
oneway interface IVrFocusListener {
    void onVrFocusChanged(int focusType) = 0;
}
