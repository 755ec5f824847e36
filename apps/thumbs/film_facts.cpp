// SPDX-License-Identifier: GPL-3.0-or-later
#include "thumbs/film_facts.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <optional>

#include "maker/declined.h"
#include "maker/input.h"

namespace tavithumb::apps {
namespace {

using maker::Input;

constexpr int mostElements = 20000;
constexpr int mostLevels = 10;

// A part of the file.
struct Range {
  std::uint64_t begin = 0;
  std::uint64_t end = 0;

  std::uint64_t Size() const { return end - begin; }
  Range From(std::uint64_t offset) const { return {begin + std::min(offset, Size()), end}; }
};

// A big-endian number of up to 8 bytes; 0 where there are fewer bytes than it has.
std::uint64_t NumberAt(const Input& input, const Range& range, std::uint64_t offset, std::size_t bytes) {
  std::array<std::uint8_t, 8> buffer = {};
  if (offset + bytes > range.Size() || input.ReadAt(range.begin + offset, buffer.data(), bytes) != bytes) return 0;
  std::uint64_t number = 0;
  for (std::size_t i = 0; i < bytes; ++i) number = number << 8 | buffer.at(i);
  return number;
}

std::uint32_t ShortAt(const Input& input, const Range& range, std::uint64_t offset) {
  return static_cast<std::uint32_t>(NumberAt(input, range, offset, 2));
}

// ITU-T H.273: SMPTE ST 2084 and ARIB STD-B67.
bool IsHdrTransfer(std::uint64_t transfer) {
  return transfer == 16 || transfer == 18;
}

struct Element {
  std::uint64_t id;
  Range content;
};

// MP4 and QuickTime: boxes in boxes.
class Boxes {
 public:
  Boxes(const Input& input, FilmFacts* facts) : input_(input), facts_(facts) {}

  void Read(const Range& range, int level = 0);

 private:
  std::optional<Element> BoxAt(const Range& range) const;
  void Visit(const Element& box, int level);
  void ReadLength(const Range& range, std::uint64_t afterTimes);
  void ReadSampleEntries(const Range& range, int level);

  const Input& input_;
  FilmFacts* facts_;
  int visited_ = 0;
  bool isVideoTrack_ = false;
};

constexpr std::uint64_t Name(const char (&name)[5]) {
  std::uint64_t number = 0;
  for (int i = 0; i < 4; ++i) number = number << 8 | static_cast<unsigned char>(name[i]);
  return number;
}

std::optional<Element> Boxes::BoxAt(const Range& range) const {
  if (range.Size() < 8) return std::nullopt;
  std::uint64_t size = NumberAt(input_, range, 0, 4);
  const std::uint64_t header = size == 1 ? 16 : 8;
  if (size == 1) size = NumberAt(input_, range, 8, 8);
  if (size == 0) size = range.Size();
  if (size < header || size > range.Size()) return std::nullopt;
  return Element{NumberAt(input_, range, 4, 4), {range.begin + header, range.begin + size}};
}

void Boxes::Read(const Range& range, int level) {
  if (level > mostLevels) return;
  Range rest = range;
  while (const std::optional<Element> box = BoxAt(rest)) {
    if (++visited_ > mostElements) return;
    Visit(*box, level);
    if (level == 0 && box->id == Name("moov")) return;  // thousands of fragments may follow
    rest.begin = box->content.end;
  }
}

void Boxes::Visit(const Element& box, int level) {
  const Range& content = box.content;
  switch (box.id) {
    case Name("trak"):
      isVideoTrack_ = false;
      return Read(content, level + 1);
    case Name("moov"):
    case Name("mdia"):
    case Name("minf"):
    case Name("stbl"):
    case Name("udta"):
    case Name("ilst"):
      return Read(content, level + 1);
    case Name("meta"):
      return Read(NumberAt(input_, content, 4, 4) == Name("hdlr") ? content : content.From(4), level + 1);
    case Name("mvhd"):
      return ReadLength(content, NumberAt(input_, content, 0, 1) == 1 ? 20 : 12);
    case Name("hdlr"):
      isVideoTrack_ = isVideoTrack_ || NumberAt(input_, content, 8, 4) == Name("vide");
      return;
    case Name("stsd"):
      if (isVideoTrack_) ReadSampleEntries(content.From(8), level);
      return;
    case Name("colr"):
      facts_->isHdr = facts_->isHdr || IsHdrTransfer(ShortAt(input_, content, 6));
      return;
    case Name("covr"):
      facts_->hasCover = true;
      return;
    default:
      return;
  }
}

void Boxes::ReadLength(const Range& range, std::uint64_t afterTimes) {
  const auto scale = static_cast<double>(NumberAt(input_, range, afterTimes, 4));
  const std::size_t bytes = afterTimes == 20 ? 8 : 4;
  const std::uint64_t length = NumberAt(input_, range, afterTimes + 4, bytes);
  const bool isUnknown = length == (bytes == 8 ? ~0ULL : 0xFFFFFFFFULL);
  if (scale > 0 && !isUnknown) facts_->seconds = static_cast<double>(length) / scale;
}

void Boxes::ReadSampleEntries(const Range& range, int level) {
  const std::optional<Element> entry = BoxAt(range);
  if (!entry) return;
  if (facts_->width == 0) {
    facts_->width = ShortAt(input_, entry->content, 24);
    facts_->height = ShortAt(input_, entry->content, 26);
  }
  Read(entry->content.From(78), level + 1);
}

// Matroska and WebM: elements in elements.
class Elements {
 public:
  Elements(const Input& input, FilmFacts* facts) : input_(input), facts_(facts) {}

