// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <optional>
#include <string>

#include "thumbs/request.h"

namespace tavithumb::apps {

// Why a file got no answer, and what its owner can do about it.
struct Problem {
  enum class Kind {
    kMissing,      // there is no such file, or nothing that shows it
    kForbidden,    // it can't be read
    kUnsupported,  // its kind can't be shown
    kDamaged,      // its content makes no picture
    kNoPlace,      // its thumbnail has nowhere to go
    kNoTool,       // what would make it is not installed
    kNoMemory,
  };

  Kind kind;
  std::string reason;
  std::string remedy;
};

// What can be told of `path` before the library sees it: a file that is there, of a supported kind, readable.
std::optional<Problem> CheckSource(const std::string& path);

// What the system's error number `error` means for a path that could not be looked at.
Problem ProblemOfErrno(int error);

// No thumbnail can be kept for it: its volume takes no EA entries.
Problem NoEntriesOnVolume();

// A folder of thumbnails, or one among them.
Problem FolderAmongThumbs();

// What an exception of the library means, called where one has been caught.
Problem ProblemOfException();

// The content is of no type that the library knows.
Problem UnknownContent();

// Why no thumbnail can be stored beside the source, when that is so. The job has tried to make the folder for it. On
// volumes that take no entries none is needed: thumbnails are made elsewhere.
std::optional<Problem> WhyNotStored(const std::string& path);

// Why a job that knows this of its source has found no answer to `request`.
Problem WhyNoAnswer(const ThumbInfo& source, const Request& request);

}  // namespace tavithumb::apps
