// SPDX-License-Identifier: GPL-3.0-or-later
#include "thumbs/reasons.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <tavithumb/error.h>
#include <tavithumb/libtavithumb.h>
#include <tavithumb/thumb_convert_cmd.h>
#include <tavithumb/util.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <exception>
#include <limits>
#include <new>
#include <system_error>

#include "maker/limits.h"
#include "system/paths.h"
#include "thumbs/error_codes.h"
#include "thumbs/facts_in_bounds.h"
#include "thumbs/full_disk.h"
#include "thumbs/kinds.h"
#include "thumbs/known_facts.h"
#include "thumbs/stills.h"
#include "thumbs/store.h"

namespace tavithumb::apps {
namespace {

using Kind = Problem::Kind;

const Problem permissionDenied = {Kind::kForbidden, "permission denied", "ask its owner for read permission"};
const Problem damaged = {Kind::kDamaged, "it is damaged", "get a fresh copy of it"};

const Problem noStill = {Kind::kDamaged, "no still could be taken of this video",
                         "check that it plays in another program"};

const Problem diskFull = {Kind::kNoPlace, "the disk is full", "free some space on it"};

const Problem noMemory = {Kind::kNoMemory, "there is not enough memory for it", "try again when more memory is free"};

const Problem couldNotBeConverted = {Kind::kDamaged, "it could not be converted",
                                     "check that it opens in another program and that the disk has space"};

Problem ProblemOfError(int code) {
  if (code == kNoFacts) return UnknownContent();
  if (code == kNotOpened) return {Kind::kForbidden, "it cannot be opened", "check that it is still there and readable"};
  return damaged;
}

bool MayDo(const std::string& path, int mode) {
  return faccessat(AT_FDCWD, path.c_str(), mode, AT_EACCESS) == 0;
}

// It must be a regular file.
std::optional<Problem> CheckKind(const std::string& path) {
  struct stat record = {};
  if (stat(path.c_str(), &record) != 0) return ProblemOfErrno(errno);
  if (S_ISDIR(record.st_mode)) return Problem{Kind::kMissing, "it is a folder", "name the files in it"};
  if (S_ISREG(record.st_mode)) return std::nullopt;
  return Problem{Kind::kMissing, "it is not a regular file", "name a photo or video file"};
}

// Of the types that are decoded at a smaller size, larger pictures fit into memory. A header that was misread may say
// that a side is negative.
bool IsTooLarge(const ThumbInfo& source) {
  constexpr auto mostPlausible = static_cast<std::uint32_t>(std::numeric_limits<std::int32_t>::max());
  if (std::max(source.GetWidth(), source.GetHeight()) > mostPlausible) return false;
  const std::int64_t pixels = std::int64_t{source.GetWidth()} * source.GetHeight();
  return pixels > (source.GetMimeType() == "image/jpeg" ? maker::kMaxStoredPixels : maker::kMaxDecodedPixels);
}

Problem TooLarge(const ThumbInfo& source) {
  const std::string size = std::to_string(source.GetWidth()) + "x" + std::to_string(source.GetHeight());
  return {Kind::kDamaged, "it is too large to be converted (" + size + " pixels)", "save a smaller copy of it"};
}

// A tool that could have made it but is not installed.
std::optional<Problem> WhyNoTool() {
  struct Tool {
    const std::string& path;
    const char* package;
  };
  for (const Tool& tool : {Tool{ThumbConvertCmd::kDjpeg, "libjpeg-turbo-progs"},
                           Tool{ThumbConvertCmd::kConvert, "imagemagick"}, Tool{ThumbConvertCmd::kDcraw, "dcraw"}}) {
    if (MayDo(tool.path, X_OK)) continue;
    return Problem{Kind::kNoTool, "it could not be converted, and " + tool.path + " is not installed",
                   std::string("install the package ") + tool.package + ", or check that it opens in another program"};
  }
  return std::nullopt;
}

// Of a source of which the library has no facts. Of these, its tools take only raw files.
Problem WhyNotWithoutFacts(const ThumbInfo& known, const Request& request) {
  if (known.GetMimeType() == "image/x-raw") return WhyNoTool().value_or(couldNotBeConverted);
  if (!request.byLibrary) return couldNotBeConverted;
  return {Kind::kUnsupported, "the library's tools cannot convert it", "leave out --library"};
}

bool IsRefused(const ThumbInfo& source, const std::string& path) {
  return ConvertCmd(source, path, "").IsRefused();
}

// Why the platform does not have ImageMagick read the source, when that is so: its name stands for other files, or, for
// any file in a folder of that name too, "%d" in it for a number.
std::optional<Problem> WhyRefused(const ThumbInfo& source) {
  if (!IsRefused(source, source.GetPath())) return std::nullopt;
  if (IsRefused(source, source.GetPath() + "/photo")) {
    return Problem{Kind::kDamaged,
                   "it could not be converted because ImageMagick reads the '%' in its path as a pattern",
                   "rename it, or work on a copy"};
  }
  return Problem{Kind::kDamaged, "it could not be converted because ImageMagick may read other files in its place",
                 "rename it, or work on a copy in another folder"};
}

// The folder of `path`, or the first one above it that exists.
std::string NearestFolder(const std::string& path) {
  struct stat record = {};
  std::string folder = file::Dirname(path);
  while (folder != "/" && stat(folder.c_str(), &record) != 0 && errno == ENOENT) folder = file::Dirname(folder);
  return folder;
}

// Root works as the owner of the source's folder, who may not write to a store of root's.
Problem NotWrittenToStore() {
  struct stat store = {};
  const bool isRoots = geteuid() != 0 && stat(StoreFolder().c_str(), &store) == 0 && store.st_uid == 0;
  return {Kind::kNoPlace, "no thumbnail can be written to the store",
          isRoots ? "give " + StoreFolder() + " to a user who may read the source, and run this as that user"
                  : "make " + StoreFolder() + " writable for this user"};
}

Problem NoStill(const std::string& path, const Request& request) {
  if (request.byLibrary) {
    return {Kind::kMissing, "no screenshot is stored for this video", "store one first, or leave out --library"};
  }
  if (!MayDo(path, R_OK)) return permissionDenied;
  if (!IsStillToolInstalled()) return NoStillTool();
  return WhyNotStored(path).value_or(noStill);
}

}  // namespace

Problem NoStillTool() {
  return {Kind::kNoTool, std::string("stills of videos need ") + stillTool + ", which is not installed",
          std::string("install the package ") + stillTool};
}

Problem ProblemOfErrno(int error) {
  if (error == ENOENT || error == ENOTDIR) return {Kind::kMissing, "it does not exist", "check its name"};
  if (error == EACCES) return permissionDenied;
  return {Kind::kMissing, "it cannot be accessed: " + std::generic_category().message(error), "check its path"};
}

Problem NotWritten(int error) {
  if (error == ENOSPC || error == EDQUOT) return diskFull;
  if (error == ENOENT) return {Kind::kNoPlace, "its folder does not exist", "create the folder first"};
  return {Kind::kNoPlace, "it cannot be written: " + std::generic_category().message(error),
          "write to a folder of your own"};
}

Problem ProblemOfRefusal(const std::string& refusal) {
  if (refusal == "unknown type") return UnknownContent();
  if (refusal == "damaged") return damaged;
  if (refusal == "too large") return {Kind::kDamaged, "it is too large to be converted", "save a smaller copy of it"};
  if (refusal == "out of memory") return noMemory;
  if (refusal == "no still") return IsStillToolInstalled() ? noStill : NoStillTool();
  return {Kind::kDamaged, "it could not be converted", "check that it opens in another program"};
}

Problem NoEntriesOnVolume() {
  return {Kind::kNoPlace, "thumbnails cannot be stored on its volume",
          "request them one by one with 'tavithumb get', or copy it to a local disk"};
}

Problem FolderAmongThumbs() {
  return {Kind::kNoPlace, "it is a thumbnail folder", "name the folder that holds the photos"};
}

std::optional<Problem> CheckFile(const std::string& path) {
  if (std::optional<Problem> problem = CheckKind(path)) return problem;
  return MayDo(path, R_OK) ? std::nullopt : std::optional<Problem>(permissionDenied);
}

std::optional<Problem> CheckSource(const std::string& path) {
  if (std::optional<Problem> problem = CheckKind(path)) return problem;
  const std::string name = BaseName(path);
  if (IsSupportVideo(name)) return std::nullopt;
  if (!IsPhoto(name)) {
    return Problem{Kind::kUnsupported, "it is not a photo or video by its name",
                   "give it the right extension, such as .jpg or .mp4"};
  }
  if (!MayDo(path, R_OK)) return permissionDenied;
  return std::nullopt;
}

Problem ProblemOfException() {
  try {
    throw;
  } catch (const Error& error) {
    return ProblemOfError(error.Code());
  } catch (const FactsTooLarge& error) {
    return {Kind::kDamaged, error.what(), "save a copy of it without metadata"};
  } catch (const SizeNotRead& error) {
    return {Kind::kDamaged, error.what(), "check that it opens in another program"};
  } catch (const std::bad_alloc&) {
    return noMemory;
  } catch (const std::exception&) {  // invalid facts, such as an orientation that is not a number
    return damaged;
  }
}

Problem UnknownContent() {
  return {Kind::kDamaged, "its content is not in a known image format", "check that it opens in another program"};
}

std::optional<Problem> WhyNotStored(const std::string& path) {
  if (!HasPlaceFor(path)) return std::nullopt;
  const std::string entry = NewEntryPath(path, "thumbnail");
  if (entry.empty()) {
    if (IsDiskFull(path)) return diskFull;
    return Problem{Kind::kNoPlace, "there is no place for a thumbnail next to it",
                   "copy it to an ordinary folder with a shorter path"};
  }
  const std::string folder = NearestFolder(entry);
  if (IsDiskFull(JoinPath(folder, "thumbnail"))) return diskFull;
  if (MayDo(folder, W_OK | X_OK)) return std::nullopt;
  if (IsInStore(entry)) return NotWrittenToStore();
  return Problem{Kind::kNoPlace, "no thumbnail can be written next to it",
                 "make its folder writable, or work on a copy"};
}

std::optional<Problem> WhyNothingIsStored(const std::string& path) {
  return HasPlaceFor(path) ? WhyNotStored(path) : NoEntriesOnVolume();
}

Problem WhyNoAnswer(const ThumbInfo& source, const Request& request) {
  if (request.size.name == "original" && (request.options & Thumb::OPT_FALLBACK_SMALLER) == 0) {
    return {Kind::kUnsupported, "a browser cannot show the original",
            "ask for a smaller size, or add --fallback-smaller"};
  }
  if ((request.options & Thumb::OPT_NO_CONVERT) != 0) {
    return {Kind::kMissing, "no thumbnail is stored and --no-convert forbids making one", "leave out --no-convert"};
  }
  if (IsSupportVideo(BaseName(source.GetPath()))) return NoStill(source.GetPath(), request);
  const ThumbInfo known = KnownFacts(source);
  if (!known.IsGood()) return WhyNoTool().value_or(UnknownContent());
  if (const std::optional<Problem> problem = WhyNotStored(source.GetPath())) return *problem;
  if (!source.IsGood()) return WhyNotWithoutFacts(known, request);
  if (IsTooLarge(source)) return TooLarge(source);
  if (const std::optional<Problem> problem = WhyRefused(source)) return *problem;
  return WhyNoTool().value_or(couldNotBeConverted);
}

}  // namespace tavithumb::apps
