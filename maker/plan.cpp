// SPDX-License-Identifier: GPL-3.0-or-later
#include "maker/plan.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <tuple>
#include <utility>

namespace tavithumb::maker {
namespace {

int Rounded(double side) {
  return std::max(1, static_cast<int>(std::floor(side + 0.5)));
}

// The smallest whole number that is not less, apart from what the arithmetic before has rounded.
int RoundedUp(double side) {
  return static_cast<int>(std::ceil(side - 1e-6));
}

Region Whole(Size size) {
  return {0, 0, static_cast<double>(size.width), static_cast<double>(size.height)};
}

Region Centred(Size picture, double width, double height) {
  const double left = (picture.width - width) / 2;
  const double top = (picture.height - height) / 2;
  return {left, top, left + width, top + height};
}

// A part in its own pixels starts at a whole pixel, so that nothing has to be interpolated.
Region OnWholePixels(const Region& part, Size size) {
  const double left = std::floor(part.left);
  const double top = std::floor(part.top);
  return {left, top, left + size.width, top + size.height};
}

Step Cropped(std::size_t target, Size upright, Size box) {
  const double across = static_cast<double>(box.width) / upright.width;
  const double down = static_cast<double>(box.height) / upright.height;
  const double scale = std::max(across, down);
  const double width = across == scale ? upright.width : box.width / scale;
  const double height = down == scale ? upright.height : box.height / scale;
  const Region part = Centred(upright, width, height);
  if (scale < 1) return {target, box, part};
  const Size size = {Rounded(width), Rounded(height)};
  return {target, size, OnWholePixels(part, size)};
}

// One quarter turn clockwise of a picture `height` high.
Region TurnedOnce(const Region& part, int height) {
  return {height - part.bottom, part.left, height - part.top, part.right};
}

Region UprightPart(Region part, Size stored, const Orientation& orientation) {
  if (orientation.isMirrored) part = {stored.width - part.right, part.top, stored.width - part.left, part.bottom};
  for (int turn = 0; turn < orientation.quarterTurns; ++turn) {
    part = TurnedOnce(part, stored.height);
    std::swap(stored.width, stored.height);
  }
  return part;
}

Step MakeStep(std::size_t index, Size stored, const Orientation& orientation, const Target& target) {
  const Size upright = Upright(stored, orientation);
  if (target.part) return {index, Upright(target.box, orientation), UprightPart(*target.part, stored, orientation)};
  if (target.isCropped) return Cropped(index, upright, target.box);
  return {index, FitInto(upright, target.box), Whole(upright)};
}

double WidthOf(const Region& part) {
  return part.right - part.left;
}

double HeightOf(const Region& part) {
  return part.bottom - part.top;
}

// The size that the whole picture has where its part has the size of the thumbnail.
Size WholeSizeFor(const Step& step, Size upright) {
  return {RoundedUp(upright.width * (step.size.width / WidthOf(step.part))),
          RoundedUp(upright.height * (step.size.height / HeightOf(step.part)))};
}

// Sorts ascending: the least reduced first, then the largest part, then in the order of the targets.
auto OrderOf(const Step& step, Size upright) {
  const Size whole = WholeSizeFor(step, upright);
  return std::make_tuple(-static_cast<double>(whole.width) * whole.height, -WidthOf(step.part) * HeightOf(step.part),
                         step.target);
}

Size Larger(Size a, Size b) {
  return {std::max(a.width, b.width), std::max(a.height, b.height)};
}

bool Covers(Size size, Size atLeast) {
  return size.width >= atLeast.width && size.height >= atLeast.height;
}

std::int64_t PixelsOf(Size size) {
  return std::int64_t{size.width} * size.height;
}

// Within 1 %, which a small preview needs for its rounded sides.
bool HasAspect(Size size, Size picture) {
  if (size.width <= 0 || size.height <= 0) return false;
  const double a = static_cast<double>(size.width) * picture.height;
  const double b = static_cast<double>(size.height) * picture.width;
  return std::max(a, b) <= 1.01 * std::min(a, b);
}

// How the bytes of a photo's thumbnail grow with the quality, measured: 1 at 80.
double FactorOf(int quality) {
  struct Point {
    double quality;
    double factor;
  };
  static constexpr std::array<Point, 11> kPoints = {{{1, 0.07},
                                                     {10, 0.19},
                                                     {25, 0.37},
                                                     {50, 0.58},
                                                     {65, 0.72},
                                                     {75, 0.87},
                                                     {80, 1},
                                                     {85, 1.18},
                                                     {90, 1.48},
                                                     {95, 2.12},
                                                     {100, 4.2}}};
  std::size_t next = 1;
  while (next + 1 < kPoints.size() && kPoints[next].quality < quality) ++next;
  const Point& low = kPoints[next - 1];
  const Point& high = kPoints[next];
  return low.factor + (high.factor - low.factor) * (quality - low.quality) / (high.quality - low.quality);
}

}  // namespace

Orientation Turned(const Orientation& orientation, int quarterTurns) {
  return {(orientation.quarterTurns + quarterTurns) % 4, orientation.isMirrored};
}

Size FitInto(Size picture, Size box) {
  if (Covers(box, picture)) return picture;
  const double scale =
      std::min(static_cast<double>(box.width) / picture.width, static_cast<double>(box.height) / picture.height);
  return {Rounded(scale * picture.width), Rounded(scale * picture.height)};
}

Size Upright(Size stored, const Orientation& orientation) {
  return orientation.SwapsSides() ? Size{stored.height, stored.width} : stored;
}

Plan MakePlan(Size stored, const Orientation& orientation, const std::vector<Target>& targets) {
  Plan plan;
  plan.upright = Upright(stored, orientation);
  Size needed;
  for (const Target& target : targets) {
    plan.steps.push_back(MakeStep(plan.steps.size(), stored, orientation, target));
    needed = Larger(needed, WholeSizeFor(plan.steps.back(), plan.upright));
  }
  std::sort(plan.steps.begin(), plan.steps.end(),
            [&plan](const Step& a, const Step& b) { return OrderOf(a, plan.upright) < OrderOf(b, plan.upright); });
  plan.decodeAtLeast = Upright(needed, orientation);
  return plan;
}

int JpegDenominator(Size stored, Size atLeast) {
  for (const int denominator : {8, 4, 2}) {
    const Size decoded = {(stored.width + denominator - 1) / denominator,
                          (stored.height + denominator - 1) / denominator};
    if (Covers(decoded, atLeast)) return denominator;
  }
  return 1;
}

std::optional<std::size_t> ChoosePreview(Size stored, const std::vector<Preview>& previews, Size atLeast,
                                         bool orLargest) {
  std::optional<std::size_t> smallest;
  std::optional<std::size_t> largest;
  for (std::size_t i = 0; i < previews.size(); ++i) {
    const Size size = previews[i].size;
    if (!HasAspect(size, stored)) continue;
    if (!largest || PixelsOf(size) > PixelsOf(previews[*largest].size)) largest = i;
    if (!Covers(size, atLeast)) continue;
    if (!smallest || PixelsOf(size) < PixelsOf(previews[*smallest].size)) smallest = i;
  }
  if (!smallest && orLargest) return largest;
  return smallest;
}

std::int64_t EstimateBytes(Size size, Type type, int quality) {
  const auto pixels = static_cast<double>(PixelsOf(size));
  if (type == Type::kPng) return std::llround(1.5 * pixels);
  // Large thumbnails have less detail per pixel.
  return std::llround(std::pow(pixels, 0.86) * FactorOf(quality));
}

}  // namespace tavithumb::maker
