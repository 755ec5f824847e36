// SPDX-License-Identifier: GPL-3.0-or-later
#include "maker/decode/decoders.h"

#include <algorithm>
#include <string>
#include <string_view>

#include "maker/declined.h"

namespace tavithumb::maker {
namespace {

using namespace std::string_view_literals;

struct Magic {
  std::size_t offset;
  std::string_view bytes;
  Format format;
};

// The first row that fits wins.
constexpr Magic kMagics[] = {
    {0, "\xFF\xD8\xFF"sv, Format::kJpeg},
    {0, "\x89PNG\r\n\x1A\n"sv, Format::kPng},
    {0, "GIF87a"sv, Format::kGif},
    {0, "GIF89a"sv, Format::kGif},
    {0, "\xFF\x0A"sv, Format::kJxl},
    {0, "\0\0\0\x0CJXL \r\n\x87\n"sv, Format::kJxl},
    {0, "FUJIFILM"sv, Format::kRaw},  // RAF
    {0, "FOVb"sv, Format::kRaw},      // X3F
    {0, "\0MRM"sv, Format::kRaw},     // MRW
    {0, "IIRO"sv, Format::kRaw},      // ORF
    {0, "IIRS"sv, Format::kRaw},
    {0, "MMOR"sv, Format::kRaw},
    {0, "IIU\0"sv, Format::kRaw},     // RW2
    {6, "HEAPCCDR"sv, Format::kRaw},  // CRW
    {25, "ARECOYK"sv, Format::kRaw},  // Kyocera
    {8, "CR\2\0"sv, Format::kRaw},    // CR2, a TIFF otherwise
    {0, "II*\0"sv, Format::kTiff},
    {0, "MM\0*"sv, Format::kTiff},
    {0, "II+\0\x08\0\0\0"sv, Format::kTiff},  // BigTIFF
    {0, "MM\0+\0\x08\0\0"sv, Format::kTiff},
};

constexpr std::string_view kHeifBrands[] = {"heic"sv, "heix"sv, "heim"sv, "heis"sv, "hevc"sv, "hevx"sv, "hevm"sv,
                                            "hevs"sv, "mif1"sv, "mif2"sv, "msf1"sv, "avif"sv, "avis"sv, "miaf"sv};
constexpr std::string_view kCr3Brand = "crx "sv;

std::uint32_t BigEndian(std::string_view bytes) {
  std::uint32_t number = 0;
  for (const char byte : bytes.substr(0, 4)) number = number << 8 | static_cast<unsigned char>(byte);
  return number;
}

// The brands of an ISO base media file; none of any other.
std::vector<std::string_view> BrandsOf(std::string_view start) {
  const std::string_view box = start.substr(0, BigEndian(start));
  std::vector<std::string_view> brands;
  if (box.size() < 12 || box.substr(4, 4) != "ftyp"sv) return brands;
  // A version follows the first.
  for (std::size_t at = 8; at + 4 <= box.size(); at += at == 8 ? 8 : 4) brands.push_back(box.substr(at, 4));
  return brands;
}

bool IsHeif(std::string_view brand) {
  return std::find(std::begin(kHeifBrands), std::end(kHeifBrands), brand) != std::end(kHeifBrands);
}

// A video has brands, too: others.
std::optional<Format> FormatOfBrands(std::string_view start) {
  const std::vector<std::string_view> brands = BrandsOf(start);
  if (brands.empty()) return {};
  if (brands.front() == kCr3Brand) return Format::kRaw;
  if (std::any_of(brands.begin(), brands.end(), IsHeif)) return Format::kHeif;
  return {};
}

// By the coding of the pictures in a HEIF container.
const char* HeifTypeOf(std::string_view start) {
  const std::vector<std::string_view> brands = BrandsOf(start);
  const auto have = [&brands](std::string_view prefix) {
    return std::any_of(brands.begin(), brands.end(),
                       [prefix](std::string_view brand) { return brand.substr(0, 3) == prefix; });
  };
  if (have("avi"sv)) return "image/avif";
  return have("hei"sv) || have("hev"sv) ? "image/heic" : "image/heif";
}

// As much as tells the format.
struct Start {
  explicit Start(const Input& input) : size(input.ReadAt(0, buffer, sizeof buffer)) {}
  std::string_view Text() const { return {buffer, size}; }

  char buffer[256] = {};
  std::size_t size;
};

// Any text may begin with "BM": the size of the second header, of which there are few, must fit as well.
bool IsBmp(std::string_view start) {
  constexpr int kHeaderSizes[] = {12, 16, 40, 52, 56, 64, 108, 124};
  return start.size() > 18 && start.substr(0, 2) == "BM"sv && start.substr(15, 3) == "\0\0\0"sv &&
         std::find(std::begin(kHeaderSizes), std::end(kHeaderSizes), start[14]) != std::end(kHeaderSizes);
}

// Reads as much of a TIFF as tells a camera's raw file from a photo: its first directory, and those below that.
class TiffProbe {
 public:
  TiffProbe(const Input& input, bool isBigEndian) : input_(input), isBigEndian_(isBigEndian) {}

  bool IsCameraRaw() const {
    const std::string first = Read(Number(Read(4, 4), 0, 4), kDirectoryBytes);
    if (IsRaw(first)) return true;
    const std::vector<std::uint32_t> subdirectories = SubdirectoriesOf(first);
    return std::any_of(subdirectories.begin(), subdirectories.end(),
                       [this](std::uint32_t offset) { return IsRaw(Read(offset, kDirectoryBytes)); });
  }

