// SPDX-License-Identifier: GPL-3.0-or-later
#include "thumbs/tool_versions.h"

#include <tavi/core.h>
#include <tavithumb/thumb_convert_cmd.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <regex>

#include "system/paths.h"
#include "system/supervisor.h"
#include "system/text_pipe.h"
#include "thumbs/exif_details.h"

namespace tavithumb::apps {
namespace {

constexpr std::chrono::seconds mostTime(5);

std::string OutputOf(const std::string& path, const char* option) {
  const TextPipe pipe;
  ChildProcess child;
  child.standard = {-1, pipe.SendingEnd(), pipe.SendingEnd()};
  child.diesWithParent = true;
  child.work = [&] {
    const std::array<const char*, 3> arguments = {path.c_str(), option, nullptr};
    TLIBCExecv(path.c_str(), arguments.data(), 1);
  };
  Supervisor::Run(child, Clock::now() + mostTime);
  return pipe.Receive();
}

maker::Version VersionOf(const std::string& path, const char* option) {
  if (access(path.c_str(), X_OK) != 0) return {BaseName(path), "not found"};
  std::smatch found;
  const std::string output = OutputOf(path, option);
  const bool isKnown = std::regex_search(output, found, std::regex("[0-9]+(\\.[0-9]+)+(-[0-9]+)?"));
  return {BaseName(path), isKnown ? found.str() : "unknown version"};
}

}  // namespace

std::vector<maker::Version> ToolVersions() {
  std::vector<maker::Version> versions = maker::CodecVersions();
  versions.push_back({"Exiv2", Exiv2Version()});
  versions.push_back(VersionOf(ThumbConvertCmd::kDjpeg, "-version"));
  versions.push_back(VersionOf(ThumbConvertCmd::kJpegtran, "-version"));
  versions.push_back(VersionOf(ThumbConvertCmd::kConvert, "-version"));
  versions.push_back(VersionOf(ThumbConvertCmd::kDcraw, nullptr));
  versions.push_back(VersionOf("/usr/bin/ffmpegthumbnailer", "-v"));
  versions.push_back(VersionOf("/usr/bin/ffmpeg", "-version"));
  return versions;
}

}  // namespace tavithumb::apps
