// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <optional>
#include <string>

#include "thumbs/request.h"

namespace tavithumb::apps {

// Why a file got no answer, and what its owner can do about it.
struct Problem {
  enum class Kind {
    kMissing,      // there is no such file, or no stored thumbnail of it
    kForbidden,    // it can't be read
    kUnsupported,  // its type is not supported
    kDamaged,      // its content can't be decoded
    kNoPlace,      // its thumbnail can't be stored
    kNoTool,       // the tool that would make it is not installed
    kNoMemory,
    kNoTime,  // it took too long
  };

  Kind kind;
  std::string reason;
  std::string remedy;
};

// Checks `path` whatever its name: it must be a regular file, and readable.
std::optional<Problem> CheckFile(const std::string& path);

// Checks `path` before the library does: the file must exist, be of a supported type, and be readable.
std::optional<Problem> CheckSource(const std::string& path);

// The reason for the system's error number `error` on access to a path.
Problem ProblemOfErrno(int error);

// The reason for the system's error number `error` on writing a file.
Problem NotWritten(int error);

// The reason for the maker's refusal, which is a word: see rendering.h.
Problem ProblemOfRefusal(const std::string& refusal);

// Its thumbnail can't be stored: its volume does not support EA entries.
Problem NoEntriesOnVolume();

// It is a folder of thumbnails, or a file in one.
Problem FolderAmongThumbs();

// The reason for the library's exception that is being handled; call it in a catch block.
Problem ProblemOfException();

// The tool that takes stills of videos is not installed.
Problem NoStillTool();

// The content is not of a type that the library knows.
Problem UnknownContent();

// Why no thumbnail of the source can be stored where its volume or the store accepts thumbnails, if that is the case.
// Other volumes are no problem: their thumbnails are temporary files.
std::optional<Problem> WhyNotStored(const std::string& path);

// The same, with other volumes as a problem.
std::optional<Problem> WhyNothingIsStored(const std::string& path);

// Why a job with these facts has found no answer to `request`.
Problem WhyNoAnswer(const ThumbInfo& source, const Request& request);

}  // namespace tavithumb::apps
