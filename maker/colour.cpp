// SPDX-License-Identifier: GPL-3.0-or-later
#include "maker/colour.h"

#include <lcms2.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <memory>
#include <new>
#include <optional>
#include <type_traits>
#include <utility>

#include "maker/limits.h"
#include "maker/matrix_profile.h"

namespace tavithumb::maker {
namespace {

struct DeleteContext {
  void operator()(cmsContext context) const { cmsDeleteContext(context); }
};
struct CloseProfile {
  void operator()(cmsHPROFILE profile) const { cmsCloseProfile(profile); }
};
struct DeleteTransform {
  void operator()(cmsHTRANSFORM transform) const { cmsDeleteTransform(transform); }
};
struct FreeCurve {
  void operator()(cmsToneCurve* curve) const { cmsFreeToneCurve(curve); }
};
using Context = std::unique_ptr<std::remove_pointer_t<cmsContext>, DeleteContext>;
using Profile = std::unique_ptr<void, CloseProfile>;
using Transform = std::unique_ptr<void, DeleteTransform>;
using Curve = std::unique_ptr<cmsToneCurve, FreeCurve>;

// Errors of damaged profiles show as null pointers; nobody reads the messages.
Context NewContext() {
  Context context(cmsCreateContext(nullptr, nullptr));
  if (!context) throw std::bad_alloc();
  cmsSetLogErrorHandlerTHR(context.get(), [](cmsContext, cmsUInt32Number, const char*) {});
  return context;
}

cmsColorSpaceSignature SpaceOf(Model model) {
  if (model == Model::kGray) return cmsSigGrayData;
  return model == Model::kCmyk ? cmsSigCmykData : cmsSigRgbData;
}

std::size_t ColoursOf(Model model) {
  if (model == Model::kGray) return 1;
  return model == Model::kCmyk ? 4 : 3;
}

// 255 means no ink in Adobe's CMYK, but 0 in profiles.
cmsUInt32Number FormatOf(Model model) {
  if (model == Model::kGray) return TYPE_GRAY_8;
  return model == Model::kCmyk ? TYPE_CMYK_8_REV : TYPE_RGB_8;
}

// One row of each colour.
using Rows = std::array<std::uint8_t*, 4>;

// From the colours of a picture to sRGB, by its profile.
class ToSrgb {
 public:
  // The flags are for lcms2, if it has to convert.
  ToSrgb(const Picture& picture, cmsUInt32Number flags);

  // Whether there is a profile that can be used.
  bool IsPossible() const { return matrix_ || transform_; }

  // Changes rows of samples into red, green and blue; of gray, only into one row. May write up to 32 samples beyond.
  void Convert(const Rows& rows, std::size_t width);

 private:
  void ConvertByLcms(const Rows& rows, std::size_t width);

