// SPDX-License-Identifier: GPL-3.0-or-later
#include "thumbs/stills.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <new>
#include <vector>

#include "maker/maker.h"
#include "system/file_rules.h"
#include "system/limited_child.h"
#include "system/soft_limit.h"
#include "system/supervisor.h"
#include "thumbs/decoder_process.h"
#include "thumbs/film_facts.h"

namespace tavithumb::apps {
namespace {

constexpr char toneMapper[] = "ffmpeg";

constexpr std::array percents = {10, 30, 50, 70};  // of the length, in turn
// Black frames and plain ones have less, even with some noise; pictures of the night have more.
constexpr double leastContrast = 5;
// A batch gets only the time that other programs leave.
constexpr ChildLimits limits = {60, mostDecodedBytes, std::chrono::minutes(4)};
// For 4K on any number of processors, and 8K on a few.
constexpr rlim_t mostMemory = rlim_t{2048} * 1048576;

// Takes the brightness of HDR down to what a JPEG can show: diffuse white, at 203 candelas, stays as it is.
constexpr char toneMapping[] =
    "scale='min(1920,iw)':-2,zscale=transfer=linear:npl=203,format=gbrpf32le,zscale=primaries=bt709,"
    "tonemap=mobius:param=0.7:desat=0,zscale=transfer=bt709:matrix=bt709:range=full,format=yuvj420p";

std::string PathOf(const char* tool) {
  return std::string("/usr/bin/") + tool;
}

bool IsInstalled(const char* tool) {
  return access(PathOf(tool).c_str(), X_OK) == 0;
}

// A video may be a list that names other files.
void KeepToFile(const std::string& video) {
  FileRules rules;
  rules.Allow(video, FileRules::Access::kRead);
  rules.AllowSystem();
  rules.Enter();
}

using Arguments = std::vector<std::string>;

// The longest side of the still; "0" for as it is. The tool would enlarge a picture that is smaller, and takes long to
// compress one that is much larger.
std::string SideFor(const FilmFacts& facts, std::uint32_t most) {
  const bool isReduced = !facts.hasCover && std::max(facts.width, facts.height) > most;
  return std::to_string(isReduced ? most : 0);
}

Arguments ForThumbnailer(const std::string& video, const std::string& side, int percent) {
  return {PathOf(stillTool),
          "-i",
          video,
          "-o",
          "/proc/self/fd/1",
          "-c",
          "jpeg",
          "-q",
          "9",
          "-s",
          side,
          "-m",
          "-t",
          std::to_string(percent) + "%"};
}

Arguments ForToneMapping(const std::string& video, double seconds) {
  return {PathOf(toneMapper),
          "-v",
          "quiet",
          "-nostdin",
          "-protocol_whitelist",
          "file",
          "-ss",
          std::to_string(seconds),
          "-i",
          "file:" + video,
          "-an",
          "-frames:v",
          "1",
          "-vf",
          toneMapping,
          "-c:v",
          "mjpeg",
          "-q:v",
          "2",
          "-f",
          "image2pipe",
          "-y",
          "/proc/self/fd/1"};
}

struct Still {
  MemoryFile picture;
  double contrast;
};

// Nothing if the picture can't be decoded.
std::optional<double> ContrastOf(const MemoryFile& picture) {
  try {
    return maker::ContrastOf(picture.Path());
  } catch (const maker::Declined&) {
    return std::nullopt;
  } catch (const std::bad_alloc&) {
    return std::nullopt;
  }
}

std::optional<Still> TakeWith(const Arguments& arguments, const std::string& video) {
  MemoryFile picture({});
  const int status = RunLimited(limits, picture.Descriptor(), [&](int channel) {
    const BoundedData memory(mostMemory);
    KeepToFile(video);
    dup2(channel, STDOUT_FILENO);
    BecomeProgram(arguments);
  });
  const std::optional<double> contrast = status == 0 ? ContrastOf(picture) : std::nullopt;
  if (!contrast) return std::nullopt;
  return Still{std::move(picture), *contrast};
}

// Only one of the tools finds covers; it shows HDR too pale.
std::optional<Still> TakeAt(const std::string& video, const FilmFacts& facts, std::uint32_t side, int percent) {
  if (facts.isHdr && !facts.hasCover && IsInstalled(toneMapper)) {
    if (auto still = TakeWith(ForToneMapping(video, facts.seconds * percent / 100), video)) return still;
  }
  return TakeWith(ForThumbnailer(video, SideFor(facts, side), percent), video);
}

}  // namespace

bool IsStillToolInstalled() {
  return IsInstalled(stillTool);
}

std::optional<MemoryFile> TakeStill(const std::string& video, std::uint32_t side) {
  if (!IsStillToolInstalled()) return std::nullopt;
  const FilmFacts facts = ReadFilmFacts(video);
  std::optional<Still> best;
  for (const int percent : percents) {
    std::optional<Still> still = TakeAt(video, facts, side, percent);
    if (!still) break;
    if (!best || still->contrast > best->contrast) best = std::move(still);
    if (best->contrast >= leastContrast) break;
  }
  if (!best) return std::nullopt;
  return std::move(best->picture);
}

}  // namespace tavithumb::apps
