// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <sys/types.h>

#include <optional>
#include <string>

#include "thumbs/reasons.h"

namespace tavithumb::apps {

// The steps of a process of root's that processes files for a folder's owner: see system/become.h.

// The user as whom root processes the file at `path`: the owner of its folder. If that is missing, root itself, whose
// process touches no other user's folder.
uid_t OwnerFor(const std::string& path);

// Becomes `user`, or returns why it can't; it must not touch any file then.
std::optional<Problem> WhyNotBecome(uid_t user);

// Enters the folder of the file at the absolute `path`, and sets `inside` to the file's path in it; to `path` where
// that is too long for thumbnails next to it. Returns a problem if the owner of the folder, who this process is, may
// not enter it or read the file, or if the file's thumbnails would be stored through a link.
std::optional<Problem> WhyNotEnter(const std::string& path, std::string* inside);

}  // namespace tavithumb::apps
