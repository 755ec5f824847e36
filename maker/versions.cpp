// SPDX-License-Identifier: GPL-3.0-or-later
#include "maker/versions.h"

#include <gif_lib.h>
#include <jpeglib.h>
#include <jxl/decode.h>
#include <lcms2.h>
#include <libdeflate.h>
#include <libheif/heif.h>
#include <libraw/libraw.h>
#include <tiffio.h>
#include <webp/decode.h>
#include <zlib.h>

#include <string>

namespace tavithumb::maker {
namespace {

constexpr char kDigits[] = "0123456789";

#define TAVITHUMB_TEXT_OF(macro) TAVITHUMB_TEXT(macro)
#define TAVITHUMB_TEXT(text) #text

std::string Numbers(unsigned major, unsigned minor, unsigned patch) {
  return std::to_string(major) + "." + std::to_string(minor) + "." + std::to_string(patch);
}

// The first number in a text, with dots and digits: "4.5.0" in "LIBTIFF, Version 4.5.0\nCopyright ...".
std::string VersionIn(const std::string& text) {
  const std::size_t start = text.find_first_of(kDigits);
  if (start == std::string::npos) return text;
  return text.substr(start, text.find_first_not_of(kDigits + std::string("."), start) - start);
}

void AddHeifDecoder(heif_compression_format format, const char* type, std::vector<Version>* versions) {
  const heif_decoder_descriptor* decoder = nullptr;
  if (heif_get_decoder_descriptors(format, &decoder, 1) < 1) {
    versions->push_back({std::string(type) + " decoder", "not found"});
    return;
  }
  versions->push_back({std::string(type) + " decoder", heif_decoder_descriptor_get_name(decoder)});
}

}  // namespace

std::vector<Version> CodecVersions() {
  const auto webp = static_cast<unsigned>(WebPGetDecoderVersion());
  const unsigned jxl = JxlDecoderVersion();
  std::vector<Version> versions = {
      {"libjpeg-turbo", TAVITHUMB_TEXT_OF(LIBJPEG_TURBO_VERSION)},
      {"zlib", zlibVersion()},
      {"libdeflate", LIBDEFLATE_VERSION_STRING},
      {"libtiff", VersionIn(TIFFGetVersion())},
      {"giflib", Numbers(GIFLIB_MAJOR, GIFLIB_MINOR, GIFLIB_RELEASE)},
      {"libwebp", Numbers(webp >> 16, webp >> 8 & 0xFF, webp & 0xFF)},
      {"libjxl", Numbers(jxl / 1000000, jxl / 1000 % 1000, jxl % 1000)},
      {"libraw", VersionIn(LibRaw::version())},
      {"lcms2",
       std::to_string(cmsGetEncodedCMMversion() / 1000) + "." + std::to_string(cmsGetEncodedCMMversion() % 1000 / 10)},
      {"libheif", heif_get_version()},
  };
  heif_init(nullptr);  // loads the plugins
  AddHeifDecoder(heif_compression_HEVC, "HEIC", &versions);
  AddHeifDecoder(heif_compression_AV1, "AVIF", &versions);
  heif_deinit();
  return versions;
}

}  // namespace tavithumb::maker