 private:
  static constexpr std::size_t kFieldBytes = 12;
  // The number of fields, and as many of them as any camera writes.
  static constexpr std::size_t kDirectoryBytes = 2 + 256 * kFieldBytes;
  static constexpr std::size_t kMaxSubdirectories = 8;

  enum Tag : std::uint32_t { kCompression = 259, kPhotometric = 262, kSubdirectories = 330, kDngVersion = 50706 };

  bool IsRaw(const std::string& directory) const {
    for (std::size_t field = 2; field < EndOf(directory); field += kFieldBytes) {
      if (FieldIsRaw(Number(directory, field, 2), Number(directory, field + 8, 2))) return true;
    }
    return false;
  }

  static bool FieldIsRaw(std::uint32_t tag, std::uint32_t value) {
    switch (tag) {
      case kDngVersion:
        return true;
      case kPhotometric:
        return value == 32803 || value == 34892;  // a colour filter array, or linear samples
      case kCompression:
        return value == 32767 || value == 34713 || value == 65000 || value == 65535;  // of the makers
      default:
        return false;
    }
  }

  std::vector<std::uint32_t> SubdirectoriesOf(const std::string& directory) const {
    std::vector<std::uint32_t> offsets;
    for (std::size_t field = 2; field < EndOf(directory); field += kFieldBytes) {
      if (Number(directory, field, 2) != kSubdirectories) continue;
      const std::size_t count = std::min<std::size_t>(Number(directory, field + 4, 4), kMaxSubdirectories);
      const std::string list =
          count == 1 ? directory.substr(field + 8, 4) : Read(Number(directory, field + 8, 4), 4 * count);
      for (std::size_t at = 0; at + 4 <= list.size(); at += 4) offsets.push_back(Number(list, at, 4));
      break;
    }
    return offsets;
  }

  // Where the last whole field ends.
  std::size_t EndOf(const std::string& directory) const {
    if (directory.size() < 2) return 0;
    const std::size_t whole = (directory.size() - 2) / kFieldBytes;
    return 2 + kFieldBytes * std::min<std::size_t>(whole, Number(directory, 0, 2));
  }

  std::string Read(std::uint32_t offset, std::size_t count) const {
    std::string bytes(count, '\0');
    bytes.resize(input_.ReadAt(offset, bytes.data(), count));
    return bytes;
  }

  // 0 beyond the end.
  std::uint32_t Number(const std::string& bytes, std::size_t at, std::size_t size) const {
    std::uint32_t number = 0;
    for (std::size_t i = 0; i < size && at + size <= bytes.size(); ++i) {
      const std::size_t next = isBigEndian_ ? at + i : at + size - 1 - i;
      number = number << 8 | static_cast<unsigned char>(bytes[next]);
    }
    return number;
  }

  const Input& input_;
  bool isBigEndian_;
};

std::optional<Format> FormatOfMagic(std::string_view start) {
  for (const Magic& magic : kMagics) {
    if (start.size() >= magic.offset && start.substr(magic.offset, magic.bytes.size()) == magic.bytes) {
      return magic.format;
    }
  }
  return {};
}

}  // namespace

std::optional<Format> FormatOf(const Input& input) {
  const Start read(input);
  const std::string_view start = read.Text();
  if (start.size() < 12) return {};
  if (IsBmp(start)) return Format::kBmp;
  if (start.substr(0, 4) == "RIFF"sv && start.substr(8, 4) == "WEBP"sv) return Format::kWebp;
  if (const std::optional<Format> format = FormatOfBrands(start)) return format;
  const std::optional<Format> format = FormatOfMagic(start);
  if (format != Format::kTiff) return format;
  return TiffProbe(input, start[0] == 'M').IsCameraRaw() ? Format::kRaw : Format::kTiff;
}

std::string MimeTypeOf(const Input& input) {
  const std::optional<Format> format = FormatOf(input);
  if (!format) return "";
  switch (*format) {
    case Format::kJpeg:
      return "image/jpeg";
    case Format::kPng:
      return "image/png";
    case Format::kGif:
      return "image/gif";
    case Format::kBmp:
      return "image/x-ms-bmp";
    case Format::kTiff:
      return "image/tiff";
    case Format::kWebp:
      return "image/webp";
    case Format::kHeif:
      return HeifTypeOf(Start(input).Text());
    case Format::kJxl:
      return "image/jxl";
    case Format::kRaw:
      break;
  }
  return FormatOfBrands(Start(input).Text()) ? "image/x-canon-cr3" : "image/x-raw";
}

Picture Decoder::DecodePreview(std::size_t /*index*/, Size /*atLeast*/) {
  throw Declined(Reason::kUnsupported, "the file has no preview");
}

std::unique_ptr<Decoder> OpenDecoder(const Input& input) {
  const std::optional<Format> format = FormatOf(input);
  if (!format) throw Declined(Reason::kUnknownType, "the content is of no known type");
  switch (*format) {
    case Format::kJpeg:
      return OpenJpeg(input);
    case Format::kPng:
      return OpenPng(input);
    case Format::kGif:
      return OpenGif(input);
    case Format::kBmp:
      return OpenBmp(input);
    case Format::kTiff:
      return OpenTiff(input);
    case Format::kWebp:
      return OpenWebp(input);
    case Format::kHeif:
      return OpenHeif(input);
    case Format::kJxl:
      return OpenJxl(input);
    case Format::kRaw:
      return OpenRaw(input);
  }
  throw Declined(Reason::kUnknownType, "the content is of no known type");
}

}  // namespace tavithumb::maker
