// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace tavithumb::test {

// Small pictures, made with the real tools. Each throws std::runtime_error if its tool fails. All show the same
// scene, different in every corner and not mirror-symmetric, so that a rotation or a mirroring shows.

void MakeJpeg(const std::string& path, int width, int height);
void MakePng(const std::string& path, int width, int height);
void MakeBmp(const std::string& path, int width, int height);
void MakeTiff(const std::string& path, int width, int height);
// An animation of `frames` frames.
void MakeGif(const std::string& path, int width, int height, int frames);
// HEIC; with an Exif block as its first metadata block, or without any metadata.
void MakeHeic(const std::string& path, int width, int height, bool withExif);
// A camera raw container (RAF) with the JPEG at `jpegPath` as its preview, for Exiv2 and dcraw alike.
void MakeRaf(const std::string& path, const std::string& jpegPath);

// Sets Exif values of a JPEG, by Exiv2's keys: {{"Exif.Image.Orientation", "6"}}.
void SetExif(const std::string& path, const std::vector<std::pair<std::string, std::string>>& values);
// Stores a JPEG in the Exif block of another as its embedded preview.
void SetPreview(const std::string& path, const std::string& previewPath);

// Tests need the same pictures hundreds of times: `draw` draws the one of this name into the file that it gets, once
// per build, and `path` becomes a copy. Users who can't write to the build draw it each time.
void DrawOnce(const std::string& name, const std::string& path, const std::function<void(const std::string&)>& draw);

// What a picture file really is, by its content.
struct PictureFacts {
  std::string format;  // ImageMagick's name: "JPEG", "PNG", "GIF", "BMP3", "TIFF", "HEIC"
  int width;
  int height;
  int frames;
};
PictureFacts Identify(const std::string& path);

// The distance of two pictures, both scaled to 32 x 32 pixels RGB first: the mean absolute difference over all
// channels, 0 (equal) to 1. About 0.02 for the same picture scaled by different tools; more than 0.1 if rotated.
double Difference(const std::string& a, const std::string& b);

// Runs a program and waits; returns its standard output. Throws std::runtime_error if it does not exit with 0.
std::string RunTool(const std::vector<std::string>& argv);

// The folder of real camera files: $TAVITHUMB_SAMPLES, else the default set by the build; "" if there is none.
std::string SamplesFolder();

}  // namespace tavithumb::test
