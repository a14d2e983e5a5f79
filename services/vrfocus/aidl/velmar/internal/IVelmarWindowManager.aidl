// SPDX-License-Identifier: Apache-2.0
package velmar.internal;

import velmar.internal.ISystemKeyEventHandler;
import velmar.internal.IWindowLayoutObserver;

/** The part of the headset's window manager ("VelmarWindowManager") that the daemon calls. */
interface IVelmarWindowManager {
    boolean registerWindowLayoutObserver(IWindowLayoutObserver observer) = 0;
    void unregisterWindowLayoutObserver(IWindowLayoutObserver observer) = 1;
    boolean registerSystemKeyEventHandler(ISystemKeyEventHandler handler) = 2;
    boolean unregisterSystemKeyEventHandler(ISystemKeyEventHandler handler) = 3;
}
