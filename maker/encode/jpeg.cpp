// SPDX-License-Identifier: GPL-3.0-or-later
#include <algorithm>
#include <array>
#include <cstring>

#include "maker/encode/encode.h"
#include "maker/encode/huffman.h"
#include "maker/jpeg_errors.h"

namespace tavithumb::maker {
namespace {

constexpr std::size_t kMaxPlanes = 3;
constexpr std::size_t kMaxRows = std::size_t{2} * DCTSIZE;

// What libjpeg is to get of a plane at a time, a row of blocks: whole blocks, the last ones filled up with copies of
// the plane's edge, so that they compress well.
struct Strip {
  const Plane* plane = nullptr;
  int rows = 0;
  Plane filled;  // has no samples if all blocks of the plane are whole in its rows

  void Prepare(const Plane& of, int rowsOfBlocks);
  JSAMPROW Row(int strip, int row);
};

int WholeBlocks(int width) {
  return (width + DCTSIZE - 1) / DCTSIZE * DCTSIZE;
}

void Strip::Prepare(const Plane& of, int rowsOfBlocks) {
  plane = &of;
  rows = rowsOfBlocks;
  const int width = WholeBlocks(of.Width());
  if (width != of.Width()) filled = Plane({width, rows});
}

JSAMPROW Strip::Row(int strip, int row) {
  const std::uint8_t* source = plane->Row(std::min(strip * rows + row, plane->Height() - 1));
  if (filled.Height() == 0) return const_cast<JSAMPROW>(source);  // libjpeg only reads it
  const auto width = static_cast<std::size_t>(plane->Width());
  std::uint8_t* target = filled.Row(row);
  std::memcpy(target, source, width);
  std::memset(target + width, source[width - 1], static_cast<std::size_t>(filled.Width()) - width);
  return target;
}

// What is to be encoded.
struct Job {
  Size size;
  int quality = 0;
  bool isGray = false;
  int factor = 1;  // of the resolution of Y to that of Cb and Cr
  std::array<Strip, kMaxPlanes> planes;

  Job(const Picture& picture, int jpegQuality);
  int LinesOfStrip() const { return factor * DCTSIZE; }
  int Strips() const { return (size.height + LinesOfStrip() - 1) / LinesOfStrip(); }
};

Job::Job(const Picture& picture, int jpegQuality)
    : size(picture.channels[0].plane.Dimensions()), quality(jpegQuality), isGray(picture.model == Model::kGray) {
  if (!isGray && picture.channels[1].plane.Dimensions() != size) factor = 2;
  for (std::size_t i = 0; i < picture.channels.size(); ++i) {
    planes[i].Prepare(picture.channels[i].plane, i == 0 ? LinesOfStrip() : DCTSIZE);
  }
}

// Which strips: all, or a sample of them.
struct Selection {
  int first = 0;
  int every = 1;
};

int HeightOf(const Job& job, Selection selection) {
  if (selection.every == 1) return job.size.height;
  return (job.Strips() - selection.first + selection.every - 1) / selection.every * job.LinesOfStrip();
}

// libjpeg's state, and the memory that it writes into.
struct Compressor {
  JpegErrors errors;
  jpeg_compress_struct jpeg = {};
  unsigned char* bytes = nullptr;
  unsigned long size = 0;

  Compressor();
  ~Compressor();
  Compressor(const Compressor&) = delete;
  Compressor& operator=(const Compressor&) = delete;

