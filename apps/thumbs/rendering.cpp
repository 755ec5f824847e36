// SPDX-License-Identifier: GPL-3.0-or-later
#include "thumbs/rendering.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <tavithumb/util.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <iterator>
#include <limits>
#include <new>
#include <utility>

#include "maker/maker.h"
#include "system/descriptors.h"
#include "system/file_descriptor.h"
#include "system/file_rules.h"
#include "system/memory_file.h"
#include "system/paths.h"
#include "system/quiet_log.h"
#include "system/soft_limit.h"
#include "thumbs/decoder_process.h"
#include "thumbs/kinds.h"
#include "thumbs/known_facts.h"
#include "thumbs/lookup.h"
#include "thumbs/privacy.h"
#include "thumbs/source_lock.h"
#include "thumbs/stills.h"
#include "thumbs/store.h"

namespace tavithumb::apps {
namespace {

// Enough for the photos of any camera. A picture near the maker's limit of pixels may take more: the tools make its
// thumbnails.
constexpr rlim_t mostMemory = rlim_t{768} * 1048576;

constexpr char noStill[] = "no still";

const char* WordFor(maker::Reason reason) {
  switch (reason) {
    case maker::Reason::kUnknownType:
      return "unknown type";
    case maker::Reason::kAnimation:
      return "animation";
    case maker::Reason::kUnsupported:
      return "unsupported";
    case maker::Reason::kTooLarge:
      return "too large";
    case maker::Reason::kDamaged:
      return "damaged";
    case maker::Reason::kUnreadable:
      break;
  }
  return "unreadable";
}

int QuarterTurns(int turns) {
  return (turns % 4 + 4) % 4;
}

bool IsVideo(const ThumbInfo& source) {
  return IsSupportVideo(BaseName(source.GetPath()));
}

// The library turns first and mirrors then; the maker the other way round.
maker::Orientation OrientationOf(const ThumbInfo& source) {
  const int turns = source.GetRotate();
  return {source.GetFlop() ? QuarterTurns(-turns) : turns, source.GetFlop()};
}

// Where the library looks for the thumbnail.
std::string DestinationOf(const ThumbInfo& source, const Request& request) {
  Thumb job(source.GetPath(), request.options, false);
  SetRequest(request, &job);
  job.SetFacts(source);
  return job.GetOnlineOutputDest();
}

// A stored thumbnail is upright already.
maker::Source SourceOf(const ThumbInfo& source, const PictureDetails& details, const Request& request,
                       Original original) {
  maker::Source described;
  if (original == Original::kStored) {
    described.path = DestinationOf(source, request);
    described.keepsAnimation = true;
    return described;
  }
  described.path = source.GetPath();
  if (!IsKnownToMakerAlone(source)) described.orientation = OrientationOf(source);
  described.userTurns = QuarterTurns(request.quarterTurns);
  described.isAdobeRgb = details.colourSpace == ColourSpace::ADOBE_RGB;
  described.previews = details.jpegPreviews;
  return described;
}

// What the maker decodes. Of a video, that is a still of it, which is taken outside of the limits of decoders.
struct Subject {
  maker::Source described;
  std::optional<MemoryFile> still;
};

// A still has twice the side of the largest box, from which thumbnails are as sharp as from the video. More pixels only
// take longer.
std::uint32_t SideOfStill(const std::vector<Request>& requests) {
  int side = 640;
  for (const Request& request : requests) {
    const maker::Size box = BoxOf(request.size);
    side = std::max({side, box.width, box.height});
  }
  return 2 * static_cast<std::uint32_t>(side);
}

// Nothing if it is a video of which there is no still.
std::optional<Subject> SubjectOf(const ThumbInfo& source, const PictureDetails& details,
                                 const std::vector<Request>& requests, Original original = Original::kSource) {
  Subject subject = {SourceOf(source, details, requests.front(), original), std::nullopt};
  if (!IsVideo(source)) return subject;
  subject.still = TakeStill(source.GetPath(), SideOfStill(requests));
  if (!subject.still) return std::nullopt;
  subject.described.path = subject.still->Path();
  return subject;
}

// A thumbnail that has been made, and where it goes.
struct Made {
  std::string temporary;
  std::string destination;
};

// Makes a new file of these bytes, with the time of the source, for those who may read the source. False if it can't be
// written.
bool Write(const std::string& path, const std::vector<std::uint8_t>& bytes, const struct stat& source) {
  unlink(path.c_str());
  const mode_t mode = (source.st_mode & 0444) | 0600;
  const FileDescriptor file(open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, mode));
  if (!file.IsOpen()) return false;
  if (!WriteAll(file.Number(), bytes.data(), bytes.size())) return false;
  const std::array<timespec, 2> times = {{{0, UTIME_OMIT}, {source.st_mtim.tv_sec, 0}}};
  return futimens(file.Number(), times.data()) == 0;
}

bool Store(const ThumbInfo& source, const std::vector<Made>& made) {
  const QuietLog quiet;
  Thumb job(source.GetPath(), 0, false);
  return std::all_of(made.begin(), made.end(), [&](const Made& thumbnail) {
    return job.SaveThumbToEA(thumbnail.temporary, thumbnail.destination, 0);
  });
}

// Each thumbnail under a temporary name next to its final one, until it is stored.
class Unstored {
 public:
  ~Unstored() {
    for (const Made& thumbnail : made_) unlink(thumbnail.temporary.c_str());
  }

