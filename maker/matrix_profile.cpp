// SPDX-License-Identifier: GPL-3.0-or-later
#include "maker/matrix_profile.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <vector>

namespace tavithumb::maker {
namespace {

using Matrix = std::array<std::array<double, 3>, 3>;

// The colours of sRGB's red, green and blue, as its profile has them: adapted to D50.
constexpr Matrix kSrgbColorants = {
    {{0.4360657, 0.3851471, 0.1430664}, {0.2224884, 0.7168732, 0.0606079}, {0.0139160, 0.0970764, 0.7140961}}};

constexpr cmsTagSignature kColorants[] = {cmsSigRedColorantTag, cmsSigGreenColorantTag, cmsSigBlueColorantTag};
constexpr cmsTagSignature kCurves[] = {cmsSigRedTRCTag, cmsSigGreenTRCTag, cmsSigBlueTRCTag};
// So fine that the steepest part of sRGB's curve is exact to a fifth of a sample's step.
constexpr int kLightSteps = 16384;

// The columns are the colours of red, green and blue.
std::optional<Matrix> ColorantsOf(cmsHPROFILE profile) {
  Matrix matrix = {};
  for (std::size_t i = 0; i < 3; ++i) {
    const auto* xyz = static_cast<const cmsCIEXYZ*>(cmsReadTag(profile, kColorants[i]));
    if (xyz == nullptr) return std::nullopt;
    matrix[0][i] = xyz->X;
    matrix[1][i] = xyz->Y;
    matrix[2][i] = xyz->Z;
  }
  return matrix;
}

double Minor(const Matrix& m, std::size_t row, std::size_t column) {
  const std::size_t a = (row + 1) % 3;
  const std::size_t b = (row + 2) % 3;
  const std::size_t c = (column + 1) % 3;
  const std::size_t d = (column + 2) % 3;
  return m[a][c] * m[b][d] - m[a][d] * m[b][c];
}

Matrix Inverted(const Matrix& m) {
  const double determinant = m[0][0] * Minor(m, 0, 0) + m[0][1] * Minor(m, 0, 1) + m[0][2] * Minor(m, 0, 2);
  Matrix inverse = {};
  for (std::size_t i = 0; i < 3; ++i) {
    for (std::size_t j = 0; j < 3; ++j) inverse[i][j] = Minor(m, j, i) / determinant;
  }
  return inverse;
}

Matrix Multiplied(const Matrix& a, const Matrix& b) {
  Matrix product = {};
  for (std::size_t i = 0; i < 3; ++i) {
    for (std::size_t j = 0; j < 3; ++j) product[i][j] = a[i][0] * b[0][j] + a[i][1] * b[1][j] + a[i][2] * b[2][j];
  }
  return product;
}

double LightOfSrgb(double code) {
  return code <= 0.04045 ? code / 12.92 : std::pow((code + 0.055) / 1.055, 2.4);
}

// The sample of sRGB for each step of light.
std::vector<std::uint8_t> CodesOfLight() {
  std::vector<std::uint8_t> codes;
  codes.reserve(kLightSteps + 1);
  for (int code = 0; code < 256; ++code) {
    const double end = code == 255 ? 2 : LightOfSrgb((code + 0.5) / 255);
    while (codes.size() <= kLightSteps && static_cast<double>(codes.size()) < end * kLightSteps) {
      codes.push_back(static_cast<std::uint8_t>(code));
    }
  }
  return codes;
}

// Profiles with tables mean these; black that isn't would need black point compensation.
bool IsOfCurvesAndMatrix(cmsHPROFILE profile) {
  if (!cmsIsMatrixShaper(profile) || cmsGetPCS(profile) != cmsSigXYZData) return false;
  for (const cmsTagSignature table : {cmsSigAToB0Tag, cmsSigAToB1Tag, cmsSigDToB0Tag, cmsSigDToB1Tag}) {
    if (cmsIsTag(profile, table)) return false;
  }
  return true;
}

bool ReadCurve(cmsHPROFILE profile, cmsTagSignature tag, std::array<float, 256>* light) {
  const auto* curve = static_cast<const cmsToneCurve*>(cmsReadTag(profile, tag));
  if (curve == nullptr) return false;
  for (std::size_t i = 0; i < light->size(); ++i) {
    const float value = cmsEvalToneCurveFloat(curve, static_cast<float>(i) / 255);
    if (!(value >= 0 && value <= 1)) return false;
    (*light)[i] = value;
  }
  return light->front() < 1e-4F;
}

bool IsReasonable(const Matrix& matrix) {
  return std::all_of(matrix.begin(), matrix.end(), [](const std::array<double, 3>& row) {
    return std::all_of(row.begin(), row.end(), [](double factor) { return std::abs(factor) < 100; });
  });
}

}  // namespace

std::optional<MatrixToSrgb> MatrixToSrgb::Of(cmsHPROFILE profile) {
  if (!IsOfCurvesAndMatrix(profile)) return std::nullopt;
  MatrixToSrgb result;
  for (std::size_t i = 0; i < 3; ++i) {
    if (!ReadCurve(profile, kCurves[i], &result.light_[i])) return std::nullopt;
  }
  const std::optional<Matrix> colorants = ColorantsOf(profile);
  if (!colorants) return std::nullopt;
  const Matrix matrix = Multiplied(Inverted(kSrgbColorants), *colorants);
  if (!IsReasonable(matrix)) return std::nullopt;
  for (std::size_t i = 0; i < 3; ++i) {
    for (std::size_t j = 0; j < 3; ++j) result.matrix_[i][j] = static_cast<float>(matrix[i][j] * kLightSteps);
  }
  return result;
}

void MatrixToSrgb::Convert(std::uint8_t* red, std::uint8_t* green, std::uint8_t* blue, std::size_t width) const {
  static const std::vector<std::uint8_t> codes = CodesOfLight();
  std::uint8_t* rows[] = {red, green, blue};
  // Steps of a fixed length in arrays of their own: compilers turn these into vector instructions.
  std::array<std::array<float, kStep>, 3> light;
  std::array<std::int32_t, kStep> places;
  for (std::size_t x = 0; x < width; x += kStep) {
    for (std::size_t i = 0; i < 3; ++i) {
      for (std::size_t k = 0; k < kStep; ++k) light[i][k] = light_[i][rows[i][x + k]];
    }
    for (std::size_t i = 0; i < 3; ++i) {
      const std::array<float, 3>& factors = matrix_[i];
      for (std::size_t k = 0; k < kStep; ++k) {
        const float sum = factors[0] * light[0][k] + factors[1] * light[1][k] + factors[2] * light[2][k] + 0.5F;
        places[k] = std::clamp(static_cast<std::int32_t>(sum), 0, kLightSteps);
      }
      for (std::size_t k = 0; k < kStep; ++k) rows[i][x + k] = codes[static_cast<std::size_t>(places[k])];
    }
  }
}

}  // namespace tavithumb::maker