  template <typename Step>
  void Run(Step step) {
    if (!Completes(errors, step)) ThrowError(reinterpret_cast<j_common_ptr>(&jpeg));
  }
  void Configure(const Job& job, Selection selection);
  void Write(Job* job, Selection selection);
};

Compressor::Compressor() {
  jpeg.err = errors.Prepare();
  Run([this] {
    jpeg_create_compress(&jpeg);
    jpeg_mem_dest(&jpeg, &bytes, &size);
  });
}

Compressor::~Compressor() {
  jpeg_destroy_compress(&jpeg);
  std::free(bytes);
}

void Compressor::Configure(const Job& job, Selection selection) {
  jpeg.image_width = static_cast<JDIMENSION>(job.size.width);
  jpeg.image_height = static_cast<JDIMENSION>(HeightOf(job, selection));
  jpeg.in_color_space = job.isGray ? JCS_GRAYSCALE : JCS_YCbCr;
  jpeg.input_components = job.isGray ? 1 : 3;
  Run([this, &job] {
    jpeg_set_defaults(&jpeg);
    jpeg_set_quality(&jpeg, job.quality, TRUE);
  });
  jpeg.comp_info[0].h_samp_factor = job.factor;
  jpeg.comp_info[0].v_samp_factor = job.factor;
  jpeg.raw_data_in = TRUE;
  jpeg.optimize_coding = TRUE;
  jpeg.dct_method = JDCT_ISLOW;
}

// Called within Completes().
void WriteStrips(j_compress_ptr jpeg, Job* job, Selection selection) {
  std::array<std::array<JSAMPROW, kMaxRows>, kMaxPlanes> rows = {};
  std::array<JSAMPARRAY, kMaxPlanes> planes = {rows[0].data(), rows[1].data(), rows[2].data()};
  jpeg_start_compress(jpeg, TRUE);
  const auto count = static_cast<std::size_t>(jpeg->num_components);
  for (int strip = selection.first; jpeg->next_scanline < jpeg->image_height; strip += selection.every) {
    for (std::size_t i = 0; i < count; ++i) {
      Strip* plane = &job->planes[i];
      for (int row = 0; row < plane->rows; ++row) rows[i][static_cast<std::size_t>(row)] = plane->Row(strip, row);
    }
    jpeg_write_raw_data(jpeg, planes.data(), static_cast<JDIMENSION>(job->LinesOfStrip()));
  }
  jpeg_finish_compress(jpeg);
}

void Compressor::Write(Job* job, Selection selection) {
  Run([&] { WriteStrips(&jpeg, job, selection); });
}

// Tables from a sample ------------------------------------------------------------------------------------------------

// libjpeg counts all symbols for its tables in half of the time that it needs to encode. For a large picture, some of
// its strips tell nearly as much.
constexpr std::int64_t kSampledPixels = 200000;
constexpr Selection kSample = {4, 8};

// The symbols of baseline JPEG: a number of bits, and of the zeros before.
Weights SymbolsOfDc() {
  Weights weights = {};
  std::fill_n(weights.begin(), 12, 1);
  return weights;
}

Weights SymbolsOfAc() {
  Weights weights = {};
  for (std::size_t zeros = 0; zeros < 16; ++zeros)
    std::fill_n(weights.begin() + static_cast<std::ptrdiff_t>(16 * zeros) + 1, 10, 1);
  weights[0x00] = weights[0xF0] = 1;
  return weights;
}

// A table like that of a sample, with codes for the symbols that the sample didn't have. How often the others occur is
// told by the lengths of their codes.
void Complete(const JHUFF_TBL& sample, Weights weights, JHUFF_TBL* table) {
  std::size_t next = 0;
  for (unsigned bits = 1; bits <= 16; ++bits) {
    for (int i = 0; i < sample.bits[bits]; ++i) weights[sample.huffval[next++]] = 4U << (16 - bits);
  }
  const HuffmanTable best = BestTable(weights);
  std::copy(best.counts.begin(), best.counts.end(), std::begin(table->bits));
  std::copy(best.symbols.begin(), best.symbols.end(), std::begin(table->huffval));
}

void UseTablesOfSample(Job* job, jpeg_compress_struct* jpeg) {
  Compressor sample;
  sample.Configure(*job, kSample);
  sample.Write(job, kSample);
  const int tables = job->isGray ? 1 : 2;
  for (int i = 0; i < tables; ++i) {
    Complete(*sample.jpeg.dc_huff_tbl_ptrs[i], SymbolsOfDc(), jpeg->dc_huff_tbl_ptrs[i]);
    Complete(*sample.jpeg.ac_huff_tbl_ptrs[i], SymbolsOfAc(), jpeg->ac_huff_tbl_ptrs[i]);
  }
  jpeg->optimize_coding = FALSE;
}

}  // namespace

std::vector<std::uint8_t> EncodeJpeg(const Picture& picture, int quality) {
  Job job(picture, quality);
  Compressor compressor;
  compressor.Configure(job, {});
  const bool isLarge = std::int64_t{job.size.width} * job.size.height >= kSampledPixels;
  if (isLarge && job.Strips() > kSample.first) UseTablesOfSample(&job, &compressor.jpeg);
  compressor.Write(&job, {});
  return {compressor.bytes, compressor.bytes + compressor.size};
}

}  // namespace tavithumb::maker
