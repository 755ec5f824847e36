// SPDX-License-Identifier: GPL-3.0-or-later
#include "bomb_files.h"

#include <zlib.h>

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <utility>

#include "pictures.h"
#include "temp_dir.h"

namespace fs = std::filesystem;

namespace tavithumb::proof {
namespace {

constexpr std::uint32_t kBlockBytes = 300000000;

std::string Big(std::uint64_t number, int bytes) {
  std::string text;
  for (int shift = 8 * (bytes - 1); shift >= 0; shift -= 8) text.push_back(static_cast<char>(number >> shift & 0xFF));
  return text;
}

std::string Little(std::uint64_t number, int bytes) {
  const std::string big = Big(number, bytes);
  return {big.rbegin(), big.rend()};
}

// `size` zero bytes, with the highest compression.
std::string DeflatedZeros(std::size_t size) {
  z_stream stream = {};
  if (deflateInit(&stream, Z_BEST_COMPRESSION) != Z_OK) throw std::runtime_error("deflateInit");
  std::string zeros(1 << 20, '\0'), packed, piece(1 << 16, '\0');
  while (size > 0 || stream.avail_out == 0) {
    if (stream.avail_in == 0) {
      stream.next_in = reinterpret_cast<Bytef*>(zeros.data());
      stream.avail_in = static_cast<uInt>(std::min(size, zeros.size()));
      size -= stream.avail_in;
    }
    stream.next_out = reinterpret_cast<Bytef*>(piece.data());
    stream.avail_out = static_cast<uInt>(piece.size());
    deflate(&stream, size == 0 ? Z_FINISH : Z_NO_FLUSH);
    packed.append(piece, 0, piece.size() - stream.avail_out);
  }
  deflateEnd(&stream);
  return packed;
}

std::string PngChunk(const std::string& type, const std::string& data) {
  const std::string body = type + data;
  const uLong sum = crc32(0, reinterpret_cast<const Bytef*>(body.data()), static_cast<uInt>(body.size()));
  return Big(data.size(), 4) + body + Big(sum, 4);
}

// Black and white, all of it black.
void MakePngOfManyPixels(const std::string& path) {
  constexpr std::uint32_t side = 30000;
  const std::string header = Big(side, 4) + Big(side, 4) + std::string("\1\0\0\0\0", 5);
  test::WriteFile(path, "\x89PNG\r\n\x1a\n" + PngChunk("IHDR", header) +
                            PngChunk("IDAT", DeflatedZeros((side / 8 + 1) * std::size_t{side})) + PngChunk("IEND", ""));
}

// As many pixels as the programs decode at most, in four channels.
void MakePngAtTheLimit(const std::string& path) {
  constexpr std::uint32_t side = 11313;
  const std::string header = Big(side, 4) + Big(side, 4) + std::string("\x08\6\0\0\0", 5);
  test::WriteFile(path, "\x89PNG\r\n\x1a\n" + PngChunk("IHDR", header) +
                            PngChunk("IDAT", DeflatedZeros((4 * std::size_t{side} + 1) * side)) + PngChunk("IEND", ""));
}

// Larger than any policy allows, at no cost.
void MakePngOfNoPixels(const std::string& path) {
  const std::string header = Big(0x7FFFFFFF, 4) + Big(0x7FFFFFFF, 4) + std::string("\x08\6\0\0\0", 5);
  test::WriteFile(path, "\x89PNG\r\n\x1a\n" + PngChunk("IHDR", header) + PngChunk("IDAT", DeflatedZeros(100)) +
                            PngChunk("IEND", ""));
}

// An entry of a TIFF directory.
std::string TiffEntry(std::uint32_t tag, std::uint32_t type, std::uint32_t count, std::uint32_t value) {
  return Little(tag, 2) + Little(type, 2) + Little(count, 4) + Little(value, 4);
}

std::string TiffHead(const std::vector<std::string>& entries) {
  std::string head = std::string("II*\0", 4) + Little(8, 4) + Little(entries.size(), 2);
  for (const std::string& entry : entries) head += entry;
  return head + Little(0, 4);
}

void MakeTiffOfManyPixels(const std::string& path) {
  constexpr std::uint32_t side = 30000, offset = 200;
  const std::string pixels = DeflatedZeros(std::size_t{side} * side);
  std::string head =
      TiffHead({TiffEntry(256, 4, 1, side), TiffEntry(257, 4, 1, side), TiffEntry(258, 3, 1, 8),
                TiffEntry(259, 3, 1, 8), TiffEntry(262, 3, 1, 1), TiffEntry(273, 4, 1, offset), TiffEntry(277, 3, 1, 1),
                TiffEntry(278, 4, 1, side), TiffEntry(279, 4, 1, static_cast<std::uint32_t>(pixels.size()))});
  head.resize(offset);
  test::WriteFile(path, head + pixels);
}

// A picture of 8 x 8 pixels with a text of 300 MB in its Exif data.
void MakeTiffWithBigText(const std::string& path) {
  constexpr std::uint32_t offset = 200, text = 300;
  std::string head =
      TiffHead({TiffEntry(256, 4, 1, 8), TiffEntry(257, 4, 1, 8), TiffEntry(258, 3, 1, 8), TiffEntry(259, 3, 1, 1),
                TiffEntry(262, 3, 1, 1), TiffEntry(270, 2, kBlockBytes, text), TiffEntry(273, 4, 1, offset),
                TiffEntry(277, 3, 1, 1), TiffEntry(278, 4, 1, 8), TiffEntry(279, 4, 1, 64)});
  head.resize(text);
  test::WriteFile(path, head);
  fs::resize_file(path, text + kBlockBytes);
}

// A raw photo whose embedded JPEG claims to be 300 MB long; all except its start is a hole.
void MakeTiffWithBigPreview(const std::string& path) {
  constexpr std::uint32_t offset = 200, second = 400, preview = 1000;
  const test::TempDir folder;
  test::MakeJpeg(folder / "preview.jpg", 160, 120);
  std::string head = TiffHead({TiffEntry(256, 4, 1, 8), TiffEntry(257, 4, 1, 8), TiffEntry(258, 3, 1, 8),
                               TiffEntry(259, 3, 1, 1), TiffEntry(262, 3, 1, 1), TiffEntry(273, 4, 1, offset),
                               TiffEntry(277, 3, 1, 1), TiffEntry(278, 4, 1, 8), TiffEntry(279, 4, 1, 64)});
  head.replace(head.size() - 4, 4, Little(second, 4));
  head.resize(second);
  head += Little(3, 2) + TiffEntry(259, 3, 1, 6) + TiffEntry(513, 4, 1, preview) + TiffEntry(514, 4, 1, kBlockBytes) +
          Little(0, 4);
  head.resize(preview);
  test::WriteFile(path, head + test::ReadFile(folder / "preview.jpg"));
  fs::resize_file(path, preview + kBlockBytes);
}

// A chunk of 300 MB, all of it a hole.
void MakePngWithBigChunk(const std::string& path, const std::string& type) {
  const std::string header = Big(8, 4) + Big(8, 4) + std::string("\x08\0\0\0\0", 5);
  const std::string head = "\x89PNG\r\n\x1a\n" + PngChunk("IHDR", header);
  test::WriteFile(path, head + Big(kBlockBytes, 4) + type);
  fs::resize_file(path, head.size() + 8 + kBlockBytes + 4);
  std::ofstream(path, std::ios::binary | std::ios::app) << PngChunk("IDAT", DeflatedZeros(72)) + PngChunk("IEND", "");
}

void MakePngWithBigExif(const std::string& path) {
  MakePngWithBigChunk(path, "eXIf");
}

void MakePngWithBigText(const std::string& path) {
  MakePngWithBigChunk(path, "iTXt");
}

// A photo with a maker note of 300 MB.
void MakeTiffWithBigMakerNote(const std::string& path) {
  constexpr std::uint32_t offset = 200, exif = 400, note = 600;
  std::string head =
      TiffHead({TiffEntry(256, 4, 1, 8), TiffEntry(257, 4, 1, 8), TiffEntry(258, 3, 1, 8), TiffEntry(259, 3, 1, 1),
                TiffEntry(262, 3, 1, 1), TiffEntry(273, 4, 1, offset), TiffEntry(277, 3, 1, 1), TiffEntry(278, 4, 1, 8),
                TiffEntry(279, 4, 1, 64), TiffEntry(34665, 4, 1, exif)});
  head.resize(exif);
  head += Little(1, 2) + TiffEntry(37500, 7, kBlockBytes, note) + Little(0, 4);
  head.resize(note);
  test::WriteFile(path, head);
  fs::resize_file(path, note + kBlockBytes);
}

void MakeBmpOf(const std::string& path, std::uint32_t side, std::uint32_t bits, std::uint32_t compression) {
  const std::string header = "BM" + Little(1000, 4) + Little(0, 4) + Little(54, 4) + Little(40, 4) + Little(side, 4) +
                             Little(side, 4) + Little(1, 2) + Little(bits, 2) + Little(compression, 4) +
                             std::string(20, '\0');
  test::WriteFile(path, header + std::string(1000, '\0'));
}

void MakeBmpOfNoPixels(const std::string& path) {
  MakeBmpOf(path, 0x7FFFFFFF, 24, 0);
}

void MakeBmpOfRuns(const std::string& path) {
  MakeBmpOf(path, 15000, 8, 1);
}

// Its header promises far more than its data contains.
void MakeJpegOfManyPixels(const std::string& path, const std::string& options) {
  const test::TempDir folder;
  const std::string small = folder / "small.jpg";
  test::RunTool({"/usr/bin/convert", "-size", "64x64", "xc:red", "-interlace", options, "jpg:" + small});
  std::string jpeg = test::ReadFile(small);
  const std::size_t frame = jpeg.find(options == "none" ? "\xFF\xC0" : "\xFF\xC2");
  if (frame == std::string::npos) throw std::runtime_error("no frame in " + small);
  jpeg.replace(frame + 5, 4, Big(65500, 2) + Big(65500, 2));
  test::WriteFile(path, jpeg);
  fs::resize_file(path, 300000000);  // large enough to be converted; a hole
}

void MakePlainJpeg(const std::string& path) {
  MakeJpegOfManyPixels(path, "none");
}

void MakeProgressiveJpeg(const std::string& path) {
  MakeJpegOfManyPixels(path, "JPEG");
}

void MakeJpegOfManyPreviews(const std::string& path) {
  test::MakeJpeg(path, 120, 80);
  const test::TempDir folder;
  for (int depth = 0; fs::file_size(path) < 60000; ++depth) {
    fs::rename(path, folder / "preview.jpg");
    test::MakeJpeg(path, 120 + depth, 80 + depth);
    test::SetPreview(path, folder / "preview.jpg");
  }
}

// Each frame is one dot on a screen of 4000 x 4000 pixels.
void MakeGifOfManyFrames(const std::string& path) {
  constexpr int frames = 3000;
  std::string gif =
      "GIF89a" + Little(4000, 2) + Little(4000, 2) + std::string("\x80\0\0", 3) + std::string("\0\0\0\xFF\xFF\xFF", 6);
  for (int frame = 0; frame < frames; ++frame) {
    gif += "," + Little(static_cast<std::uint64_t>(frame), 2) + Little(0, 2) + Little(1, 2) + Little(1, 2) +
           std::string("\0\2\2\x44\1\0", 6);
  }
  test::WriteFile(path, gif + ";");
}

std::string Box(const std::string& type, const std::string& content) {
  return Big(content.size() + 8, 4) + type + content;
}

std::string FullBox(const std::string& type, std::uint32_t versionAndFlags, const std::string& content) {
  return Box(type, Big(versionAndFlags, 4) + content);
}

// The content of the first box of a type, wherever it is.
std::string ContentOf(const std::string& file, const std::string& type) {
  const std::size_t at = file.find(type);
  if (at == std::string::npos || at < 4) throw std::runtime_error("no box " + type);
  std::size_t size = 0;
  for (std::size_t i = at - 4; i < at; ++i) size = size << 8 | static_cast<unsigned char>(file[i]);
  return file.substr(at + 4, size - 8);
}

// A picture of 64 x 64 pixels whose header promises far more.
void MakeHeifOfManyPixels(const std::string& path) {
  const test::TempDir folder;
  test::MakeHeic(folder / "small.heic", 64, 64, false);
  std::string heif = test::ReadFile(folder / "small.heic");
  heif.replace(heif.find("ispe") + 8, 8, Big(60000, 4) + Big(60000, 4));
  test::WriteFile(path, heif);
}

// Lossless, of one colour: 16383 x 16383 pixels are WebP's limit. The size is in the 28 bits behind the signature.
void MakeWebpOfManyPixels(const std::string& path) {
  const test::TempDir folder;
  const std::string small = folder / "small.webp";
  test::RunTool({"/usr/bin/convert", "-size", "64x64", "xc:red", "-define", "webp:lossless=true", small});
  std::string webp = test::ReadFile(small);
  const std::size_t signature = webp.find("VP8L") + 8;
  webp.replace(signature + 1, 4, Little(16382 | 16382 << 14, 4));
  test::WriteFile(path, webp);
}

std::string ItemInfo(std::uint32_t id, const std::string& type) {
  return FullBox("infe", 2 << 24, Big(id, 2) + Big(0, 2) + type + std::string(1, '\0'));
}

// 255 x 255 tiles, all of them the same one of 64 x 64 pixels, with an Exif block.
void MakeHeifOfManyTiles(const std::string& path) {
  const test::TempDir folder;
  test::MakeHeic(folder / "tile.heic", 64, 64, false);
  const std::string tile = test::ReadFile(folder / "tile.heic");
  const std::string pixels = ContentOf(tile, "mdat");
  const std::string grid = std::string("\0\1\xFE\xFE", 4) + Big(16320, 4) + Big(16320, 4);
  const std::string exif = Big(0, 4) + std::string("II*\0\x08\0\0\0\0\0", 10);
  const auto extents = [&](std::size_t start) {
    std::string locations = std::string("\x44\0\0\3", 4);
    for (const auto& [id, size] : {std::pair(1, grid.size()), std::pair(2, pixels.size()), std::pair(3, exif.size())}) {
      locations += Big(static_cast<std::uint64_t>(id), 2) + Big(0, 2) + Big(1, 2) + Big(start, 4) + Big(size, 4);
      start += size;
    }
    return FullBox("iloc", 0, locations);
  };
  std::string tiles;
  for (int i = 0; i < 65025; ++i) tiles += Big(2, 2);
  const std::string references =
      Box("dimg", Big(1, 2) + Big(65025, 2) + tiles) + Box("cdsc", Big(3, 2) + Big(1, 2) + Big(1, 2));
  const std::string properties =
      Box("ipco", Box("hvcC", ContentOf(tile, "hvcC")) + FullBox("ispe", 0, Big(64, 4) + Big(64, 4)) +
                      FullBox("ispe", 0, Big(16320, 4) + Big(16320, 4))) +
      FullBox("ipma", 0, Big(2, 4) + Big(1, 2) + "\1\x03" + Big(2, 2) + "\2\x81\x02");
  const auto meta = [&](std::size_t start) {
    return FullBox("meta", 0,
                   FullBox("hdlr", 0, Big(0, 4) + "pict" + std::string(13, '\0')) + FullBox("pitm", 0, Big(1, 2)) +
                       extents(start) +
                       FullBox("iinf", 0, Big(3, 2) + ItemInfo(1, "grid") + ItemInfo(2, "hvc1") + ItemInfo(3, "Exif")) +
                       FullBox("iref", 0, references) + Box("iprp", properties));
  };
  const std::string type = Box("ftyp", "heic" + Big(0, 4) + "mif1heic");
  const std::size_t start = type.size() + meta(0).size() + 8;
  test::WriteFile(path, type + meta(start) + Box("mdat", grid + pixels + exif));
}

}  // namespace

const std::vector<Bomb>& Bombs() {
  static const std::vector<Bomb> bombs = {
      {"PNG of 30000 x 30000 pixels", "png", MakePngOfManyPixels},
      {"PNG that says 2147483647 x 2147483647 pixels", "png", MakePngOfNoPixels},
      {"PNG of 11313 x 11313 pixels with transparency", "png", MakePngAtTheLimit},
      {"WebP that says 16383 x 16383 pixels", "jpg", MakeWebpOfManyPixels},
      {"HEIF that says 60000 x 60000 pixels", "heic", MakeHeifOfManyPixels},
      {"TIFF of 30000 x 30000 pixels", "tif", MakeTiffOfManyPixels},
      {"BMP that says 2147483647 x 2147483647 pixels", "bmp", MakeBmpOfNoPixels},
      {"BMP of runs, 15000 x 15000 pixels", "bmp", MakeBmpOfRuns},
      {"JPEG that says 65500 x 65500 pixels", "jpg", MakePlainJpeg, false},
      {"progressive JPEG that says 65500 x 65500 pixels", "jpg", MakeProgressiveJpeg},
      {"GIF of 3000 frames of 4000 x 4000 pixels", "gif", MakeGifOfManyFrames, false},
      {"HEIF of 65025 tiles", "heic", MakeHeifOfManyTiles},
      {"JPEG with a preview in the preview in the preview", "jpg", MakeJpegOfManyPreviews},
      {"TIFF with an Exif text of 300 MB", "tif", MakeTiffWithBigText, false},
      {"TIFF with a maker note of 300 MB", "tif", MakeTiffWithBigMakerNote},
      {"TIFF with a preview of 300 MB", "tif", MakeTiffWithBigPreview, false, true},
      {"PNG with an Exif block of 300 MB", "png", MakePngWithBigExif, true, true},
      {"PNG with a text of 300 MB", "png", MakePngWithBigText, false, true},
  };
  return bombs;
}

}  // namespace tavithumb::proof
