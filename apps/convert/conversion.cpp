// SPDX-License-Identifier: GPL-3.0-or-later
#include "convert/conversion.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <stdexcept>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include "maker/maker.h"
#include "system/descriptors.h"
#include "system/file_descriptor.h"
#include "system/file_rules.h"
#include "system/limited_child.h"
#include "system/soft_limit.h"

namespace tavithumb::apps::convert {
namespace {

// Enough for the photos of any camera, and time is left for convert.
constexpr rlim_t mostMemory = rlim_t{768} * 1048576;
constexpr ChildLimits limits = {60, rlim_t{64} * 1048576, std::chrono::minutes(2)};

// convert is to make the thumbnail.
class NotTaken : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

void Require(bool condition, const char* why) {
  if (!condition) throw NotTaken(why);
}

// Of these, convert decodes the same pixels. Of a GIF, it takes the first frame without the canvas around it; of a
// camera raw file, it shows another picture.
bool IsTaken(maker::Format format) {
  switch (format) {
    case maker::Format::kJpeg:
    case maker::Format::kPng:
    case maker::Format::kBmp:
    case maker::Format::kTiff:
    case maker::Format::kWebp:
    case maker::Format::kHeif:
      return true;
    case maker::Format::kGif:
    case maker::Format::kJxl:
    case maker::Format::kRaw:
      break;
  }
  return false;
}

// convert enlarges a picture that is smaller than the size in both directions.
bool IsEnlarged(maker::Size picture, maker::Size size) {
  return picture.width < size.width && picture.height < size.height;
}

// As numbers of 64 bits: the offsets of a crop that is larger than the picture are huge.
bool Contains(maker::Size picture, const Offset& crop, maker::Size size) {
  return std::int64_t{crop.left} + size.width <= picture.width &&
         std::int64_t{crop.top} + size.height <= picture.height;
}

maker::Region PartOf(const Offset& crop, maker::Size size) {
  const double left = crop.left;
  const double top = crop.top;
  return {left, top, left + size.width, top + size.height};
}

maker::Target TargetOf(const Conversion& conversion, const maker::Content& content) {
  maker::Target target;
  if (conversion.crop) {
    Require(Contains(content.stored, *conversion.crop, conversion.size), "convert cuts the crop");
    target.box = conversion.size;
    target.part = PartOf(*conversion.crop, conversion.size);
    return target;
  }
  Require(!IsEnlarged(content.stored, conversion.size), "convert enlarges the picture");
  target.box = maker::Upright(conversion.size, conversion.orientation);
  return target;
}

maker::Source SourceOf(const Conversion& conversion) {
  maker::Source source;
  source.path = conversion.source;
  source.orientation = conversion.orientation;
  source.alwaysTurns = true;
  return source;
}

maker::Thumbnail Make(const Conversion& conversion) {
  const std::optional<maker::Content> content = maker::Examine(conversion.source);
  Require(content && IsTaken(content->format), "convert decodes it");
  const bool makesPng = content->format == maker::Format::kPng;
  Require(makesPng == (conversion.type == maker::Type::kPng), "convert writes another type");
  const maker::Target target = TargetOf(conversion, *content);
  maker::Options options;
  options.wholeOnly = true;  // convert fails, and the library looks for another way
  return maker::Make(SourceOf(conversion), {target}, options).front();
}

// What is at the destination already. convert would write into it.
struct Existing {
  bool isThere = false;
  struct stat record = {};
};

// Nothing unless a new file in its place is the same to everybody.
std::optional<Existing> FindExisting(const std::string& path) {
  Existing existing;
  existing.isThere = lstat(path.c_str(), &existing.record) == 0;
  if (!existing.isThere) return errno == ENOENT ? std::optional(existing) : std::nullopt;
  const bool isPlain = S_ISREG(existing.record.st_mode) && existing.record.st_nlink == 1;
  if (!isPlain || access(path.c_str(), W_OK) != 0) return std::nullopt;
  return existing;
}

// A new file has the mode that the caller's umask gives it.
void TakeOver(const Existing& existing, int file) {
  if (!existing.isThere) return;
  struct stat record = {};
  Require(fstat(file, &record) == 0 && record.st_uid == existing.record.st_uid &&
              record.st_gid == existing.record.st_gid && fchmod(file, existing.record.st_mode & 07777) == 0,
          "the destination has another owner");
}

void Write(const std::vector<std::uint8_t>& bytes, const Existing& existing, const std::string& path) {
  const FileDescriptor file(open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0666));
  Require(file.IsOpen(), "no file can be made next to the destination");
  TakeOver(existing, file.Number());
  Require(WriteAll(file.Number(), bytes.data(), bytes.size()), "the thumbnail can't be written");
}

// The library's own temporary names end like that, and are removed like them if anything leaves one.
std::string TemporaryPath(const std::string& destination) {
  return destination + "_" + std::to_string(getpid());
}

// A decoder that an attacker has taken over finds no other files.
void KeepToFilesOf(const Conversion& conversion) {
  FileRules rules;
  rules.Allow(conversion.source, FileRules::Access::kRead);
  rules.Allow(conversion.destination.substr(0, conversion.destination.rfind('/') + 1), FileRules::Access::kStore);
  rules.AllowSystem();
  rules.Enter();
}

}  // namespace

bool Perform(const Conversion& conversion) {
  // convert would read such a file as further arguments.
  if (access((conversion.source + "[0]").c_str(), F_OK) == 0) return false;
  const std::optional<Existing> existing = FindExisting(conversion.destination);
  if (!existing) return false;
  const std::string temporary = TemporaryPath(conversion.destination);
  if (access(temporary.c_str(), F_OK) == 0) return false;
  const int status = RunLimited(limits, -1, [&](int /*channel*/) {
    const BoundedData bounded(mostMemory);
    KeepToFilesOf(conversion);
    Write(Make(conversion).bytes, *existing, temporary);
    Require(std::rename(temporary.c_str(), conversion.destination.c_str()) == 0, "the destination can't be replaced");
  });
  if (status != 0) unlink(temporary.c_str());
  return status == 0;
}

}  // namespace tavithumb::apps::convert
