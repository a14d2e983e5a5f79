// SPDX-License-Identifier: Apache-2.0
package velmar.internal;

/** The system's focus helper ("vrfocushelper"), told when the top or the immersive app changes. */
oneway interface IVrFocusHelper {
    void onFocusChanged(int focusType) = 0;
    void onTopActivityChanged(@nullable String packageName) = 1;
    void onImmersiveAppChanged(@nullable String packageName) = 2;
}
