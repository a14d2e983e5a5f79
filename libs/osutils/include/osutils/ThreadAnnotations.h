// SPDX-License-Identifier: Apache-2.0
//
// Thread annotations: the platform's, also for compilers that do not know them.
//
// The platform's header is written for Clang, which checks the annotations. GCC refuses some of
// them, so there they expand to nothing.
#pragma once

#include <android-base/thread_annotations.h>

#ifndef __clang__
#undef THREAD_ANNOTATION_ATTRIBUTE__
#define THREAD_ANNOTATION_ATTRIBUTE__(x)
#endif
