// SPDX-License-Identifier: GPL-3.0-or-later
#include "maker/decode/raw_previews.h"

#include <algorithm>
#include <string>
#include <string_view>

namespace tavithumb::maker {
namespace {

using namespace std::string_view_literals;

// More than the JPEG of any camera.
constexpr std::uint64_t kMaxJpegBytes = std::uint64_t{64} << 20;

std::string Read(const Input& input, std::uint64_t offset, std::uint64_t count) {
  std::string bytes(static_cast<std::size_t>(count), '\0');
  bytes.resize(input.ReadAt(offset, bytes.data(), bytes.size()));
  return bytes;
}

std::uint64_t Number(const Input& input, std::uint64_t offset, std::uint64_t size) {
  std::uint64_t number = 0;
  for (const char byte : Read(input, offset, size)) number = number << 8 | static_cast<unsigned char>(byte);
  return number;
}

void AddJpeg(const Input& input, std::uint64_t begin, std::uint64_t size, RawPreviews* previews) {
  const std::uint64_t whole = input.SizeInBytes();
  if (size == 0 || size > kMaxJpegBytes || begin >= whole || size > whole - begin) return;
  std::vector<std::uint8_t> jpeg(static_cast<std::size_t>(size));
  if (input.ReadAt(begin, jpeg.data(), jpeg.size()) == jpeg.size()) previews->jpegs.push_back(std::move(jpeg));
}

struct Box {
  std::string type;
  std::uint64_t begin;  // of its content
  std::uint64_t end;
};

// A CR3 is made of boxes like a video: the previews are in boxes of Canon's own, and the first track is a JPEG of full
// size.
class Cr3Walk {
 public:
  explicit Cr3Walk(const Input& input) : input_(input) {}

  RawPreviews Run() {
    Enter({"", 0, input_.SizeInBytes()}, 0, 0);
    AddJpeg(input_, trackBegin_, trackSize_, &previews_);
    return std::move(previews_);
  }

 private:
  static constexpr int kMaxDepth = 8;
  static constexpr int kMaxBoxes = 256;

  // Visits the boxes in `parent`, from `skipped` bytes after its start.
  void Enter(const Box& parent, std::uint64_t skipped, int depth) {
    std::uint64_t at = parent.begin + skipped;
    while (at + 8 <= parent.end && depth < kMaxDepth && ++boxes_ <= kMaxBoxes) {
      std::uint64_t header = 8;
      std::uint64_t size = Number(input_, at, 4);
      if (size == 0) size = parent.end - at;
      if (size == 1) {
        header = 16;
        size = Number(input_, at + 8, 8);
      }
      if (size < header || size > parent.end - at) return;
      Visit({Read(input_, at + 4, 4), at + header, at + size}, depth + 1);
      at += size;
    }
  }

  void Visit(const Box& box, int depth) {
    if (box.type == "moov" || box.type == "trak" || box.type == "mdia" || box.type == "minf" || box.type == "stbl") {
      Enter(box, 0, depth);
    } else if (box.type == "uuid") {
      VisitUuid(box, depth);
    } else if (box.type == "THMB" || box.type == "PRVW") {
      AddJpegIn(box);
    } else if (box.type == "CMT1") {
      ReadOrientation(box);
    } else if (box.type == "stsz" && trackSize_ == 0) {
      trackSize_ = Number(input_, box.begin + 4, 4);
      if (trackSize_ == 0) trackSize_ = Number(input_, box.begin + 12, 4);
    } else if (box.type == "co64" && trackBegin_ == 0) {
      trackBegin_ = Number(input_, box.begin + 8, 8);
    }
  }

  void VisitUuid(const Box& box, int depth) {
    const std::string uuid = Read(input_, box.begin, 16);
    if (uuid == "\x85\xC0\xB6\x87\x82\x0F\x11\xE0\x81\x11\xF4\xCE\x46\x2B\x6A\x48"sv) Enter(box, 16, depth);
    if (uuid == "\xEA\xF4\x2B\x5E\x1C\x98\x4B\x88\xB9\xFB\xB7\xDC\x40\x6E\x4D\x16"sv) Enter(box, 24, depth);
  }

  // A few numbers come first, differently many in different cameras.
  void AddJpegIn(const Box& box) {
    const std::size_t start = Read(input_, box.begin, 32).find("\xFF\xD8\xFF"sv);
    if (start != std::string::npos) AddJpeg(input_, box.begin + start, box.end - box.begin - start, &previews_);
  }

  // The box is a small TIFF, with the least significant byte first.
  void ReadOrientation(const Box& box) {
    constexpr Orientation kOrientations[] = {{0, false}, {0, true},  {2, false}, {2, true},
                                             {3, true},  {1, false}, {1, true},  {3, false}};
    std::string tiff = Read(input_, box.begin, std::min<std::uint64_t>(box.end - box.begin, 4096));
    if (tiff.substr(0, 8) != "II*\0\x08\0\0\0"sv) return;
    for (std::size_t field = 10; field + 12 <= tiff.size(); field += 12) {
      if (tiff.compare(field, 2, "\x12\x01") != 0) continue;
      const auto value = static_cast<unsigned char>(tiff[field + 8]);
      if (value >= 1 && value <= 8) previews_.orientation = kOrientations[value - 1];
      return;
    }
  }

  const Input& input_;
  int boxes_ = 0;
  std::uint64_t trackBegin_ = 0;
  std::uint64_t trackSize_ = 0;
  RawPreviews previews_;
};

}  // namespace

RawPreviews ReadRawPreviews(const Input& input) {
  const std::string start = Read(input, 0, 12);
  if (start.size() == 12 && start.substr(4) == "ftypcrx "sv) return Cr3Walk(input).Run();
  RawPreviews previews;
  if (start.substr(0, 8) == "FUJIFILM"sv) AddJpeg(input, Number(input, 84, 4), Number(input, 88, 4), &previews);
  return previews;
}

}  // namespace tavithumb::maker
