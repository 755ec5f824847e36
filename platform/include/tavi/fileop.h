/* SPDX-License-Identifier: GPL-3.0-or-later */
/* libtavifileop: copying and moving files. */
#pragma once

#ifdef __cplusplus
extern "C" {
#endif

/* Copies one file. `options` points at fifteen 32-bit words; the second set to 1 makes it a move, the others are 0.
 * Returns 0; on failure non-zero with errno set, and the destination is as it was. */
int TAVIFileCopy(const char* source, const char* destination, const void* options);

#ifdef __cplusplus
}
#endif
