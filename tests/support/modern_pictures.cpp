// SPDX-License-Identifier: GPL-3.0-or-later
#include "modern_pictures.h"

#include <jxl/encode.h>

#include <cstdint>
#include <filesystem>
#include <memory>
#include <stdexcept>

#include "pictures.h"
#include "temp_dir.h"

namespace tavithumb::test {
namespace {

using namespace std::string_literals;

struct FreeEncoder {
  void operator()(JxlEncoder* encoder) const { JxlEncoderDestroy(encoder); }
};

void Check(JxlEncoderStatus status) {
  if (status != JXL_ENC_SUCCESS) throw std::runtime_error("libjxl cannot write the picture");
}

JxlBasicInfo InfoOf(int width, int height, int orientation) {
  JxlBasicInfo info;
  JxlEncoderInitBasicInfo(&info);
  info.xsize = static_cast<std::uint32_t>(width);
  info.ysize = static_cast<std::uint32_t>(height);
  info.bits_per_sample = 8;
  info.num_color_channels = 3;
  info.orientation = static_cast<JxlOrientation>(orientation);
  return info;
}

std::string OutputOf(JxlEncoder* encoder) {
  std::string file(1 << 22, '\0');
  auto* next = reinterpret_cast<std::uint8_t*>(file.data());
  std::size_t left = file.size();
  Check(JxlEncoderProcessOutput(encoder, &next, &left));
  file.resize(file.size() - left);
  return file;
}

std::string SizeText(int width, int height) {
  return std::to_string(width) + "x" + std::to_string(height);
}

std::string BigEndian(std::uint64_t number, int size) {
  std::string bytes;
  for (int shift = 8 * (size - 1); shift >= 0; shift -= 8) bytes.push_back(static_cast<char>(number >> shift & 0xFF));
  return bytes;
}

std::string Box(const std::string& type, const std::string& content) {
  return BigEndian(8 + content.size(), 4) + type + content;
}

void DrawJxl(const std::string& path, int width, int height, int orientation) {
  const TempDir directory;
  MakePng(directory / "scene.png", width, height);
  const std::string samples = RunTool({"/usr/bin/convert", directory / "scene.png", "-depth", "8", "rgb:-"});
  const std::unique_ptr<JxlEncoder, FreeEncoder> encoder(JxlEncoderCreate(nullptr));
  const JxlBasicInfo info = InfoOf(width, height, orientation);
  Check(JxlEncoderSetBasicInfo(encoder.get(), &info));
  JxlColorEncoding srgb;
  JxlColorEncodingSetToSRGB(&srgb, JXL_FALSE);
  Check(JxlEncoderSetColorEncoding(encoder.get(), &srgb));
  JxlEncoderFrameSettings* settings = JxlEncoderFrameSettingsCreate(encoder.get(), nullptr);
  JxlEncoderFrameSettingsSetOption(settings, JXL_ENC_FRAME_SETTING_EFFORT, 3);
  const JxlPixelFormat format = {3, JXL_TYPE_UINT8, JXL_NATIVE_ENDIAN, 0};
  Check(JxlEncoderAddImageFrame(settings, &format, samples.data(), samples.size()));
  JxlEncoderCloseInput(encoder.get());
  WriteFile(path, OutputOf(encoder.get()));
}

}  // namespace

void MakeWebp(const std::string& path, int width, int height) {
  DrawOnce("webp " + SizeText(width, height), path, [&](const std::string& target) {
    const TempDir directory;
    MakePng(directory / "scene.png", width, height);
    RunTool({"/usr/bin/convert", directory / "scene.png", "-quality", "90", "webp:" + target});
  });
}

void MakeAvif(const std::string& path, int width, int height) {
  DrawOnce("avif " + SizeText(width, height), path, [&](const std::string& target) {
    const TempDir directory;
    MakeJpeg(directory / "scene.jpg", width, height);
    RunTool({"/usr/bin/heif-enc", "-A", "-q", "80", directory / "scene.jpg", "-o", target});
  });
}

void MakeJxl(const std::string& path, int width, int height, int orientation) {
  DrawOnce("jxl " + SizeText(width, height) + " " + std::to_string(orientation), path,
           [&](const std::string& target) { DrawJxl(target, width, height, orientation); });
}

void MakeHif(const std::string& path, int width, int height) {
  const TempDir directory;
  MakeHeic(directory / "scene.heic", width, height, true);
  std::filesystem::copy_file(directory / "scene.heic", path);
}

std::string Cr3Of(const Cr3Parts& parts) {
  const std::string canon = "\x85\xC0\xB6\x87\x82\x0F\x11\xE0\x81\x11\xF4\xCE\x46\x2B\x6A\x48";
  const std::string preview = "\xEA\xF4\x2B\x5E\x1C\x98\x4B\x88\xB9\xFB\xB7\xDC\x40\x6E\x4D\x16";
  const std::string tiff = "II*\0\x08\0\0\0\x02\0"s + "\x10\x01\x03\0\x01\0\0\0\0\0\0\0"s +
                           "\x12\x01\x03\0\x01\0\0\0"s + static_cast<char>(parts.orientation) + "\0\0\0\0\0\0\0"s;
  const std::string metadata =
      Box("uuid", canon + Box("CMT1", tiff) + Box("THMB", std::string(16, '\0') + parts.small));
  const std::string previews =
      Box("uuid", preview + std::string(8, '\0') + Box("PRVW", std::string(16, '\0') + parts.medium));
  const std::string type = Box("ftyp", "crx \0\0\0\1crx isom"s);
  const auto movie = [&](std::uint64_t offset) {
    const std::string sizes = Box("stsz", BigEndian(0, 4) + BigEndian(parts.full.size(), 4) + BigEndian(1, 4));
    const std::string offsets = Box("co64", BigEndian(0, 4) + BigEndian(1, 4) + BigEndian(offset, 8));
    const std::string track = Box("trak", Box("mdia", Box("minf", Box("stbl", sizes + offsets))));
    return Box("moov", metadata + track);
  };
  const std::string start = type + movie(0) + previews;
  return type + movie(start.size() + 8) + previews + Box("mdat", parts.full);
}

void MakeCr3(const std::string& path, int width, int height, int orientation) {
  const TempDir directory;
  MakeJpeg(directory / "full.jpg", width, height);
  const std::string full = ReadFile(directory / "full.jpg");
  MakeJpeg(directory / "small.jpg", 160, 120);
  const std::string small = ReadFile(directory / "small.jpg");
  WriteFile(path, Cr3Of({small, full, full, orientation}));
}

const std::vector<ModernType>& ModernTypes() {
  static const std::vector<ModernType> types = {
      {"webp", "image/webp", MakeWebp},
      {"avif", "image/avif", MakeAvif},
      {"jxl", "image/jxl", [](const std::string& path, int width, int height) { MakeJxl(path, width, height); }},
      {"hif", "image/heic", MakeHif},
      {"cr3", "image/x-canon-cr3",
       [](const std::string& path, int width, int height) { MakeCr3(path, width, height); }},
      {"heic", "image/heic",
       [](const std::string& path, int width, int height) { MakeHeic(path, width, height, false); }},
  };
  return types;
}

}  // namespace tavithumb::test
