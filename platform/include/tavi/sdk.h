/* SPDX-License-Identifier: GPL-3.0-or-later */
/* libtavisdk: where the extended-attribute (EA) directory of a file is, and on what kind of volume. */
#pragma once

#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Writes the NUL-terminated full path of the EA entry `eaName` of the file `source` into `buffer` of `size` bytes.
 * The first and last arguments are 0. Nothing is created, and neither file needs to exist.
 * Returns 0 or more, or a negative number when the source has no EA path: what is in an EA directory, or a link into
 * one, has none. */
int TAVIEAPath(int, const char* source, const char* eaName, char* buffer, size_t size, int);

/* The same for the EA directory that holds the entries of `source`. Returns 0, or non-zero on failure; one that exists
 * but must not be written to, because another user has put it there, is a failure too. */
int TAVIEADirPath(int, const char* source, char* buffer, size_t size);

/* Creates that EA directory; the first argument is 1. The directory above it, which it shares with the other files of
 * the source's folder, gets the owner, group, ACL and mode of that folder. It itself is as private as its source, the
 * file of that name in the folder: those who may read the source may search and read it, nobody else may; of these,
 * those who may write in the folder may write. It belongs to the source's owner where the folder does too, else to the
 * process's user. Without a source it gets the rights of the folder. If it exists, it gets these rights again, but
 * keeps its owner; another user's is left as it is. All this as far as the process and the volume can: nobody gets a
 * right because something could not be set. Returns 0 when it now exists, non-zero with errno set otherwise. A process
 * that is killed may leave an empty directory ".tavi_mkdir." and six characters next to it or to its parent. */
int TAVIEAMKDir(int, const char* eaDir);

/* A code for the kind of volume that holds `path`, for TAVIFSIsRemoteFS and TAVIFSIsImageFS; 12 is a volume that
 * can't hold the names of EA entries. The second argument is 0. Returns -1 with errno set, as by statfs, when the
 * volume can't be queried. */
int TAVIGetFSType(const char* path, int);

#ifdef __cplusplus
}
#endif
