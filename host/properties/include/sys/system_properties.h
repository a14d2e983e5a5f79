// SPDX-License-Identifier: Apache-2.0
//
// System property sizes: what <cutils/properties.h> takes from the device's C library.
#pragma once

/** Bytes of a name and of a value, the terminating zero included. */
#define PROP_NAME_MAX 32
#define PROP_VALUE_MAX 92
