// SPDX-License-Identifier: GPL-3.0-or-later
#include <webp/decode.h>
#include <webp/demux.h>

#include <algorithm>
#include <cmath>

#include "maker/declined.h"
#include "maker/decode/decoders.h"
#include "maker/decode/interleaved.h"
#include "maker/limits.h"

namespace tavithumb::maker {
namespace {

// libwebp scales by area. What is scaled again to half of that or less keeps its quality; less saves no time.
constexpr double kMargin = 2.0;
constexpr double kLeastReduction = 0.75;

constexpr int kLossless = 2;  // what libwebp calls the format

// The size to decode.
Size ScaledSize(Size stored, Size atLeast) {
  const double scale = kMargin * std::max(static_cast<double>(atLeast.width) / stored.width,
                                          static_cast<double>(atLeast.height) / stored.height);
  if (scale > kLeastReduction) return stored;
  return {static_cast<int>(std::ceil(stored.width * scale)), static_cast<int>(std::ceil(stored.height * scale))};
}

struct DeleteDemuxer {
  void operator()(WebPDemuxer* demuxer) const { WebPDemuxDelete(demuxer); }
};
using Demuxer = std::unique_ptr<WebPDemuxer, DeleteDemuxer>;

struct DeleteIncremental {
  void operator()(WebPIDecoder* decoder) const { WebPIDelete(decoder); }
};

// The first frame's place in the file and on the canvas.
struct Frame {
  WebPData data = {};
  int left = 0;
  int top = 0;
  Size size;
};

// Interleaved pixels.
struct Pixels {
  Size size;
  std::size_t channels = 3;
  std::vector<std::uint8_t> bytes;
  bool isCutOff = false;

  std::size_t Stride() const { return static_cast<std::size_t>(size.width) * channels; }
};

class WebpDecoder : public Decoder {
 public:
  explicit WebpDecoder(const Input& input) : file_(input.ReadAll(kMaxFileBytes)) {
    const WebPData data = {file_.data(), file_.size()};
    WebPDemuxState state = WEBP_DEMUX_PARSE_ERROR;
    demuxer_.reset(WebPDemuxPartial(&data, &state));
    if (!demuxer_) throw Declined(Reason::kDamaged, "the WebP header is damaged");
    header_.stored = {Number(WEBP_FF_CANVAS_WIDTH), Number(WEBP_FF_CANVAS_HEIGHT)};
    CheckStoredSize(header_.stored);
    FindFrame();
  }

  const Header& Head() const override { return header_; }
  bool IsAnimated() const override { return Number(WEBP_FF_FRAME_COUNT) > 1; }
  Picture Decode(Size atLeast) override;

 private:
  int Number(WebPFormatFeature feature) const { return static_cast<int>(WebPDemuxGetI(demuxer_.get(), feature)); }
  // A frame of an animation may cover only a part of the canvas: the rest is transparent.
  bool IsWhole() const { return frame_.size == header_.stored; }
  bool HasAlpha() const { return !IsWhole() || features_.has_alpha != 0; }
  bool IsOutOfMemory(VP8StatusCode status) const;
  void FindFrame();
  Pixels DecodeFrame(Size size) const;
  void DecodeStart(WebPDecoderConfig* config) const;
  void ReadProfile(Picture* picture) const;

