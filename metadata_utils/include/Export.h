// SPDX-License-Identifier: Apache-2.0
#pragma once

/// Marks what leaves the shared library; everything else stays hidden.
#if defined(__GNUC__)
#define METADATA_UTILS_EXPORT __attribute__((visibility("default")))
#else
#define METADATA_UTILS_EXPORT
#endif
