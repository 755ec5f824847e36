// SPDX-License-Identifier: GPL-3.0-or-later
#include "maker/decode/decoders.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "maker/declined.h"
#include "pictures.h"
#include "temp_dir.h"

namespace tavithumb::maker {
namespace {

using namespace std::string_literals;

std::optional<Format> FormatOfContent(const std::string& content) {
  return FormatOf(Input(Bytes{reinterpret_cast<const std::uint8_t*>(content.data()), content.size()}));
}

// Padded to the length that every check needs, which real files have.
std::string Padded(std::string start) {
  start.resize(300, '\0');
  return start;
}

std::string Printable(const std::string& content) {
  std::string text;
  for (const char letter : content.substr(0, 40)) text += letter >= ' ' && letter <= '~' ? letter : '.';
  return text;
}

// A number of `size` bytes.
std::string Number(std::uint32_t number, std::size_t size, bool isBigEndian) {
  std::string bytes;
  for (std::size_t i = 0; i < size; ++i) {
    const std::size_t byte = isBigEndian ? size - 1 - i : i;
    bytes.push_back(static_cast<char>(number >> (8 * byte) & 0xFF));
  }
  return bytes;
}

struct Field {
  std::uint32_t tag;
  std::uint32_t type;  // 3: 2 bytes, 4: 4 bytes
  std::uint32_t count;
  std::uint32_t value;
};

std::string Directory(const std::vector<Field>& fields, bool isBigEndian) {
  std::string bytes = Number(static_cast<std::uint32_t>(fields.size()), 2, isBigEndian);
  for (const Field& field : fields) {
    bytes +=
        Number(field.tag, 2, isBigEndian) + Number(field.type, 2, isBigEndian) + Number(field.count, 4, isBigEndian);
    const std::string value = Number(field.value, field.type == 3 ? 2 : 4, isBigEndian);
    bytes += value + std::string(4 - value.size(), '\0');
  }
  return bytes + Number(0, 4, isBigEndian);
}

// A TIFF whose first directory is at 8, and others wherever they are put.
std::string Tiff(bool isBigEndian, const std::vector<std::pair<std::size_t, std::vector<Field>>>& directories) {
  std::string bytes = (isBigEndian ? "MM\0*"s : "II*\0"s) + Number(8, 4, isBigEndian);
  for (const auto& [offset, fields] : directories) {
    bytes.resize(offset, '\0');
    bytes += Directory(fields, isBigEndian);
  }
  return Padded(bytes);
}

std::string Brands(const std::string& major, const std::string& others) {
  return Number(static_cast<std::uint32_t>(16 + others.size()), 4, true) + "ftyp" + major + "\0\0\0\0"s + others;
}

struct FormatRow {
  std::string content;
  std::optional<Format> format;
};

TEST(Formats, AreKnownByTheirFirstBytes) {
  const FormatRow rows[] = {
      {"\xFF\xD8\xFF\xE0", Format::kJpeg},
      {"\x89PNG\r\n\x1A\n", Format::kPng},
      {"GIF87a", Format::kGif},
      {"GIF89a", Format::kGif},
      {"BM\x9E\0\0\0\0\0\0\0\x1A\0\0\0\x0C\0\0\0"s, Format::kBmp},
      {"BM\x9E\0\0\0\0\0\0\0\x36\0\0\0\x28\0\0\0"s, Format::kBmp},
      {"BM\x9E\0\0\0\0\0\0\0\x8A\0\0\0\x7C\0\0\0"s, Format::kBmp},
      {"II*\0\x08\0\0\0"s, Format::kTiff},
      {"MM\0*\0\0\0\x08"s, Format::kTiff},
      {"II+\0\x08\0\0\0"s, Format::kTiff},
      {"MM\0+\0\x08\0\0"s, Format::kTiff},
      {"RIFF\x10\0\0\0WEBPVP8L"s, Format::kWebp},
      {"\xFF\x0A\x00\x10"s, Format::kJxl},
      {"\0\0\0\x0CJXL \r\n\x87\n"s, Format::kJxl},
      {"FUJIFILMCCD-RAW 0201", Format::kRaw},
      {"II*\0\x10\0\0\0CR\2\0"s, Format::kRaw},
      {"IIU\0\x18\0\0\0"s, Format::kRaw},
      {"IIRO\x08\0\0\0"s, Format::kRaw},
      {"IIRS\x08\0\0\0"s, Format::kRaw},
      {"MMOR\0\0\0\x08"s, Format::kRaw},
      {"II\x1A\0\0\0HEAPCCDR"s, Format::kRaw},
      {"FOVb\3\0\2\0"s, Format::kRaw},
      {"\0MRM\0\0\0\0"s, Format::kRaw},
      {std::string(25, '\0') + "ARECOYK", Format::kRaw},
  };
  for (const FormatRow& row : rows)
    EXPECT_EQ(FormatOfContent(Padded(row.content)), row.format) << Printable(row.content);
}

TEST(Formats, HaveMimeTypes) {
  const std::pair<std::string, const char*> rows[] = {
      {"\xFF\xD8\xFF\xE0", "image/jpeg"},
      {"\x89PNG\r\n\x1A\n", "image/png"},
      {"GIF89a", "image/gif"},
      {"BM\x9E\0\0\0\0\0\0\0\x36\0\0\0\x28\0\0\0"s, "image/x-ms-bmp"},
      {"II+\0\x08\0\0\0"s, "image/tiff"},
      {"RIFF\x10\0\0\0WEBPVP8L"s, "image/webp"},
      {"\xFF\x0A\x00\x10"s, "image/jxl"},
      {Brands("heic", "mif1"), "image/heic"},
      {Brands("mif1", "heix"), "image/heic"},
      {Brands("msf1", "hevc"), "image/heic"},
      {Brands("mif1", "miaf"), "image/heif"},
      {Brands("avif", "mif1"), "image/avif"},
      {Brands("mif1", "avif"), "image/avif"},
      {Brands("avis", "msf1"), "image/avif"},
      {Brands("crx ", "isom"), "image/x-canon-cr3"},
      {"FOVb\3\0\2\0"s, "image/x-raw"},
      {Brands("isom", "mp42"), ""},
      {"some text", ""},
  };
  for (const auto& [content, type] : rows) {
    const std::string file = Padded(content);
    const Input input(Bytes{reinterpret_cast<const std::uint8_t*>(file.data()), file.size()});
    EXPECT_EQ(MimeTypeOf(input), type) << Printable(content);
  }
}

TEST(Formats, OfIsoFilesAreKnownByTheirBrands) {
  const FormatRow rows[] = {
      {Brands("heic", "mif1"), Format::kHeif},
      {Brands("heix", "mif1"), Format::kHeif},
      {Brands("hevc", "msf1"), Format::kHeif},
      {Brands("mif1", ""), Format::kHeif},
      {Brands("avif", "mif1"), Format::kHeif},
      {Brands("avis", "msf1"), Format::kHeif},
      {Brands("abcd", "efghheic"), Format::kHeif},
      {Brands("crx ", "isom"), Format::kRaw},
      {Brands("isom", "iso2avc1mp41"), {}},
      {Brands("qt  ", "qt  "), {}},
      {Brands("isom", "") + "heic", {}},  // behind the list
      {"\0\0\0\x08"s + "ftypheic", {}},   // an empty list
  };
  for (const FormatRow& row : rows)
    EXPECT_EQ(FormatOfContent(Padded(row.content)), row.format) << Printable(row.content);
}

TEST(Formats, AreNotGuessed) {
  for (const std::string& content :
       {""s, "\xFF\xD8"s, "GIF90a"s, "BM is how a bitmap begins"s, "RIFF\x10\0\0\0WAVEfmt "s, "II\x2C"s,
        "not an image at all.\n"s, "<svg></svg>    "s}) {
    EXPECT_EQ(FormatOfContent(content), std::nullopt) << Printable(content);
    EXPECT_EQ(FormatOfContent(Padded(content)), std::nullopt) << Printable(content);
  }
}

TEST(Formats, TellCameraRawFromOtherTiffs) {
  struct {
    const char* what;
    std::vector<std::pair<std::size_t, std::vector<Field>>> directories;
    Format format;
  } const rows[] = {
      {"RGB", {{8, {{256, 3, 1, 30}, {259, 3, 1, 1}, {262, 3, 1, 2}}}}, Format::kTiff},
      {"LZW with a page below", {{8, {{259, 3, 1, 5}, {330, 4, 1, 100}}}, {100, {{262, 3, 1, 2}}}}, Format::kTiff},
      {"DNG", {{8, {{262, 3, 1, 2}, {50706, 1, 4, 0x01040000}}}}, Format::kRaw},
      {"colour filter array", {{8, {{262, 3, 1, 32803}}}}, Format::kRaw},
      {"linear raw", {{8, {{262, 3, 1, 34892}}}}, Format::kRaw},
      {"a maker's compression", {{8, {{259, 3, 1, 34713}}}}, Format::kRaw},
      {"the only one below", {{8, {{330, 4, 1, 100}}}, {100, {{262, 3, 1, 32803}}}}, Format::kRaw},
      {"below itself", {{8, {{330, 4, 1, 8}}}}, Format::kTiff},
      {"below beyond the end", {{8, {{330, 4, 1, 0xFFFFFFF0}}}}, Format::kTiff},
      {"many below beyond the end", {{8, {{330, 4, 0xFFFFFFFF, 0xFFFFFFF0}}}}, Format::kTiff},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(FormatOfContent(Tiff(false, row.directories)), row.format) << row.what;
    EXPECT_EQ(FormatOfContent(Tiff(true, row.directories)), row.format) << row.what;
  }
}

TEST(Formats, FindTheRawDataAmongSeveralDirectories) {
  for (const bool isBigEndian : {false, true}) {
    std::string file =
        Tiff(isBigEndian, {{8, {{330, 4, 2, 200}}}, {100, {{262, 3, 1, 2}}}, {150, {{262, 3, 1, 32803}}}});
    file.replace(200, 8, Number(100, 4, isBigEndian) + Number(150, 4, isBigEndian));
    EXPECT_EQ(FormatOfContent(file), Format::kRaw) << isBigEndian;
  }
}

TEST(Formats, OfTiffsCutOffAnywhereAreTiffOrRaw) {
  const std::string file = Tiff(false, {{8, {{330, 4, 1, 100}}}, {100, {{262, 3, 1, 32803}}}});
  for (std::size_t size = 12; size < file.size(); ++size) {
    const Format expected = size < 114 ? Format::kTiff : Format::kRaw;
    EXPECT_EQ(FormatOfContent(file.substr(0, size)), expected) << size;
  }
}

TEST(Formats, OfTheSampleFilesAreTheirContents) {
  const std::string samples = test::SamplesFolder();
  if (samples.empty()) GTEST_SKIP() << "no sample files";
  struct {
    const char* name;
    std::optional<Format> format;
  } const rows[] = {
      {"photos/nikon-d3100.jpg", Format::kJpeg},
      {"still/rgba.png", Format::kPng},
      {"still/rgb24.bmp", Format::kBmp},
      {"still/sample.tif", Format::kTiff},
      {"still/1.webp", Format::kWebp},
      {"gif/cogs.gif", Format::kGif},
      {"heic/no-exif.heic", Format::kHeif},
      {"heic/nokia-8.heif", Format::kHeif},
      {"raw/CanonRaw.cr2", Format::kRaw},
      {"raw/CanonRaw.crw", Format::kRaw},
      {"raw/FujiFilm.raf", Format::kRaw},
      {"raw/KyoceraRaw.raw", Format::kRaw},
      {"raw/Nikon.nef", Format::kRaw},
      {"raw/SigmaDP2.x3f", Format::kRaw},
      {"raw/nikon-d70s.nef", Format::kJpeg},
      {"broken/empty.jpg", {}},
      {"broken/text.heic", {}},
      {"../samples-more/modern/canon-r6.cr3", Format::kRaw},
      {"../samples-more/modern/grey.jxl", Format::kJxl},
      {"../samples-more/modern/sony.hif", Format::kHeif},
      {"../samples-more/modern/photo.avif", Format::kHeif},
      {"../samples-more/still/1bit.tif", Format::kTiff},
      {"../samples-more/video/phone.mp4", {}},
      {"../samples-more/video/phone.mov", {}},
  };
  for (const auto& row : rows) {
    const std::string path = samples + "/" + row.name;
    if (test::Exists(path)) {
      EXPECT_EQ(FormatOf(Input(path)), row.format) << path;
    }
  }
}

TEST(Decoders, AreChosenByContentWhateverTheName) {
  struct {
    void (*make)(const std::string&, int, int);
    const char* what;
  } const rows[] = {
      {test::MakeJpeg, "JPEG"},
      {test::MakePng, "PNG"},
      {test::MakeBmp, "BMP"},
      {test::MakeTiff, "TIFF"},
      {[](const std::string& path, int width, int height) { test::MakeGif(path, width, height, 1); }, "GIF"},
      {[](const std::string& path, int width, int height) { test::MakeHeic(path, width, height, false); }, "HEIC"},
  };
  const test::TempDir directory;
  for (const auto& row : rows) {
    const std::string path = directory / "picture.jpg";
    row.make(path, 160, 120);
    const Input input(path);
    EXPECT_EQ(OpenDecoder(input)->Head().stored, (Size{160, 120})) << row.what;
  }
}

TEST(Decoders, DeclineContentThatNoneKnows) {
  const std::string text = "not an image at all.\n";
  const Input input(Bytes{reinterpret_cast<const std::uint8_t*>(text.data()), text.size()});
  try {
    OpenDecoder(input);
    FAIL();
  } catch (const Declined& declined) {
    EXPECT_EQ(declined.Why(), Reason::kUnknownType);
  }
}

}  // namespace
}  // namespace tavithumb::maker
