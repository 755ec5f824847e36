// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <string>
#include <vector>

namespace tavithumb::test {

// Small pictures of the types that only the programs know, with the scene of pictures.h. Each throws std::runtime_error
// if it can't be made.

void MakeWebp(const std::string& path, int width, int height);
void MakeAvif(const std::string& path, int width, int height);
// `orientation` is the Exif value; the scene is stored as it is.
void MakeJxl(const std::string& path, int width, int height, int orientation = 1);
// What cameras name .hif: HEIC.
void MakeHif(const std::string& path, int width, int height);

// The JPEG previews of a CR3, and its Exif orientation.
struct Cr3Parts {
  std::string small;
  std::string medium;
  std::string full;
  int orientation;
};
// A CR3 without raw data.
std::string Cr3Of(const Cr3Parts& parts);
// With the scene as its full preview.
void MakeCr3(const std::string& path, int width, int height, int orientation = 1);

// One way to make each of these types, and its MIME type.
struct ModernType {
  const char* extension;
  const char* mimeType;
  void (*make)(const std::string& path, int width, int height);
};
const std::vector<ModernType>& ModernTypes();

}  // namespace tavithumb::test
