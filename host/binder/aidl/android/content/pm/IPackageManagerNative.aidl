// SPDX-License-Identifier: Apache-2.0
package android.content.pm;

/** The head of the platform's native package manager interface ("package_native"). */
interface IPackageManagerNative {
    @utf8InCpp String[] getNamesForUids(in int[] uids);
    @utf8InCpp String getInstallerForPackage(in String packageName);
    long getVersionCodeForPackage(in String packageName);
}
