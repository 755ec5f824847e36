// SPDX-License-Identifier: GPL-3.0-or-later
#include <algorithm>
#include <array>
#include <cstring>

#include "maker/encode/encode.h"
#include "maker/jpeg_errors.h"

namespace tavithumb::maker {
namespace {

constexpr int kMaxPlanes = 3;
constexpr int kMaxRows = 2 * DCTSIZE;

// libjpeg's state, and the memory that it writes into.
struct Compressor {
  JpegErrors errors;
  jpeg_compress_struct jpeg = {};
  unsigned char* bytes = nullptr;
  unsigned long size = 0;

  Compressor() = default;
  ~Compressor();
  Compressor(const Compressor&) = delete;
  Compressor& operator=(const Compressor&) = delete;
};

Compressor::~Compressor() {
  jpeg_destroy_compress(&jpeg);
  std::free(bytes);
}

// What libjpeg is to get of a plane at a time, a row of blocks: whole blocks, the last ones filled up with copies of
// the plane's edge, so that they compress well.
struct Strip {
  const Plane* plane = nullptr;
  int rows = 0;
  Plane filled;  // has no samples if all blocks of the plane are whole in its rows

  void Prepare(const Plane& of, int rowsOfBlock);
  JSAMPROW Row(int step, int row);
};

int WholeBlocks(int width) {
  return (width + DCTSIZE - 1) / DCTSIZE * DCTSIZE;
}

void Strip::Prepare(const Plane& of, int rowsOfBlock) {
  plane = &of;
  rows = rowsOfBlock;
  const int width = WholeBlocks(of.Width());
  if (width != of.Width()) filled = Plane({width, rows});
}

JSAMPROW Strip::Row(int step, int row) {
  const std::uint8_t* source = plane->Row(std::min(step * rows + row, plane->Height() - 1));
  if (filled.Height() == 0) return const_cast<JSAMPROW>(source);  // libjpeg only reads it
  const auto width = static_cast<std::size_t>(plane->Width());
  std::uint8_t* target = filled.Row(row);
  std::memcpy(target, source, width);
  std::memset(target + width, source[width - 1], static_cast<std::size_t>(filled.Width()) - width);
  return target;
}

using Strips = std::array<Strip, kMaxPlanes>;

// Called within Completes().
void WritePlanes(j_compress_ptr jpeg, Strips* strips) {
  std::array<std::array<JSAMPROW, kMaxRows>, kMaxPlanes> rows = {};
  std::array<JSAMPARRAY, kMaxPlanes> planes = {rows[0].data(), rows[1].data(), rows[2].data()};
  jpeg_start_compress(jpeg, TRUE);
  const auto count = static_cast<std::size_t>(jpeg->num_components);
  for (int step = 0; jpeg->next_scanline < jpeg->image_height; ++step) {
    for (std::size_t i = 0; i < count; ++i) {
      Strip* strip = &(*strips)[i];
      for (int row = 0; row < strip->rows; ++row) rows[i][static_cast<std::size_t>(row)] = strip->Row(step, row);
    }
    jpeg_write_raw_data(jpeg, planes.data(), static_cast<JDIMENSION>(jpeg->max_v_samp_factor * DCTSIZE));
  }
  jpeg_finish_compress(jpeg);
}

// Called within Completes().
void Configure(j_compress_ptr jpeg, Size size, bool isGray, int factor, int quality) {
  jpeg->image_width = static_cast<JDIMENSION>(size.width);
  jpeg->image_height = static_cast<JDIMENSION>(size.height);
  jpeg->in_color_space = isGray ? JCS_GRAYSCALE : JCS_YCbCr;
  jpeg->input_components = isGray ? 1 : 3;
  jpeg_set_defaults(jpeg);
  jpeg_set_quality(jpeg, quality, TRUE);
  jpeg->comp_info[0].h_samp_factor = factor;
  jpeg->comp_info[0].v_samp_factor = factor;
  jpeg->raw_data_in = TRUE;
  jpeg->optimize_coding = TRUE;
  jpeg->dct_method = JDCT_ISLOW;
}

}  // namespace

std::vector<std::uint8_t> EncodeJpeg(const Picture& picture, int quality) {
  const std::vector<Channel>& channels = picture.channels;
  const bool isGray = picture.model == Model::kGray;
  const bool isHalved = !isGray && channels[1].plane.Dimensions() != channels[0].plane.Dimensions();
  const int factor = isHalved ? 2 : 1;
  Strips strips;
  for (std::size_t i = 0; i < channels.size(); ++i) {
    strips[i].Prepare(channels[i].plane, i == 0 ? factor * DCTSIZE : DCTSIZE);
  }
  Compressor compressor;
  j_compress_ptr jpeg = &compressor.jpeg;
  jpeg->err = compressor.errors.Prepare();
  const bool isComplete = Completes(compressor.errors, [&] {
    jpeg_create_compress(jpeg);
    jpeg_mem_dest(jpeg, &compressor.bytes, &compressor.size);
    Configure(jpeg, channels[0].plane.Dimensions(), isGray, factor, quality);
    WritePlanes(jpeg, &strips);
  });
  if (!isComplete) ThrowError(reinterpret_cast<j_common_ptr>(jpeg));
  return {compressor.bytes, compressor.bytes + compressor.size};
}

}  // namespace tavithumb::maker