  std::vector<std::uint8_t> file_;
  Demuxer demuxer_;
  Header header_;
  Frame frame_;
  WebPBitstreamFeatures features_ = {};
};

void WebpDecoder::FindFrame() {
  WebPIterator place = {};
  if (WebPDemuxGetFrame(demuxer_.get(), 1, &place) == 0) throw Declined(Reason::kDamaged, "there is no picture");
  frame_ = {place.fragment, place.x_offset, place.y_offset, {place.width, place.height}};
  WebPDemuxReleaseIterator(&place);
  if (WebPGetFeatures(frame_.data.bytes, frame_.data.size, &features_) != VP8_STATUS_OK) {
    throw Declined(Reason::kDamaged, "the first frame is damaged");
  }
  if (frame_.size != Size{features_.width, features_.height}) {
    throw Declined(Reason::kDamaged, "the first frame has another size");
  }
  // A lossless picture is held in memory as a whole.
  if (features_.format == kLossless) CheckDecodedSize(frame_.size);
}

// libwebp 1.5 reports damaged alpha beside lossy colours as a lack of memory, though decoding that takes little.
bool WebpDecoder::IsOutOfMemory(VP8StatusCode status) const {
  const bool mayBeDamagedAlpha = features_.format != kLossless && features_.has_alpha != 0;
  return status == VP8_STATUS_OUT_OF_MEMORY && !mayBeDamagedAlpha;
}

// Of a cut-off frame, the rows that there are.
void WebpDecoder::DecodeStart(WebPDecoderConfig* config) const {
  const std::unique_ptr<WebPIDecoder, DeleteIncremental> decoder(WebPIDecode(nullptr, 0, config));
  if (!decoder) throw std::bad_alloc();
  const VP8StatusCode status = WebPIUpdate(decoder.get(), frame_.data.bytes, frame_.data.size);
  if (IsOutOfMemory(status)) throw std::bad_alloc();
  int rows = 0;
  WebPIDecGetRGB(decoder.get(), &rows, nullptr, nullptr, nullptr);
  if (rows <= 0) throw Declined(Reason::kDamaged, "there is not even one row of pixels");
}

Pixels WebpDecoder::DecodeFrame(Size size) const {
  WebPDecoderConfig config;
  if (WebPInitDecoderConfig(&config) == 0) throw Declined(Reason::kUnsupported, "libwebp has another version");
  Pixels pixels;
  pixels.size = size;
  pixels.channels = HasAlpha() ? 4 : 3;
  pixels.bytes.resize(pixels.Stride() * static_cast<std::size_t>(size.height));
  config.options.use_scaling = size != frame_.size ? 1 : 0;
  config.options.scaled_width = size.width;
  config.options.scaled_height = size.height;
  config.output.colorspace = HasAlpha() ? MODE_RGBA : MODE_RGB;
  config.output.is_external_memory = 1;
  config.output.u.RGBA = {pixels.bytes.data(), static_cast<int>(pixels.Stride()), pixels.bytes.size()};
  const VP8StatusCode status = WebPDecode(frame_.data.bytes, frame_.data.size, &config);
  if (IsOutOfMemory(status)) throw std::bad_alloc();
  pixels.isCutOff = status != VP8_STATUS_OK;
  if (pixels.isCutOff) DecodeStart(&config);
  return pixels;
}

void WebpDecoder::ReadProfile(Picture* picture) const {
  WebPChunkIterator chunk = {};
  if (WebPDemuxGetChunk(demuxer_.get(), "ICCP", 1, &chunk) == 0) return;
  if (chunk.chunk.size <= kMaxProfileBytes) {
    picture->profile.assign(chunk.chunk.bytes, chunk.chunk.bytes + chunk.chunk.size);
  }
  WebPDemuxReleaseChunkIterator(&chunk);
}

Picture WebpDecoder::Decode(Size atLeast) {
  const Size canvas = IsWhole() ? ScaledSize(header_.stored, atLeast) : header_.stored;
  CheckDecodedSize(canvas);
  const Pixels pixels = DecodeFrame(IsWhole() ? canvas : frame_.size);
  Picture picture = BlankPicture(Model::kRgb, HasAlpha(), canvas);
  picture.storedSize = header_.stored;
  picture.isCutOff = pixels.isCutOff;
  for (int y = 0; y < pixels.size.height; ++y) {
    const std::uint8_t* row = pixels.bytes.data() + static_cast<std::size_t>(y) * pixels.Stride();
    SplitRow(row, pixels.size.width, frame_.left, frame_.top + y, &picture);
  }
  ReadProfile(&picture);
  return picture;
}

}  // namespace

std::unique_ptr<Decoder> OpenWebp(const Input& input) {
  return std::make_unique<WebpDecoder>(input);
}

}  // namespace tavithumb::maker
