// SPDX-License-Identifier: GPL-3.0-or-later
// How close thumbnails come to the full picture, scaled by Lanczos3 in floating point on the encoded values:
//   quality-meter luma FULL.ppm THUMB.ppm BYTES [PEER.ppm BYTES]...   SSIM of the luma; PSNR of R, G and B; that of the
//                                                    peer at as many bytes, between those that are given by size
//   quality-meter scale FULL.ppm THUMB.ppm           writes FULL in the size of THUMB to standard output, as PPM
//   quality-meter patterns FULL.ppm THUMB.ppm        the largest difference of the means of 8 x 8 pixels
//   quality-meter colour SOURCE SIDE RAW WIDTH HEIGHT PROFILE   the mean CIEDE2000 of what the maker would encode to
//                                                    lcms2's; RAW has 16 bits per sample, as many as the profile says
#include <lcms2.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <fstream>
#include <iostream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <vector>

#include "maker/colour.h"
#include "maker/decode/decoders.h"
#include "maker/input.h"
#include "maker/resample.h"

namespace tavithumb::bench {
namespace {

struct Image {
  int width = 0;
  int height = 0;
  int channels = 3;
  std::vector<float> samples;

  Image(int w, int h, int c)
      : width(w), height(h), channels(c), samples(std::size_t(w) * std::size_t(h) * std::size_t(c)) {}
  float* At(int x, int y) {
    return samples.data() + (std::size_t(y) * std::size_t(width) + std::size_t(x)) * std::size_t(channels);
  }
  const float* At(int x, int y) const { return const_cast<Image*>(this)->At(x, y); }
};

std::string ReadFile(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) throw std::runtime_error("cannot read " + path);
  return {std::istreambuf_iterator<char>(file), {}};
}

Image ReadPpm(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  std::string magic;
  int width = 0, height = 0, most = 0;
  if (!(file >> magic >> width >> height >> most) || magic != "P6" || most != 255)
    throw std::runtime_error("no PPM: " + path);
  file.get();
  Image image(width, height, 3);
  std::vector<char> bytes(image.samples.size());
  file.read(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  std::transform(bytes.begin(), bytes.end(), image.samples.begin(),
                 [](char byte) { return float(static_cast<unsigned char>(byte)); });
  return image;
}

// Scaling -------------------------------------------------------------------------------------------------------------

double Lanczos3(double x) {
  if (x == 0) return 1;
  if (std::abs(x) >= 3) return 0;
  const double a = M_PI * x;
  return 3 * std::sin(a) * std::sin(a / 3) / (a * a);
}

struct Taps {
  int first = 0;
  std::vector<double> weights;
};

Taps TapsOf(int result, int from, int to) {
  const double scale = std::max(1.0, double(from) / to);
  const double centre = (result + 0.5) * from / to - 0.5;
  Taps taps = {int(std::ceil(centre - 3 * scale)), {}};
  double sum = 0;
  for (int i = taps.first; i <= centre + 3 * scale; ++i) taps.weights.push_back(Lanczos3((i - centre) / scale));
  for (const double weight : taps.weights) sum += weight;
  for (double& weight : taps.weights) weight /= sum;
  return taps;
}

Image ScaledDown(const Image& image, int height) {
  Image result(image.width, height, image.channels);
  const std::size_t row = std::size_t(image.width) * std::size_t(image.channels);
  for (int y = 0; y < height; ++y) {
    const Taps taps = TapsOf(y, image.height, height);
    float* to = result.At(0, y);
    for (std::size_t i = 0; i < taps.weights.size(); ++i) {
      const float* from = image.At(0, std::clamp(taps.first + int(i), 0, image.height - 1));
      const auto weight = float(taps.weights[i]);
      for (std::size_t x = 0; x < row; ++x) to[x] += weight * from[x];
    }
  }
  return result;
}

Image Transposed(const Image& image) {
  Image result(image.height, image.width, image.channels);
  for (int y = 0; y < image.height; ++y) {
    for (int x = 0; x < image.width; ++x) std::copy_n(image.At(x, y), image.channels, result.At(y, x));
  }
  return result;
}

Image Scaled(const Image& image, int width, int height) {
  return Transposed(ScaledDown(Transposed(ScaledDown(image, height)), width));
}

void Clamp(Image* image, float most) {
  for (float& sample : image->samples) sample = std::clamp(sample, 0.0F, most);
}

// Luma and patterns ---------------------------------------------------------------------------------------------------

Image LumaOf(const Image& image) {
  Image luma(image.width, image.height, 1);
  for (int y = 0; y < image.height; ++y) {
    for (int x = 0; x < image.width; ++x) {
      const float* rgb = image.At(x, y);
      *luma.At(x, y) = 0.299F * rgb[0] + 0.587F * rgb[1] + 0.114F * rgb[2];
    }
  }
  return luma;
}

double SsimOfWindow(const Image& a, const Image& b, int left, int top, int side) {
  double sumA = 0, sumB = 0, squaresA = 0, squaresB = 0, products = 0;
  for (int y = top; y < top + side; ++y) {
    for (int x = left; x < left + side; ++x) {
      const double p = *a.At(x, y), q = *b.At(x, y);
      sumA += p, sumB += q, squaresA += p * p, squaresB += q * q, products += p * q;
    }
  }
  const double count = side * side, meanA = sumA / count, meanB = sumB / count;
  const double varianceA = squaresA / count - meanA * meanA, varianceB = squaresB / count - meanB * meanB;
  const double covariance = products / count - meanA * meanB;
  constexpr double c1 = 0.01 * 255 * 0.01 * 255, c2 = 0.03 * 255 * 0.03 * 255;
  return (2 * meanA * meanB + c1) * (2 * covariance + c2) /
         ((meanA * meanA + meanB * meanB + c1) * (varianceA + varianceB + c2));
}

// The mean over all windows of 8 x 8.
double Ssim(const Image& a, const Image& b) {
  constexpr int side = 8;
  double sum = 0;
  for (int y = 0; y + side <= a.height; ++y) {
    for (int x = 0; x + side <= a.width; ++x) sum += SsimOfWindow(a, b, x, y, side);
  }
  return sum / (double(a.width - side + 1) * (a.height - side + 1));
}

double Psnr(const Image& a, const Image& b) {
  double sum = 0;
  for (std::size_t i = 0; i < a.samples.size(); ++i) sum += std::pow(double(a.samples[i]) - double(b.samples[i]), 2);
  return 10 * std::log10(255.0 * 255.0 * double(a.samples.size()) / sum);
}

void CheckSizes(const Image& a, const Image& b) {
  if (a.width != b.width || a.height != b.height) throw std::runtime_error("the sizes differ");
}

struct Point {
  double bytes;
  double psnr;
};

// Linear in the logarithm of the bytes. `points` are in the order of their bytes.
double PsnrAt(double bytes, const std::vector<Point>& points) {
  std::size_t next = 1;
  while (next + 1 < points.size() && points[next].bytes < bytes) ++next;
  const Point &low = points[next - 1], &high = points[next];
  return low.psnr + (high.psnr - low.psnr) * std::log(bytes / low.bytes) / std::log(high.bytes / low.bytes);
}

void MeasureLuma(const std::vector<std::string>& words) {
  const Image thumb = ReadPpm(words[1]);
  Image reference = Scaled(ReadPpm(words[0]), thumb.width, thumb.height);
  Clamp(&reference, 255);
  std::vector<Point> peer;
  for (std::size_t i = 3; i + 1 < words.size(); i += 2) {
    const Image other = ReadPpm(words[i]);
    CheckSizes(reference, other);
    peer.push_back({std::stod(words[i + 1]), Psnr(reference, other)});
  }
  std::cout << Ssim(LumaOf(reference), LumaOf(thumb)) << " " << Psnr(reference, thumb);
  if (peer.size() > 1) std::cout << " " << PsnrAt(std::stod(words[2]), peer);
  std::cout << "\n";
}

void WriteScaled(const std::vector<std::string>& words) {
  const Image thumb = ReadPpm(words[1]);
  Image scaled = Scaled(ReadPpm(words[0]), thumb.width, thumb.height);
  Clamp(&scaled, 255);
  std::cout << "P6\n" << scaled.width << " " << scaled.height << "\n255\n";
  for (const float sample : scaled.samples) std::cout.put(static_cast<char>(std::lround(sample)));
}

void MeasurePatterns(const std::vector<std::string>& words) {
  const Image thumb = ReadPpm(words[1]);
  Image reference = Scaled(ReadPpm(words[0]), thumb.width, thumb.height);
  Clamp(&reference, 255);
  const Image a = LumaOf(reference), b = LumaOf(thumb);
  constexpr int side = 8;
  double largest = 0;
  for (int top = 0; top + side <= a.height; ++top) {
    for (int left = 0; left + side <= a.width; ++left) {
      double sum = 0;
      for (int y = top; y < top + side; ++y) {
        for (int x = left; x < left + side; ++x) sum += double(*a.At(x, y)) - double(*b.At(x, y));
      }
      largest = std::max(largest, std::abs(sum) / (side * side));
    }
  }
  std::cout << largest << "\n";
}

// Colour --------------------------------------------------------------------------------------------------------------

Image ReadRaw(const std::string& path, int width, int height, int channels) {
  Image image(width, height, channels);
  const std::string bytes = ReadFile(path);
  if (bytes.size() != 2 * image.samples.size()) throw std::runtime_error("unexpected size of " + path);
  for (std::size_t i = 0; i < image.samples.size(); ++i) {
    const unsigned low = static_cast<unsigned char>(bytes[2 * i]), high = static_cast<unsigned char>(bytes[2 * i + 1]);
    image.samples[i] = float(high << 8 | low) / 65535.0F;
  }
  return image;
}

// What the maker would encode.
Image Rendered(const std::string& path, int side) {
  const maker::Input input(path);
  const auto decoder = maker::OpenDecoder(input);
  const maker::Plan plan = maker::MakePlan(decoder->Head().stored, {}, {{{side, side}, false}});
  const maker::Picture decoded = decoder->Decode(plan.decodeAtLeast);
  const maker::Channel& first = decoded.channels[0];
  maker::Picture scaled = maker::Scale(decoded, {0, 0, first.width, first.height}, {}, plan.steps[0].size, false);
  maker::ConvertToSrgb(&scaled);
  if (scaled.model == maker::Model::kYcc) maker::YccToRgb(&scaled);
  Image image(plan.steps[0].size.width, plan.steps[0].size.height, 3);
  for (int y = 0; y < image.height; ++y) {
    for (int x = 0; x < image.width; ++x) {
      for (std::size_t c = 0; c < 3; ++c) image.At(x, y)[c] = float(scaled.channels[c].plane.Row(y)[x]) / 255.0F;
    }
  }
  return image;
}

// With BPC, as the maker converts.
Image Converted(const Image& image, cmsHPROFILE from, cmsUInt32Number fromType, cmsHPROFILE to,
                cmsUInt32Number toType) {
  const cmsHTRANSFORM transform = cmsCreateTransform(from, fromType, to, toType, INTENT_RELATIVE_COLORIMETRIC,
                                                     cmsFLAGS_BLACKPOINTCOMPENSATION | cmsFLAGS_NOOPTIMIZE);
  if (transform == nullptr) throw std::runtime_error("lcms2 takes no such profile");
  Image result(image.width, image.height, 3);
  cmsDoTransform(transform, image.samples.data(), result.samples.data(), cmsUInt32Number(image.width * image.height));
  cmsDeleteTransform(transform);
  return result;
}

cmsCIELab LabAt(const Image& image, int x, int y) {
  const float* lab = image.At(x, y);
  return {lab[0], lab[1], lab[2]};
}

void MeasureColour(const std::vector<std::string>& words) {
  const std::string profile = ReadFile(words[5]);
  const cmsHPROFILE source = cmsOpenProfileFromMem(profile.data(), cmsUInt32Number(profile.size()));
  const bool isCmyk = cmsGetColorSpace(source) == cmsSigCmykData;
  const cmsHPROFILE srgb = cmsCreate_sRGBProfile(), lab = cmsCreateLab4Profile(nullptr);

  const Image made = Rendered(words[0], std::stoi(words[1]));
  Image full =
      Scaled(ReadRaw(words[2], std::stoi(words[3]), std::stoi(words[4]), isCmyk ? 4 : 3), made.width, made.height);
  Clamp(&full, 1);
  if (isCmyk) std::for_each(full.samples.begin(), full.samples.end(), [](float& ink) { ink *= 100; });
  Image reference = Converted(full, source, isCmyk ? TYPE_CMYK_FLT : TYPE_RGB_FLT, srgb, TYPE_RGB_FLT);
  Clamp(&reference, 1);
  const Image a = Converted(reference, srgb, TYPE_RGB_FLT, lab, TYPE_Lab_FLT);
  const Image b = Converted(made, srgb, TYPE_RGB_FLT, lab, TYPE_Lab_FLT);
  double sum = 0;
  for (int y = 0; y < a.height; ++y) {
    for (int x = 0; x < a.width; ++x) {
      const cmsCIELab p = LabAt(a, x, y), q = LabAt(b, x, y);
      sum += cmsCIE2000DeltaE(&p, &q, 1, 1, 1);
    }
  }
  std::cout << sum / (double(a.width) * a.height) << "\n";
}

}  // namespace
}  // namespace tavithumb::bench

int main(int argc, char** argv) {
  const std::vector<std::string> words(argv + 1, argv + argc);
  const std::vector<std::string> rest(words.begin() + std::min<std::ptrdiff_t>(1, argc - 1), words.end());
  try {
    if (rest.size() >= 3 && words[0] == "luma") return tavithumb::bench::MeasureLuma(rest), 0;
    if (rest.size() == 2 && words[0] == "scale") return tavithumb::bench::WriteScaled(rest), 0;
    if (rest.size() == 2 && words[0] == "patterns") return tavithumb::bench::MeasurePatterns(rest), 0;
    if (rest.size() == 6 && words[0] == "colour") return tavithumb::bench::MeasureColour(rest), 0;
  } catch (const std::exception& error) {
    std::cerr << "quality-meter: " << error.what() << "\n";
    return 1;
  }
  return 2;
}
