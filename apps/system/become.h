// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <sys/types.h>

#include <string>

namespace tavithumb::apps {

// Whoever may write in a folder can put links there. So that these lead root to nothing that the folder's owner could
// not reach, a process of root's becomes that user before it touches a file there.

// Whether this process has to: its effective user is root.
bool IsRoot();

// The user who owns the folder of the file at `path`. Throws std::system_error if there is no such folder.
uid_t FolderOwnerOf(const std::string& path);

// The name of a user; the number if there is none.
std::string UserName(uid_t user);

// Gives up all rights of root, with no way back: real, effective and saved ids become those of `user`, groups the
// user's own (none for a user without a name), and neither root's environment nor its terminal can be reached by what
// this process starts. Root stays root. Call it in a process with one thread. Throws std::system_error if the system
// refuses; the process must end then.
void Become(uid_t user);

// Become() with the owner of the file's folder, unless this process is not root.
void BecomeOwnerOf(const std::string& path);

// Enters the folder of the file at `path`, and returns the file's path in it. From then on, such paths lead to this
// folder, whatever others rename on the way to it. Throws std::system_error; with EPERM if another user owns the
// folder.
std::string EnterFolderOf(const std::string& path);

// A path that was found from inside the folder of the file at the absolute `path`, as absolute path.
std::string PathFromOutside(const std::string& found, const std::string& path);

}  // namespace tavithumb::apps