  std::size_t colours_;
  Context context_;
  std::optional<MatrixToSrgb> matrix_;
  Transform transform_;
  std::vector<std::uint8_t> pixels_;
  std::vector<std::uint8_t> converted_;
};

ToSrgb::ToSrgb(const Picture& picture, cmsUInt32Number flags)
    : colours_(ColoursOf(picture.model)), context_(NewContext()) {
  const std::vector<std::uint8_t>& bytes = picture.profile;
  if (bytes.empty() || bytes.size() > kMaxProfileBytes) return;
  const Profile profile(
      cmsOpenProfileFromMemTHR(context_.get(), bytes.data(), static_cast<cmsUInt32Number>(bytes.size())));
  if (!profile || cmsGetColorSpace(profile.get()) != SpaceOf(picture.model)) return;
  if (colours_ == 3) matrix_ = MatrixToSrgb::Of(profile.get());
  if (matrix_) return;
  const Profile srgb(cmsCreate_sRGBProfileTHR(context_.get()));
  transform_.reset(cmsCreateTransformTHR(context_.get(), profile.get(), FormatOf(picture.model), srgb.get(), TYPE_RGB_8,
                                         INTENT_RELATIVE_COLORIMETRIC, flags | cmsFLAGS_BLACKPOINTCOMPENSATION));
}

void ToSrgb::Convert(const Rows& rows, std::size_t width) {
  if (matrix_) {
    matrix_->Convert(rows[0], rows[1], rows[2], width);
  } else {
    ConvertByLcms(rows, width);
  }
}

// Through a row of whole pixels, which lcms2 converts faster than separate rows.
void ToSrgb::ConvertByLcms(const Rows& rows, std::size_t width) {
  pixels_.resize(width * colours_);
  converted_.resize(width * 3);
  for (std::size_t i = 0; i < colours_; ++i) {
    for (std::size_t x = 0; x < width; ++x) pixels_[x * colours_ + i] = rows[i][x];
  }
  cmsDoTransform(transform_.get(), pixels_.data(), converted_.data(), static_cast<cmsUInt32Number>(width));
  for (std::size_t i = 0; i < std::min<std::size_t>(colours_, 3); ++i) {
    for (std::size_t x = 0; x < width; ++x) rows[i][x] = converted_[x * 3 + i];
  }
}

Rows RowsAt(Picture* picture, int y) {
  Rows rows = {};
  for (std::size_t i = 0; i < ColoursOf(picture->model); ++i) rows[i] = picture->channels[i].plane.Row(y);
  return rows;
}

// Grays, shades of red, green and blue, and mixtures: bit by bit of the column's number.
Picture Probes(Model model) {
  constexpr int levels = 18;
  constexpr int mixtures = 8;
  Picture picture;
  picture.model = model;
  for (std::size_t i = 0; i < ColoursOf(model); ++i) {
    Plane plane({levels * mixtures, 1});
    for (int x = 0; x < plane.Width(); ++x) {
      const int mixture = model == Model::kGray ? 1 : x % mixtures;
      plane.Row(0)[x] = static_cast<std::uint8_t>((mixture >> i) % 2 * (x / mixtures) * (255 / (levels - 1)));
    }
    picture.channels.push_back({std::move(plane), 0, 0});
  }
  return picture;
}

// Whether a conversion changes nothing that anybody could see.
bool KeepsColours(ToSrgb* toSrgb, Model model) {
  constexpr int tolerance = 2;
  const Picture original = Probes(model);
  Picture probes = Probes(model);
  const int width = original.channels[0].plane.Width();
  toSrgb->Convert(RowsAt(&probes, 0), static_cast<std::size_t>(width));
  for (std::size_t i = 0; i < original.channels.size(); ++i) {
    for (int x = 0; x < width; ++x) {
      const int difference = probes.channels[i].plane.Row(0)[x] - original.channels[i].plane.Row(0)[x];
      if (std::abs(difference) > tolerance) return false;
    }
  }
  return true;
}

void ConvertGray(ToSrgb* toSrgb, Plane* plane) {
  std::array<std::uint8_t, 256> grays = {};
  for (std::size_t i = 0; i < grays.size(); ++i) grays[i] = static_cast<std::uint8_t>(i);
  toSrgb->Convert({grays.data()}, grays.size());
  for (int y = 0; y < plane->Height(); ++y) {
    std::uint8_t* row = plane->Row(y);
    for (int x = 0; x < plane->Width(); ++x) row[x] = grays[row[x]];
  }
}

void ConvertColours(ToSrgb* toSrgb, Picture* picture) {
  const Size size = picture->channels[0].plane.Dimensions();
  for (int y = 0; y < size.height; ++y) toSrgb->Convert(RowsAt(picture, y), static_cast<std::size_t>(size.width));
}

// Inks as filters, one over the other.
void ConvertInks(Picture* picture) {
  const Plane& black = picture->channels[3].plane;
  for (std::size_t i = 0; i < 3; ++i) {
    for (int y = 0; y < black.Height(); ++y) {
      std::uint8_t* row = picture->channels[i].plane.Row(y);
      for (int x = 0; x < black.Width(); ++x)
        row[x] = static_cast<std::uint8_t>((row[x] * black.Row(y)[x] + 127) / 255);
    }
  }
}

void BecomeRgb(Picture* picture) {
  if (picture->model == Model::kCmyk) picture->channels.erase(picture->channels.begin() + 3);
  picture->model = Model::kRgb;
}

}  // namespace

bool IsSrgb(const Picture& picture) {
  if (picture.model == Model::kCmyk) return false;
  if (picture.profile.empty()) return true;
  ToSrgb toSrgb(picture, cmsFLAGS_NOOPTIMIZE);
  return !toSrgb.IsPossible() || KeepsColours(&toSrgb, picture.model);
}

void ConvertToSrgb(Picture* picture) {
  if (IsSrgb(*picture)) return;
  if (picture->model == Model::kYcc) YccToRgb(picture);
  ToSrgb toSrgb(*picture, 0);
  if (picture->model == Model::kGray) {
    ConvertGray(&toSrgb, &picture->channels[0].plane);
  } else {
    if (toSrgb.IsPossible()) {
      ConvertColours(&toSrgb, picture);
    } else {
      ConvertInks(picture);
    }
    BecomeRgb(picture);
  }
  picture->profile.clear();
}

std::vector<std::uint8_t> AdobeRgbProfile() {
  const Context context = NewContext();
  const cmsCIExyY white = {0.3127, 0.3290, 1};
  const cmsCIExyYTRIPLE primaries = {{0.64, 0.33, 1}, {0.21, 0.71, 1}, {0.15, 0.06, 1}};
  const Curve gamma(cmsBuildGamma(context.get(), 563.0 / 256));
  cmsToneCurve* curves[] = {gamma.get(), gamma.get(), gamma.get()};
  const Profile profile(cmsCreateRGBProfileTHR(context.get(), &white, &primaries, curves));
  cmsUInt32Number size = 0;
  if (!profile || !cmsSaveProfileToMem(profile.get(), nullptr, &size)) throw std::bad_alloc();
  std::vector<std::uint8_t> bytes(size);
  if (!cmsSaveProfileToMem(profile.get(), bytes.data(), &size)) throw std::bad_alloc();
  return bytes;
}

}  // namespace tavithumb::maker
