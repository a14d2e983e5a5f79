// SPDX-License-Identifier: Apache-2.0
package velmar.internal;

import velmar.internal.ImmersiveApp;

/** Told the top activity and the immersive app whenever either may have changed. */
oneway interface IVrTopActivityListener {
    /** app is a default record (empty package name, ids 0) when there is no immersive app. */
    void onVrTopActivityChanged(String topActivity, in ImmersiveApp app) = 0;
}
