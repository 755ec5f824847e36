// SPDX-License-Identifier: GPL-3.0-or-later
#include "photos.h"

#include <filesystem>

#include "pictures.h"
#include "temp_dir.h"

namespace tavithumb::proof {
namespace {

constexpr int kWidth = 1200, kHeight = 800;
constexpr std::uintmax_t kWorthConverting = 700000;

void Turn(const std::string& path) {
  test::SetExif(path, {{"Exif.Image.Orientation", "6"}});
}

}  // namespace

void MakeBigJpeg(const std::string& path) {
  test::MakeJpeg(path, kWidth, kHeight);
  std::filesystem::resize_file(path, kWorthConverting);
}

void MakeTurnedJpeg(const std::string& path) {
  test::MakeJpeg(path, kWidth, kHeight);
  Turn(path);
  std::filesystem::resize_file(path, kWorthConverting);
}

void MakeJpegWithPreview(const std::string& path) {
  const test::TempDir folder;
  test::MakeJpeg(folder / "preview.jpg", 180, 120);
  test::MakeJpeg(path, kWidth, kHeight);
  test::SetPreview(path, folder / "preview.jpg");
}

void MakeTurnedJpegWithPreview(const std::string& path) {
  MakeJpegWithPreview(path);
  Turn(path);
}

void MakeRawPhoto(const std::string& path) {
  const test::TempDir folder;
  test::MakeJpeg(folder / "preview.jpg", kWidth, kHeight);
  test::MakeRaf(path, folder / "preview.jpg");
}

}  // namespace tavithumb::proof
