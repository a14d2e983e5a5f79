// SPDX-License-Identifier: Apache-2.0
package velmar.internal;

/** Passed to the window manager as an argument only; the daemon neither calls nor implements it. */
interface ISystemKeyEventHandler {
}
