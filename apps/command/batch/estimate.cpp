// SPDX-License-Identifier: GPL-3.0-or-later
#include "command/batch/estimate.h"

#include <sys/stat.h>
#include <tavithumb/util.h>

#include <map>

#include "thumbs/kinds.h"

namespace tavithumb::apps::command {
namespace {

// Measured: for each file, and for each of its megabytes.
struct Cost {
  double file;
  double megabyte;
};

constexpr Cost jpeg = {4, 27}, heif = {40, 550}, bitmap = {2, 20};
// Its embedded preview is decoded, which is a small part of it.
constexpr Cost raw = {40, 2};
// Its still is looked for by its length, not read up to.
constexpr Cost film = {250, 0};

Cost CostOf(const std::string& extension) {
  static const std::map<std::string, Cost> costs = {
      {"jpg", jpeg},     {"jpeg", jpeg},  {"jpe", jpeg},     {"heic", heif},    {"heif", heif},
      {"hif", heif},     {"avif", heif},  {"jxl", {4, 330}}, {"gif", {2, 500}}, {"png", {2, 60}},
      {"webp", {3, 60}}, {"bmp", bitmap}, {"tif", bitmap},   {"tiff", bitmap}};
  const auto cost = costs.find(extension);
  return cost == costs.end() ? raw : cost->second;
}

}  // namespace

double ExpectedMilliseconds(const std::string& name, std::uint64_t bytes) {
  const Cost cost = IsFilm(name) ? film : CostOf(file::GetFileExt(name));
  return cost.file + cost.megabyte * static_cast<double>(bytes) / 1e6;
}

double ExpectedMilliseconds(const std::string& path) {
  struct stat record = {};
  if (stat(path.c_str(), &record) != 0) return ExpectedMilliseconds(path, 0);
  return ExpectedMilliseconds(path, static_cast<std::uint64_t>(record.st_size));
}

}  // namespace tavithumb::apps::command
