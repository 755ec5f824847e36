/* SPDX-License-Identifier: GPL-3.0-or-later */
/* libtavicore: kinds of volumes, and running programs without a shell. */
#pragma once

#include <stdio.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Non-zero when the code of TAVIGetFSType denotes a network file system. */
int TAVIFSIsRemoteFS(int type);

/* Non-zero when the code of TAVIGetFSType denotes a mounted disk image. */
int TAVIFSIsImageFS(int type);

/* Runs the program at `path` with the null-terminated vector `argv` (argument 0 included). With `wait` 1 it waits,
 * and returns 0 exactly when the program exited normally with status 0, even to a caller that ignores SIGCHLD.
 * Arguments are copied before it returns. A program that would not read a path among them as that file's name is not
 * run: -1 with errno EPERM. When memory runs out, -1 with errno ENOMEM. */
int TLIBCExecv(const char* path, const char* const* argv, int wait);

/* The same with the arguments after argument 0 listed, then a null pointer; argument 0 is `path`. `flags` 0 waits. */
int TLIBCExecl(const char* path, int flags, ...);

/* Whether the program at `path` would take each path in `argv` for the file of exactly this name: 0 for arguments with
 * which TLIBCExecv runs nothing. Optional: a platform may lack this function. */
int TLIBCTakesNamesLiterally(const char* path, const char* const* argv);

/* Starts the program at `path` and returns a stream of its standard output (`mode` "r") or to its standard input
 * ("w"); null with errno set when it can't be started. */
FILE* TLIBCPopenv(const char* path, const char* mode, const char* const* argv);

/* Closes a stream of TLIBCPopenv and waits for its program alone. Returns 0 exactly when that exited normally with
 * status 0, even to a caller that has ignored SIGCHLD since before the program was started. */
int TLIBCPclose(FILE* stream);

#ifdef __cplusplus
}
#endif