  void Read(const Range& range, int level = 0);

 private:
  std::uint64_t VariableAt(Range* range, bool keepsMarker) const;
  std::optional<Element> ElementAt(Range range) const;
  void Visit(const Element& element, int level);
  void ReadLength(const Range& range);
  std::uint64_t Number(const Range& range) const {
    return NumberAt(input_, range, 0, static_cast<std::size_t>(std::min<std::uint64_t>(range.Size(), 8)));
  }

  const Input& input_;
  FilmFacts* facts_;
  int visited_ = 0;
  bool isAtEnd_ = false;
  double nanosecondsPerTick_ = 1000000;
};

// The number of leading zero bits of the first byte tells how many bytes follow it. Moves the range behind it; returns
// 0 if there is none.
std::uint64_t Elements::VariableAt(Range* range, bool keepsMarker) const {
  const std::uint64_t first = NumberAt(input_, *range, 0, 1);
  std::size_t bytes = 1;
  while (bytes <= 8 && (first & (0x100U >> bytes)) == 0) ++bytes;
  if (bytes > 8 || bytes > range->Size()) return 0;
  const std::uint64_t number = NumberAt(input_, *range, 0, bytes);
  range->begin += bytes;
  return keepsMarker ? number : number & ((std::uint64_t{1} << (7 * bytes)) - 1);
}

// One of unknown size reaches to the end, as do the segments of broadcasts.
std::optional<Element> Elements::ElementAt(Range range) const {
  const std::uint64_t id = VariableAt(&range, true);
  const std::uint64_t before = range.begin;
  const std::uint64_t size = VariableAt(&range, false);
  if (id == 0 || range.begin == before) return std::nullopt;
  return Element{id, {range.begin, range.begin + std::min(size, range.Size())}};
}

void Elements::Read(const Range& range, int level) {
  Range rest = range;
  while (!isAtEnd_ && level <= mostLevels && rest.Size() > 0) {
    const std::optional<Element> element = ElementAt(rest);
    if (!element || ++visited_ > mostElements) return;
    Visit(*element, level);
    rest.begin = element->content.end;
  }
}

void Elements::Visit(const Element& element, int level) {
  const Range& content = element.content;
  switch (element.id) {
    case 0x1F43B675:  // Cluster: what follows is the film itself
      isAtEnd_ = true;
      return;
    case 0x18538067:  // Segment
    case 0x1549A966:  // Info
    case 0x1654AE6B:  // Tracks
    case 0xAE:        // TrackEntry
    case 0xE0:        // Video
    case 0x55B0:      // Colour
    case 0x1941A469:  // Attachments
    case 0x61A7:      // AttachedFile
      return Read(content, level + 1);
    case 0x2AD7B1:  // TimestampScale
      nanosecondsPerTick_ = static_cast<double>(Number(content));
      return;
    case 0x4489:  // Duration
      return ReadLength(content);
    case 0xB0:  // PixelWidth
      facts_->width = static_cast<std::uint32_t>(Number(content));
      return;
    case 0xBA:  // PixelHeight
      facts_->height = static_cast<std::uint32_t>(Number(content));
      return;
    case 0x55BA:  // TransferCharacteristics
      facts_->isHdr = facts_->isHdr || IsHdrTransfer(Number(content));
      return;
    case 0x4660:                                                                                 // FileMimeType
      facts_->hasCover = facts_->hasCover || NumberAt(input_, content, 0, 6) == 0x696D6167652F;  // "image/"
      return;
    default:
      return;
  }
}

// A float or a double, in ticks. TimestampScale comes first in the files of all common programs.
void Elements::ReadLength(const Range& range) {
  const std::uint64_t bits = Number(range);
  double ticks = 0;
  if (range.Size() == 8) std::memcpy(&ticks, &bits, sizeof ticks);
  if (range.Size() == 4) {
    const auto half = static_cast<std::uint32_t>(bits);
    float value = 0;
    std::memcpy(&value, &half, sizeof value);
    ticks = value;
  }
  const double seconds = ticks * nanosecondsPerTick_ / 1e9;
  if (std::isfinite(seconds) && seconds > 0) facts_->seconds = seconds;
}

}  // namespace

FilmFacts ReadFilmFacts(const std::string& path) {
  FilmFacts facts;
  try {
    const Input input(path);
    const Range whole = {0, input.SizeInBytes()};
    constexpr std::uint64_t ebml = 0x1A45DFA3;
    if (NumberAt(input, whole, 0, 4) == ebml) {
      Elements(input, &facts).Read(whole);
    } else {
      Boxes(input, &facts).Read(whole);
    }
  } catch (const maker::Declined&) {
  }
  return facts;
}

}  // namespace tavithumb::apps
