// SPDX-License-Identifier: GPL-3.0-or-later
#include <jxl/decode.h>
#include <jxl/version.h>

#include <string>

#include "maker/declined.h"
#include "maker/decode/decoders.h"
#include "maker/limits.h"

namespace tavithumb::maker {
namespace {

struct Free {
  void operator()(JxlDecoder* decoder) const { JxlDecoderDestroy(decoder); }
};

constexpr JxlColorProfileTarget kDecoded = JXL_COLOR_PROFILE_TARGET_DATA;

// libjxl 0.9 dropped a parameter.
#if JPEGXL_NUMERIC_VERSION < JPEGXL_COMPUTE_NUMERIC_VERSION(0, 9, 0)
JxlDecoderStatus GetEncoding(const JxlDecoder* decoder, JxlColorProfileTarget target, JxlColorEncoding* encoding) {
  return JxlDecoderGetColorAsEncodedProfile(decoder, nullptr, target, encoding);
}
JxlDecoderStatus GetProfileSize(const JxlDecoder* decoder, std::size_t* size) {
  return JxlDecoderGetICCProfileSize(decoder, nullptr, kDecoded, size);
}
JxlDecoderStatus GetProfile(const JxlDecoder* decoder, std::vector<std::uint8_t>* profile) {
  return JxlDecoderGetColorAsICCProfile(decoder, nullptr, kDecoded, profile->data(), profile->size());
}
#else
JxlDecoderStatus GetEncoding(const JxlDecoder* decoder, JxlColorProfileTarget target, JxlColorEncoding* encoding) {
  return JxlDecoderGetColorAsEncodedProfile(decoder, target, encoding);
}
JxlDecoderStatus GetProfileSize(const JxlDecoder* decoder, std::size_t* size) {
  return JxlDecoderGetICCProfileSize(decoder, kDecoded, size);
}
JxlDecoderStatus GetProfile(const JxlDecoder* decoder, std::vector<std::uint8_t>* profile) {
  return JxlDecoderGetColorAsICCProfile(decoder, kDecoded, profile->data(), profile->size());
}
#endif

// A pass through the file.
class Pass {
 public:
  explicit Pass(const Input& input) : input_(input), decoder_(JxlDecoderCreate(nullptr)), buffer_(1 << 16) {
    if (!decoder_) throw std::bad_alloc();
    JxlDecoderSubscribeEvents(decoder_.get(), JXL_DEC_BASIC_INFO | JXL_DEC_COLOR_ENCODING | JXL_DEC_FULL_IMAGE);
  }

  JxlDecoder* Get() const { return decoder_.get(); }

  // The next event; JXL_DEC_NEED_MORE_INPUT only at the end of the file.
  JxlDecoderStatus Next() {
    for (;;) {
      const JxlDecoderStatus status = JxlDecoderProcessInput(decoder_.get());
      if (status != JXL_DEC_NEED_MORE_INPUT || !Feed()) return status;
    }
  }

  void Expect(JxlDecoderStatus event) {
    if (Next() != event) throw Declined(Reason::kDamaged, "the JPEG XL data are damaged or cut off");
  }

 private:
  // libjxl wants what it has left unread once more, and something new behind it.
  bool Feed() {
    const std::size_t left = JxlDecoderReleaseInput(decoder_.get());
    position_ -= left;
    if (left == buffer_.size()) buffer_.resize(2 * left);
    const std::size_t count = input_.ReadAt(position_, buffer_.data(), buffer_.size());
    if (count <= left) return false;
    position_ += count;
    return JxlDecoderSetInput(decoder_.get(), buffer_.data(), count) == JXL_DEC_SUCCESS;
  }

