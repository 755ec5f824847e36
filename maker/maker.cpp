// SPDX-License-Identifier: GPL-3.0-or-later
#include "maker/maker.h"

#include <algorithm>
#include <cmath>
#include <memory>
#include <optional>
#include <utility>

#include "maker/colour.h"
#include "maker/decode/decoders.h"
#include "maker/encode/encode.h"
#include "maker/input.h"
#include "maker/resample.h"

namespace tavithumb::maker {
namespace {

// Small thumbnails keep all of their chroma: it costs few bytes and shows.
constexpr int kLargestBoxWithFullChroma = 160;

// What is seen at this size is more than noise.
constexpr Size kBoxForContrast = {120, 120};

Type TypeFor(Format source, const Options& options) {
  return options.type.value_or(source == Format::kPng ? Type::kPng : Type::kJpeg);
}

// Of a file of which nobody else knows anything.
Orientation OrientationOf(const Header& header) {
  return header.isUpright ? Orientation{} : header.orientation.value_or(Orientation{});
}

// The decoder's own word counts where it turns the picture itself, and where the caller knows nothing.
Orientation OrientationOf(const Source& source, const Header& header) {
  const bool isCallersWord = source.orientation && (source.alwaysTurns || !header.isUpright);
  Orientation orientation = isCallersWord ? *source.orientation : OrientationOf(header);
  orientation.quarterTurns = (orientation.quarterTurns + source.userTurns) % 4;
  return orientation;
}

// A JPEG without its end would be shown with what is missing in gray. Cameras pad their previews with zeros.
bool IsWhole(const std::vector<std::uint8_t>& jpeg) {
  const auto last = std::find_if(jpeg.rbegin(), jpeg.rend(), [](std::uint8_t byte) { return byte != 0; });
  return jpeg.rend() - last >= 2 && last[0] == 0xD9 && last[1] == 0xFF;
}

// The sizes of the caller's previews; of those that can't stand in, none. Previews mostly lack the profile that they
// would need for the picture's colours.
std::vector<Preview> CallersPreviews(const Source& source, const Decoder& decoder) {
  std::vector<Preview> previews(source.previews.size());
  if (source.previews.empty() || source.isAdobeRgb || !decoder.IsSrgb()) return previews;
  for (std::size_t i = 0; i < previews.size(); ++i) {
    const std::vector<std::uint8_t>& preview = source.previews[i];
    if (!IsWhole(preview)) continue;
    const Input input(Bytes{preview.data(), preview.size()});
    previews[i].size = OpenJpeg(input)->Head().stored;
  }
  return previews;
}

// A preview that can stand in for the picture: the decoder's come first, then the caller's.
std::optional<Picture> DecodePreview(const Source& source, Decoder* decoder, Size atLeast) {
  const Header& header = decoder->Head();
  std::vector<Preview> previews = header.previews;
  for (const Preview& preview : CallersPreviews(source, *decoder)) previews.push_back(preview);
  const std::optional<std::size_t> chosen = ChoosePreview(header.stored, previews, atLeast, false);
  if (!chosen) return std::nullopt;
  if (*chosen < header.previews.size()) return decoder->DecodePreview(*chosen, atLeast);
  const std::vector<std::uint8_t>& preview = source.previews[*chosen - header.previews.size()];
  const Input input(Bytes{preview.data(), preview.size()});
  return OpenJpeg(input)->Decode(atLeast);
}

// A damaged preview is no reason to give up.
std::optional<Picture> TryPreview(const Source& source, Decoder* decoder, Size atLeast) {
  try {
    return DecodePreview(source, decoder, atLeast);
  } catch (const Declined&) {
    return std::nullopt;
  }
}

// Makes the thumbnails of a decoded picture, from the largest to the smallest, each of the one before.
class Cascade {
 public:
  // `upright` is the size in which the parts of the steps are given.
  Cascade(Picture decoded, const Orientation& orientation, Size upright, Type type, const Options& options)
      : base_(std::move(decoded)),
        orientation_(orientation),
        upright_(upright),
        type_(type),
        options_(options),
        isSrgb_(IsSrgb(base_)) {
    Premultiply(&base_);
  }

