// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace tavi {

// What a request says about how it wants a file, as the web server hands it over. Empty texts stand for header fields
// that are not there.
struct FileRequest {
  bool isCgi;  // otherwise nothing below counts
  std::string method;
  std::string ifMatch;
  std::string ifUnmodifiedSince;
  std::string ifNoneMatch;
  std::string ifModifiedSince;
  std::string ifRange;
  std::string range;
};

// The request that the CGI variables of this process describe.
FileRequest RequestOfEnvironment();

// What a file is known by.
struct FileVersion {
  std::string etag;       // a strong one, with its quotes
  std::int64_t modified;  // seconds since the epoch
  std::uint64_t size;     // bytes
};

enum class Outcome {
  kWhole,
  kPart,
  kNotModified,    // the client has it
  kAnother,        // the client wants another version only
  kUnsatisfiable,  // there are no such bytes
};

struct Decision {
  Outcome outcome;
  std::uint64_t first;   // byte of the part, or of the whole
  std::uint64_t length;  // bytes
};

// What of the file is to be sent, by the precedence of RFC 9110: If-Match, which If-Unmodified-Since yields to, then
// If-None-Match, which If-Modified-Since yields to, then Range, if If-Range allows it. What can't be understood is as
// if it were not there. `now` in seconds since the epoch.
Decision Decide(const FileRequest& request, const FileVersion& version, std::int64_t now);

}  // namespace tavi
