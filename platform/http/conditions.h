// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace tavi {

// The parts of a request that decide how a file is sent, as the web server passes them on. Missing header fields are
// empty.
struct FileRequest {
  bool isCgi;  // otherwise the members below are ignored
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

// The validators of a file.
struct FileVersion {
  std::string etag;       // a strong one, with its quotes
  std::int64_t modified;  // seconds since the epoch, as clients are told: never in the future
  std::int64_t changed;   // of content or attributes, seconds since the epoch
  std::uint64_t size;     // bytes
};

enum class Outcome {
  kWhole,
  kPart,
  kNotModified,    // the client has it already
  kAnother,        // the client requires another version
  kUnsatisfiable,  // the range begins after the end of the file
};

struct Decision {
  Outcome outcome;
  std::uint64_t first;   // byte of the part, or of the whole
  std::uint64_t length;  // bytes
};

// Which part of the file to send, by the precedence of RFC 9110: If-Match, which overrides If-Unmodified-Since, then
// If-None-Match, which overrides If-Modified-Since, then Range, if If-Range allows it. A field that can't be parsed is
// ignored. `now` in seconds since the epoch.
Decision Decide(const FileRequest& request, const FileVersion& version, std::int64_t now);

}  // namespace tavi
