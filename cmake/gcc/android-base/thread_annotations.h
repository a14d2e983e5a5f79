// SPDX-License-Identifier: Apache-2.0
//
// The platform's thread annotations, for compilers that do not know them.
//
// The platform's header is written for Clang, which checks the annotations. GCC refuses some of
// them, so there they expand to nothing. Device code includes the platform's name and finds this
// one first on the host.
#pragma once

#include_next <android-base/thread_annotations.h>

#ifndef __clang__
#undef THREAD_ANNOTATION_ATTRIBUTE__
#define THREAD_ANNOTATION_ATTRIBUTE__(x)
#endif