  const Input& input_;
  std::unique_ptr<JxlDecoder, Free> decoder_;
  std::vector<std::uint8_t> buffer_;
  std::uint64_t position_ = 0;  // in the input, behind the buffer
};

JxlBasicInfo ReadInfo(Pass* pass) {
  pass->Expect(JXL_DEC_BASIC_INFO);
  JxlBasicInfo info = {};
  if (JxlDecoderGetBasicInfo(pass->Get(), &info) != JXL_DEC_SUCCESS || info.xsize > kMaxSide || info.ysize > kMaxSide) {
    throw Declined(Reason::kTooLarge, "the picture has a side of more than " + std::to_string(kMaxSide) + " pixels");
  }
  CheckDecodedSize({static_cast<int>(info.xsize), static_cast<int>(info.ysize)});
  return info;
}

// libjxl decodes to the colours of the file where they have a name, else to linear light, for which 8 bits are too few,
// and so they are for high dynamic range: then it converts to sRGB itself.
void ChooseColours(JxlDecoder* decoder, const JxlBasicInfo& info) {
  JxlColorEncoding encoding = {};
  const bool isNamed = GetEncoding(decoder, JXL_COLOR_PROFILE_TARGET_ORIGINAL, &encoding) == JXL_DEC_SUCCESS;
  const bool isHdr =
      encoding.transfer_function == JXL_TRANSFER_FUNCTION_PQ || encoding.transfer_function == JXL_TRANSFER_FUNCTION_HLG;
  const bool isLinear = encoding.transfer_function == JXL_TRANSFER_FUNCTION_LINEAR;
  if (isNamed && !isHdr && !isLinear) return;
  JxlColorEncoding srgb = {};
  srgb.color_space = info.num_color_channels == 1 ? JXL_COLOR_SPACE_GRAY : JXL_COLOR_SPACE_RGB;
  srgb.white_point = JXL_WHITE_POINT_D65;
  srgb.primaries = JXL_PRIMARIES_SRGB;
  srgb.transfer_function = JXL_TRANSFER_FUNCTION_SRGB;
  srgb.rendering_intent = JXL_RENDERING_INTENT_RELATIVE;
  JxlDecoderSetPreferredColorProfile(decoder, &srgb);
}

bool IsSrgb(const JxlColorEncoding& encoding) {
  const bool isGray = encoding.color_space == JXL_COLOR_SPACE_GRAY;
  return (isGray || (encoding.color_space == JXL_COLOR_SPACE_RGB && encoding.primaries == JXL_PRIMARIES_SRGB)) &&
         encoding.white_point == JXL_WHITE_POINT_D65 && encoding.transfer_function == JXL_TRANSFER_FUNCTION_SRGB;
}

std::vector<std::uint8_t> ReadProfile(const JxlDecoder* decoder) {
  JxlColorEncoding encoding = {};
  if (GetEncoding(decoder, kDecoded, &encoding) == JXL_DEC_SUCCESS && IsSrgb(encoding)) return {};
  std::size_t size = 0;
  if (GetProfileSize(decoder, &size) != JXL_DEC_SUCCESS || size > kMaxProfileBytes) return {};
  std::vector<std::uint8_t> profile(size);
  if (GetProfile(decoder, &profile) != JXL_DEC_SUCCESS) return {};
  return profile;
}

Picture BlankPicture(const JxlBasicInfo& info) {
  Picture picture;
  picture.model = info.num_color_channels == 1 ? Model::kGray : Model::kRgb;
  picture.hasAlpha = info.alpha_bits != 0;
  picture.isPremultiplied = picture.hasAlpha && info.alpha_premultiplied != 0;
  picture.storedSize = {static_cast<int>(info.xsize), static_cast<int>(info.ysize)};
  const std::uint32_t channels = info.num_color_channels + (picture.hasAlpha ? 1 : 0);
  for (std::uint32_t i = 0; i < channels; ++i) {
    picture.channels.push_back(
        {Plane(picture.storedSize), static_cast<double>(info.xsize), static_cast<double>(info.ysize)});
  }
  return picture;
}

// libjxl's callback for a piece of a row of interleaved samples.
void Store(void* target, std::size_t x, std::size_t y, std::size_t pixels, const void* samples) {
  std::vector<Channel>& channels = static_cast<Picture*>(target)->channels;
  for (std::size_t channel = 0; channel < channels.size(); ++channel) {
    const auto* from = static_cast<const std::uint8_t*>(samples) + channel;
    std::uint8_t* to = channels[channel].plane.Row(static_cast<int>(y)) + x;
    for (std::size_t i = 0; i < pixels; ++i, from += channels.size()) to[i] = *from;
  }
}

class JpegXlDecoder : public Decoder {
 public:
  explicit JpegXlDecoder(const Input& input) : input_(input) {
    Pass pass(input_);
    const JxlBasicInfo info = ReadInfo(&pass);
    header_.stored = {static_cast<int>(info.xsize), static_cast<int>(info.ysize)};
    header_.isUpright = true;
    isAnimated_ = info.have_animation != 0;
  }

  const Header& Head() const override { return header_; }
  bool IsAnimated() const override { return isAnimated_; }

  Picture Decode(Size /*atLeast*/) override {
    Pass pass(input_);
    const JxlBasicInfo info = ReadInfo(&pass);
    pass.Expect(JXL_DEC_COLOR_ENCODING);
    ChooseColours(pass.Get(), info);
    pass.Expect(JXL_DEC_NEED_IMAGE_OUT_BUFFER);
    Picture picture = BlankPicture(info);
    picture.profile = ReadProfile(pass.Get());
    const JxlPixelFormat format = {static_cast<std::uint32_t>(picture.channels.size()), JXL_TYPE_UINT8,
                                   JXL_NATIVE_ENDIAN, 0};
    JxlDecoderSetImageOutCallback(pass.Get(), &format, Store, &picture);
    const JxlDecoderStatus end = pass.Next();
    // Cut off: what has come so far is shown.
    const bool isPart = end == JXL_DEC_NEED_MORE_INPUT && JxlDecoderFlushImage(pass.Get()) == JXL_DEC_SUCCESS;
    if (end != JXL_DEC_FULL_IMAGE && !isPart) throw Declined(Reason::kDamaged, "the JPEG XL data are damaged");
    return picture;
  }

 private:
  const Input& input_;
  Header header_;
  bool isAnimated_ = false;
};

}  // namespace

std::unique_ptr<Decoder> OpenJxl(const Input& input) {
  return std::make_unique<JpegXlDecoder>(input);
}

}  // namespace tavithumb::maker