  Thumbnail Make(const Step& step, const Target& target);

 private:
  Region PartOfBase(const Step& step) const;
  Picture Scaled(const Step& step, bool halvesChroma) const;
  bool IsReadyForEncoder() const;
  void ConvertForEncoder(Picture* scaled) const;
  std::vector<std::uint8_t> Encode(Picture* scaled, bool halvesChroma) const;
  std::vector<std::uint8_t> EncodeAsJpeg(const Picture& scaled, bool halvesChroma) const;

  Picture base_;
  Orientation orientation_;  // to make `base_` upright
  Size upright_;
  Type type_;
  const Options& options_;
  bool isSrgb_;
};

Size Stored(Size upright, const Orientation& orientation) {
  return Upright(upright, orientation);  // swapping the sides is its own inverse
}

Region PartOfStored(const Region& part, Size upright, const Orientation& orientation) {
  const double width = upright.width;
  const double height = upright.height;
  Region stored = part;
  if (orientation.quarterTurns == 1) stored = {part.top, width - part.right, part.bottom, width - part.left};
  if (orientation.quarterTurns == 2) {
    stored = {width - part.right, height - part.bottom, width - part.left, height - part.top};
  }
  if (orientation.quarterTurns == 3) stored = {height - part.bottom, part.left, height - part.top, part.right};
  if (!orientation.isMirrored) return stored;
  const double side = Stored(upright, orientation).width;
  return {side - stored.right, stored.top, side - stored.left, stored.bottom};
}

Region Cascade::PartOfBase(const Step& step) const {
  const Size stored = Stored(upright_, orientation_);
  const Region part = PartOfStored(step.part, upright_, orientation_);
  const double across = base_.channels[0].width / stored.width;
  const double down = base_.channels[0].height / stored.height;
  return {part.left * across, part.top * down, part.right * across, part.bottom * down};
}

Picture Cascade::Scaled(const Step& step, bool halvesChroma) const {
  return Scale(base_, PartOfBase(step), orientation_, Stored(step.size, orientation_), halvesChroma);
}

// JPEG is encoded from Y, Cb and Cr without alpha, the other types from R, G and B.
bool Cascade::IsReadyForEncoder() const {
  if (!isSrgb_) return false;
  return type_ == Type::kJpeg ? !base_.hasAlpha && base_.model != Model::kRgb : base_.model != Model::kYcc;
}

// The colours of sRGB, in the model that the type's encoder takes.
void Cascade::ConvertForEncoder(Picture* scaled) const {
  if (!isSrgb_) {
    Unpremultiply(scaled);
    ConvertToSrgb(scaled);
    Premultiply(scaled);
  }
  if (type_ == Type::kJpeg) Flatten(scaled);
  if (type_ == Type::kJpeg && scaled->model == Model::kRgb) RgbToYcc(scaled);
  if (type_ != Type::kJpeg && scaled->model == Model::kYcc) YccToRgb(scaled);
}

std::vector<std::uint8_t> Cascade::EncodeAsJpeg(const Picture& scaled, bool halvesChroma) const {
  const bool isFull =
      scaled.model == Model::kYcc && scaled.channels[1].plane.Dimensions() == scaled.channels[0].plane.Dimensions();
  if (!halvesChroma || !isFull) return EncodeJpeg(scaled, options_.quality);
  const Size size = scaled.channels[0].plane.Dimensions();
  const Region whole = {0, 0, static_cast<double>(size.width), static_cast<double>(size.height)};
  return EncodeJpeg(Scale(scaled, whole, {}, size, true), options_.quality);
}

std::vector<std::uint8_t> Cascade::Encode(Picture* scaled, bool halvesChroma) const {
  if (type_ == Type::kJpeg) return EncodeAsJpeg(*scaled, halvesChroma);
  Unpremultiply(scaled);
  std::vector<std::uint8_t> bytes =
      type_ == Type::kPng ? EncodePng(*scaled, options_.pngTexts) : EncodeWebp(*scaled, options_.quality);
  Premultiply(scaled);
  return bytes;
}

Thumbnail Cascade::Make(const Step& step, const Target& target) {
  const bool halvesChroma =
      type_ == Type::kJpeg && std::max(target.box.width, target.box.height) > kLargestBoxWithFullChroma;
  const bool isReady = IsReadyForEncoder();
  Picture scaled = Scaled(step, halvesChroma && isReady);
  if (!isReady) ConvertForEncoder(&scaled);
  Thumbnail thumbnail = {step.size, type_, Encode(&scaled, halvesChroma)};
  if (target.isCropped || target.part) return thumbnail;
  base_ = std::move(scaled);
  orientation_ = {};
  isSrgb_ = true;
  return thumbnail;
}

double DeviationOf(const Plane& plane) {
  std::int64_t sum = 0, sumOfSquares = 0;
  for (int y = 0; y < plane.Height(); ++y) {
    for (const std::uint8_t* sample = plane.Row(y); sample != plane.Row(y) + plane.Width(); ++sample) {
      sum += *sample;
      sumOfSquares += std::int64_t{*sample} * *sample;
    }
  }
  const double count = static_cast<double>(plane.Width()) * plane.Height();
  const double mean = static_cast<double>(sum) / count;
  return std::sqrt(std::max(0.0, static_cast<double>(sumOfSquares) / count - mean * mean));
}

}  // namespace

const char* MimeTypeOf(Type type) {
  if (type == Type::kWebp) return "image/webp";
  return type == Type::kPng ? "image/png" : "image/jpeg";
}

std::string RecogniseType(const std::string& path) {
  try {
    return MimeTypeOf(Input(path));
  } catch (const Declined&) {
    return "";
  }
}

std::optional<Content> Examine(const std::string& path) {
  try {
    const Input input(path);
    const std::unique_ptr<Decoder> decoder = OpenDecoder(input);
    const Header& header = decoder->Head();
    return Content{header.stored, *FormatOf(input), decoder->IsAnimated(), OrientationOf(header)};
  } catch (const Declined&) {
    return std::nullopt;
  }
}

std::vector<std::uint8_t> ReadExif(const std::string& path) {
  try {
    const Input input(path);
    // Other decoders may read the whole file, to find nothing.
    return FormatOf(input) == Format::kHeif ? OpenDecoder(input)->Exif() : std::vector<std::uint8_t>();
  } catch (const Declined&) {
    return {};
  }
}

double ContrastOf(const std::string& path) {
  const Input input(path);
  const std::unique_ptr<Decoder> decoder = OpenDecoder(input);
  const Plan plan = MakePlan(decoder->Head().stored, {}, {{kBoxForContrast}});
  const Picture picture = decoder->Decode(plan.decodeAtLeast);
  return DeviationOf(picture.channels.front().plane);
}

std::vector<Thumbnail> Make(const Source& source, const std::vector<Target>& targets, const Options& options) {
  const Input input(source.path);
  const std::unique_ptr<Decoder> decoder = OpenDecoder(input);
  if (source.keepsAnimation && decoder->IsAnimated()) throw Declined(Reason::kAnimation, "it is kept animated");
  const Orientation orientation = OrientationOf(source, decoder->Head());
  Plan plan = MakePlan(decoder->Head().stored, orientation, targets);

  std::optional<Picture> picture;
  if (options.usesPreviews) picture = TryPreview(source, decoder.get(), plan.decodeAtLeast);
  if (!picture) {
    picture = decoder->Decode(plan.decodeAtLeast);
    // Of a camera raw file, the picture is its preview, which may be smaller.
    if (picture->storedSize != decoder->Head().stored) plan = MakePlan(picture->storedSize, orientation, targets);
  }
  if (picture->isCutOff && options.wholeOnly) throw Declined(Reason::kDamaged, "the picture is cut off");
  if (picture->profile.empty() && source.isAdobeRgb) picture->profile = AdobeRgbProfile();

  Cascade cascade(std::move(*picture), orientation, plan.upright, TypeFor(*FormatOf(input), options), options);
  std::vector<Thumbnail> thumbnails(targets.size());
  for (const Step& step : plan.steps) {
    thumbnails[step.target] = cascade.Make(step, targets[step.target]);
  }
  return thumbnails;
}

}  // namespace tavithumb::maker
