// SPDX-License-Identifier: GPL-3.0-or-later
#include "thumbs/exif_details.h"

#include <tavithumb/thumb_info.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <exiv2/exiv2.hpp>
#include <initializer_list>
#include <mutex>
#include <vector>

#include "maker/maker.h"
#include "thumbs/facts_in_bounds.h"

namespace tavithumb::apps {
namespace {

constexpr std::size_t mostText = 64;

const Exiv2::Exifdatum* Find(const Exiv2::ExifData& exif, const char* key) {
  const auto found = exif.findKey(Exiv2::ExifKey(key));
  return found == exif.end() || found->count() == 0 ? nullptr : &*found;
}

// Cameras pad texts with spaces and zeros.
std::string TextOf(const Exiv2::ExifData& exif, const char* key) {
  const Exiv2::Exifdatum* const found = Find(exif, key);
  if (found == nullptr) return "";
  std::string text = found->toString().substr(0, mostText);
  text.resize(std::min(text.find('\0'), text.size()));
  text.resize(text.find_last_not_of(' ') + 1);
  return text;
}

// Exif has "2024:05:01 12:30:00", or zeros or spaces for a time that the camera did not know.
std::string TimeTaken(const Exiv2::ExifData& exif) {
  const std::string form = "0000:00:00 00:00:00";
  std::string time = TextOf(exif, "Exif.Photo.DateTimeOriginal");
  const auto fits = [](char a, char b) { return b == '0' ? std::isdigit(static_cast<unsigned char>(a)) != 0 : a == b; };
  if (time.size() != form.size() || !std::equal(time.begin(), time.end(), form.begin(), fits)) return "";
  if (time.compare(0, 4, "0000") == 0) return "";
  time[4] = time[7] = '-';
  time[10] = 'T';
  return time;
}

// 0 if it is unknown: an infinite or negative value is as well.
double NumberOf(const Exiv2::ExifData& exif, const char* key, unsigned index = 0) {
  const Exiv2::Exifdatum* const found = Find(exif, key);
  if (found == nullptr || index >= static_cast<std::size_t>(found->count())) return 0;
  const auto [numerator, denominator] = found->toRational(index);
  return denominator == 0 ? 0 : std::max(0.0, static_cast<double>(numerator) / denominator);
}

// With at most one decimal place.
std::string Short(double number) {
  std::array<char, 32> text = {};
  static_cast<void>(
      std::snprintf(text.data(), text.size(), "%.*f", std::abs(number - std::round(number)) < 0.05 ? 0 : 1, number));
  return text.data();
}

std::string SecondsOf(double time) {
  return time < 0.3 ? "1/" + Short(std::round(1 / time)) + " s" : Short(time) + " s";
}

std::string ExposureOf(const Exiv2::ExifData& exif) {
  const double time = NumberOf(exif, "Exif.Photo.ExposureTime"), aperture = NumberOf(exif, "Exif.Photo.FNumber");
  const double sensitivity = NumberOf(exif, "Exif.Photo.ISOSpeedRatings");
  const double focalLength = NumberOf(exif, "Exif.Photo.FocalLength");
  std::string exposure;
  for (const std::string& part :
       {time > 0 ? SecondsOf(time) : "", aperture > 0 ? "f/" + Short(aperture) : "",
        sensitivity > 0 ? "ISO " + Short(sensitivity) : "", focalLength > 0 ? Short(focalLength) + " mm" : ""}) {
    if (!part.empty()) exposure += (exposure.empty() ? "" : ", ") + part;
  }
  return exposure;
}

// Degrees, minutes and seconds; nothing but degrees of at most `most`, with a letter that says which side they are on.
bool ReadDegrees(const Exiv2::ExifData& exif, const std::string& name, char negative, double most, double* degrees) {
  const std::string key = "Exif.GPSInfo.GPS" + name;
  const Exiv2::Exifdatum* const found = Find(exif, key.c_str());
  const std::string side = TextOf(exif, (key + "Ref").c_str());
  if (found == nullptr || found->count() != 3 || side.empty()) return false;
  const auto part = [&](unsigned index) { return NumberOf(exif, key.c_str(), index); };
  *degrees = part(0) + part(1) / 60 + part(2) / 3600;
  if (side.front() == negative) *degrees = -*degrees;
  return std::abs(*degrees) <= most;
}

std::string PlaceOf(const Exiv2::ExifData& exif) {
  double north = 0, east = 0;
  const bool isKnown =
      ReadDegrees(exif, "Latitude", 'S', 90, &north) && ReadDegrees(exif, "Longitude", 'W', 180, &east);
  if (!isKnown || (north == 0 && east == 0)) return "";  // a receiver that knew nothing yet
  std::array<char, 48> text = {};
  static_cast<void>(std::snprintf(text.data(), text.size(), "%.5f, %.5f", north, east));
  return text.data();
}

Exiv2::ExifData ExifOf(const std::string& path) {
  const std::vector<std::uint8_t> ofHeif = maker::ReadExif(path);
  Exiv2::ExifData exif;
  if (!ofHeif.empty()) {
    Exiv2::ExifParser::decode(exif, ofHeif.data(), static_cast<std::uint32_t>(ofHeif.size()));
    return exif;
  }
  const auto image = Exiv2::ImageFactory::open(path, true);
  image->readMetadata();
  return image->exifData();
}

ExifDetails DetailsOf(const Exiv2::ExifData& exif) {
  return {TextOf(exif, "Exif.Image.Make"),
          TextOf(exif, "Exif.Image.Model"),
          TimeTaken(exif),
          TextOf(exif, "Exif.Photo.LensModel"),
          ExposureOf(exif),
          PlaceOf(exif)};
}

}  // namespace

ExifDetails ReadExifDetails(const std::string& path) {
  ExifDetails details;
  ReadInBounds([&] {
    const std::lock_guard<std::mutex> lock(ThumbInfo::exiv2_mutex_);
    try {
      details = DetailsOf(ExifOf(path));
    } catch (const Exiv2::Error&) {  // no file that Exiv2 knows, or a damaged one
    }
  });
  return details;
}

std::string Exiv2Version() {
  return Exiv2::versionString();
}

}  // namespace tavithumb::apps