  bool Add(const ThumbInfo& source, const Request& request, const maker::Thumbnail& thumbnail,
           const struct stat& record) {
    const std::string entry = BaseName(DestinationOf(source, request));
    if (entry.empty()) return false;
    const std::string temporary = BaseName(file::GetEATmpPath(source.GetPath(), entry));
    made_.push_back({NewEntryPath(source.GetPath(), temporary), NewEntryPath(source.GetPath(), entry)});
    return Write(made_.back().temporary, thumbnail.bytes, record);
  }

  const std::vector<Made>& All() const { return made_; }

 private:
  std::vector<Made> made_;
};

maker::Target TargetOf(const Request& request) {
  return {BoxOf(request.size), (request.options & Thumb::OPT_AVATAR) != 0};
}

std::vector<maker::Thumbnail> Render(const maker::Source& source, const std::vector<Request>& requests) {
  std::vector<maker::Target> targets;
  targets.reserve(requests.size());
  std::transform(requests.begin(), requests.end(), std::back_inserter(targets), TargetOf);
  maker::Options options;
  options.quality = requests.front().quality;
  return maker::Make(source, targets, options);
}

// The size in which browsers show the source; none of an animation of a type that may be one, and of a damaged header.
maker::Size ShownSize(const ThumbInfo& source) {
  if (source.IsWebAcceptable()) {
    constexpr std::uint32_t most = std::numeric_limits<int>::max();
    if (source.GetWidth() > most || source.GetHeight() > most) return {};
    return {static_cast<int>(source.GetWidth()), static_cast<int>(source.GetHeight())};
  }
  const std::optional<maker::Content> content = ExamineInBounds(source.GetPath());
  return content && !content->isAnimated ? content->stored : maker::Size{};
}

// A decoder that an attacker has taken over finds no other photos. The thumbnails' folder must exist, if there can be
// one.
void KeepToFilesOf(const std::string& source, const std::string& picture) {
  FileRules rules;
  rules.Allow(source, FileRules::Access::kRead);
  rules.Allow(picture, FileRules::Access::kRead);
  rules.Allow(file::Dirname(NewEntryPath(source, "thumbnail")), FileRules::Access::kStore);
  for (const char* folder : file::TEMPORARY_FOLDERS) rules.Allow(folder, FileRules::Access::kStore);
  rules.AllowSystem();
  rules.Enter();
}

std::int64_t BytesOfThumbnail(const ThumbInfo& source, maker::Size size, int quality) {
  const maker::Type type = source.GetMimeType() == "image/png" ? maker::Type::kPng : maker::Type::kJpeg;
  return maker::EstimateBytes(size, type, quality);
}

bool IsTooHeavy(const ThumbInfo& source, maker::Size size, int quality) {
  return source.GetFileSize() > 2 * BytesOfThumbnail(source, size, quality);
}

// Has thumbnails made and written, from the record of the source. Returns nothing, or why not in a word. Beyond the
// limits of processor time and of files, a signal ends the process.
std::optional<std::string> WithinLimits(const std::string& source,
                                        const std::function<bool(const struct stat&)>& make) {
  const BoundedData memory(mostMemory);
  const BoundedProcessorTime processorTime(mostDecodingSeconds);
  const SoftLimit files(RLIMIT_FSIZE, mostDecodedBytes);
  try {
    struct stat record = {};
    if (stat(source.c_str(), &record) != 0) return WordFor(maker::Reason::kUnreadable);
    if (!make(record)) return notStored;
    return std::nullopt;
  } catch (const maker::Declined& declined) {
    return WordFor(declined.Why());
  } catch (const std::bad_alloc&) {
    return "out of memory";
  }
}

// Makes the thumbnails of `source` from `described`, and stores them.
std::optional<std::string> MakeAndStore(const maker::Source& described, const ThumbInfo& source,
                                        const std::vector<Request>& requests) {
  return WithinLimits(source.GetPath(), [&](const struct stat& record) {
    const std::vector<maker::Thumbnail> thumbnails = Render(described, requests);
    if (!file::MakeEADir(source.GetPath())) return false;
    RestrictFoldersToReadersOf(source.GetPath());
    Unstored unstored;
    for (std::size_t i = 0; i < requests.size(); ++i) {
      if (!unstored.Add(source, requests[i], thumbnails[i], record)) return false;
    }
    if (!Store(source, unstored.All())) return false;
    for (const Made& thumbnail : unstored.All()) RestrictToReadersOf(source.GetPath(), thumbnail.destination);
    return true;
  });
}

std::optional<maker::Thumbnail> InMemory(const maker::Source& source, const Request& request) {
  std::optional<maker::Thumbnail> made;
  WithinLimits(source.path, [&](const struct stat&) {
    made = Render(source, {request}).front();
    return true;
  });
  return made;
}

}  // namespace

