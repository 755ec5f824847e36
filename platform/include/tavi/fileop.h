/* SPDX-License-Identifier: GPL-3.0-or-later */
/* libtavifileop: copying and moving files. */
#pragma once

#ifdef __cplusplus
extern "C" {
#endif

/* Copies one regular file: data with its holes, times, user attributes, and owner, group, ACL and mode as far as the
 * process may and the volume can; nobody gets more rights to the copy than to the source. `options` points at fifteen
 * 32-bit words; the second set to 1 makes it a move, the others are 0. A move onto another name of the same file
 * removes the source's name. Returns 0; on failure non-zero with errno set, and source and destination are as they
 * were. A process that is killed may leave a file ".tavi_copy." and six characters next to the destination. */
int TAVIFileCopy(const char* source, const char* destination, const void* options);

#ifdef __cplusplus
}
#endif