maker::Size BoxOf(const Size& size) {
  const ThumbDimension box = size.IsBox() ? size.box : Thumb::strThumbSizeMap_.at(size.name);
  return {static_cast<int>(box.width), static_cast<int>(box.height)};
}

bool CanRender(const Request& request, const ThumbInfo& source) {
  return !request.byLibrary && (request.options & Thumb::OPT_NO_CONVERT) == 0 && request.size.name != "original" &&
         (IsVideo(source) || source.IsGood()) && source.GetOutputMimeType() != "image/gif";
}

bool CanRenderAndStore(const Request& request, const ThumbInfo& source) {
  return CanRender(request, source) && HasPlaceFor(source.GetPath());
}

bool IsServedUnchanged(const Request& request, const ThumbInfo& source) {
  const bool isAsked = (request.options & Thumb::OPT_AVATAR) == 0 && QuarterTurns(request.quarterTurns) == 0;
  const bool isUpright = source.GetRotate() == 0 && !source.GetFlop();
  if (!isAsked || !isUpright || !IsShownByBrowsers(source) || source.GetMimeType() == "image/gif") return false;
  const maker::Size box = BoxOf(request.size);
  if (IsTooHeavy(source, box, request.quality)) return false;  // whatever its size is
  const maker::Size size = ShownSize(source);
  if (size.width <= 0 || size.height <= 0 || size.width > box.width || size.height > box.height) return false;
  return !IsTooHeavy(source, size, request.quality);
}

std::uint64_t ExpectedBytes(const Request& request, const ThumbInfo& source) {
  const maker::Size box = BoxOf(request.size);
  const maker::Size stored = {static_cast<int>(std::min<std::uint32_t>(source.GetWidth(), INT_MAX)),
                              static_cast<int>(std::min<std::uint32_t>(source.GetHeight(), INT_MAX))};
  const bool isKnown = stored.width > 0 && stored.height > 0;
  const maker::Size size = isKnown ? maker::FitInto(stored, box) : box;
  return static_cast<std::uint64_t>(BytesOfThumbnail(source, size, request.quality));
}

std::optional<std::string> RenderAndStore(const ThumbInfo& source, const PictureDetails& details,
                                          const std::vector<Request>& requests, Original original) {
  const std::optional<Subject> subject = SubjectOf(source, details, requests, original);
  return subject ? MakeAndStore(subject->described, source, requests) : noStill;
}

std::optional<std::string> RenderAndStoreFrom(const ThumbInfo& picture, const ThumbInfo& source,
                                              const std::vector<Request>& requests) {
  return MakeAndStore(SourceOf(picture, {}, requests.front(), Original::kSource), source, requests);
}

std::optional<std::string> RenderToFile(const ThumbInfo& source, const PictureDetails& details, const Request& request,
                                        const std::string& path) {
  const std::optional<Subject> subject = SubjectOf(source, details, {request});
  if (!subject) return noStill;
  return WithinLimits(source.GetPath(), [&](const struct stat& record) {
    const std::vector<maker::Thumbnail> thumbnails = Render(subject->described, {request});
    if (Write(path, thumbnails.front().bytes, record)) return true;
    unlink(path.c_str());
    return false;
  });
}

std::optional<std::string> RenderBytes(const ThumbInfo& source, const PictureDetails& details, const Request& request,
                                       const maker::Options& options, std::vector<std::uint8_t>* bytes) {
  const std::optional<Subject> subject = SubjectOf(source, details, {request});
  if (!subject) return noStill;
  return WithinLimits(source.GetPath(), [&](const struct stat&) {
    *bytes = std::move(maker::Make(subject->described, {TargetOf(request)}, options).front().bytes);
    return true;
  });
}

std::optional<maker::Thumbnail> RenderInMemory(const ThumbInfo& source, const PictureDetails& details,
                                               const Request& request) {
  const std::optional<Subject> subject = SubjectOf(source, details, {request});
  return subject ? InMemory(subject->described, request) : std::nullopt;
}

std::optional<maker::Thumbnail> RenderInMemory(const std::string& upright, const Request& request) {
  maker::Source source;
  source.path = upright;
  source.orientation = maker::Orientation{};
  source.keepsAnimation = true;
  return InMemory(source, request);
}

std::optional<std::string> RenderHere(const std::string& /*source*/, const Rendering& rendering) {
  return rendering();
}

std::optional<std::string> RenderInChild(const std::string& source, const Rendering& rendering) {
  return RenderInChildFrom(source, source, rendering);
}

std::optional<std::string> RenderInChildFrom(const std::string& picture, const std::string& source,
                                             const Rendering& rendering) {
  const std::string refusal = RunInDecoderProcess([&] {
    const SourceLock lock(source);
    if (HasPlaceFor(source) && !file::MakeEADir(source)) return std::string(notStored);
    KeepToFilesOf(source, picture);
    return rendering().value_or("");
  });
  return refusal.empty() ? std::nullopt : std::optional<std::string>(refusal);
}

std::string TemporaryPrefix(const std::string& entry) {
  return entry + "_" + std::to_string(getpid()) + "_";
}

}  // namespace tavithumb::apps
