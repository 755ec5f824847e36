// SPDX-License-Identifier: GPL-3.0-or-later
#include "maker/kernel.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <numeric>

namespace tavithumb::maker {
namespace {

constexpr int kLobes = 3;
constexpr int kStepsPerLobe = 512;
constexpr std::size_t kSteps = std::size_t{kLobes} * kStepsPerLobe;
constexpr double kPi = 3.14159265358979323846;

// Lanczos3 from 0 on, and zeros behind its end. Sines would take longer than the scaling of a small plane.
class Lanczos {
 public:
  Lanczos() {
    values_[0] = 1;
    for (std::size_t i = 1; i < kSteps; ++i) {
      const double x = kPi * static_cast<double>(i) / kStepsPerLobe;
      values_[i] = kLobes * std::sin(x) * std::sin(x / kLobes) / (x * x);
    }
  }

  // Linear interpolation is exact to a fraction of a weight's last bit.
  double At(double x) const {
    const double place = std::abs(x) * kStepsPerLobe;
    const auto index = static_cast<std::size_t>(place);
    if (index >= kSteps) return 0;
    return values_[index] + (values_[index + 1] - values_[index]) * (place - static_cast<double>(index));
  }

 private:
  std::array<double, kSteps + 1> values_ = {};
};

// Much faster than std::lround(); it doesn't matter here which way halves go. Values are far above -2 * kOne.
int Rounded(double value) {
  constexpr int offset = 2 * Kernel::kOne;
  return static_cast<int>(value + offset + 0.5) - offset;  // NOLINT(bugprone-incorrect-roundings)
}

// The weights of one result, among those of all results.
struct Taps {
  int start = 0;  // the first sample
  std::size_t place = 0;
  std::size_t count = 0;
};

// Collects the weights of results of different lengths.
class Weighing {
 public:
  Weighing(double scale, int samples) : scale_(scale), samples_(samples) {}

  // Adds a result whose middle is at `centre` (0 is the middle of the first sample).
  void Add(double centre);
  Kernel Finish() const;

 private:
  Taps Quantize(int start);
  void DropZeros(Taps* taps) const;
  bool IsCopy() const;

  double scale_;
  int samples_;
  std::vector<double> exact_;  // of the result that is being added
  std::vector<Taps> results_;
  std::vector<std::int16_t> weights_;
};

void Weighing::Add(double centre) {
  static const Lanczos lanczos;
  const double radius = kLobes * scale_;
  const int from = static_cast<int>(std::ceil(centre - radius));
  const int to = static_cast<int>(std::floor(centre + radius));
  const int start = std::clamp(from, 0, samples_ - 1);
  const int end = std::clamp(to, 0, samples_ - 1) + 1;
  exact_.assign(static_cast<std::size_t>(end - start), 0);
  const double step = 1 / scale_;
  for (int i = start; i < end; ++i) exact_[static_cast<std::size_t>(i - start)] = lanczos.At((i - centre) * step);
  // The edges stand in for all samples beyond them.
  for (int i = from; i < start; ++i) exact_.front() += lanczos.At((i - centre) * step);
  for (int i = std::max(end, from); i <= to; ++i) exact_.back() += lanczos.At((i - centre) * step);
  Taps taps = Quantize(start);
  DropZeros(&taps);
  results_.push_back(taps);
}

// Rounds running sums, not single weights: thousands of small weights would all be rounded the same way.
Taps Weighing::Quantize(int start) {
  const Taps taps = {start, weights_.size(), exact_.size()};
  const double unit = Kernel::kOne / std::accumulate(exact_.begin(), exact_.end(), 0.0);
  weights_.resize(taps.place + taps.count);
  std::int16_t* weight = weights_.data() + taps.place;
  double running = 0;
  int given = 0;
  for (const double exact : exact_) {
    running += exact;
    const int rounded = Rounded(running * unit);
    *weight++ = static_cast<std::int16_t>(rounded - given);
    given = rounded;
  }
  return taps;
}

void Weighing::DropZeros(Taps* taps) const {
  while (weights_[taps->place + taps->count - 1] == 0) --taps->count;
  for (; weights_[taps->place] == 0; --taps->count) {
    ++taps->place;
    ++taps->start;
  }
}

bool Weighing::IsCopy() const {
  for (std::size_t i = 0; i < results_.size(); ++i) {
    if (results_[i].count != 1 || results_[i].start != results_[0].start + static_cast<int>(i)) return false;
  }
  return true;
}

// All results get the same number of taps; those near the end start earlier, with zeros in front.
Kernel Weighing::Finish() const {
  Kernel kernel;
  kernel.isCopy = IsCopy();
  std::size_t most = 0;
  for (const Taps& result : results_) most = std::max(most, result.count);
  most += most % 2;
  kernel.taps = static_cast<int>(most);
  kernel.weights.resize(results_.size() * most);
  kernel.starts.reserve(results_.size());
  for (std::size_t i = 0; i < results_.size(); ++i) {
    const Taps& result = results_[i];
    const int start = std::min(result.start, std::max(0, samples_ + 1 - kernel.taps));
    kernel.starts.push_back(start);
    std::copy_n(weights_.data() + result.place, result.count,
                kernel.weights.data() + i * most + static_cast<std::size_t>(result.start - start));
  }
  return kernel;
}

}  // namespace

Kernel MakeKernel(double from, double to, double covered, int results, int sourceSamples) {
  const double step = (to - from) / covered;
  Weighing weighing(std::max(1.0, std::abs(step)), sourceSamples);
  for (int i = 0; i < results; ++i) weighing.Add(from + (i + 0.5) * step - 0.5);
  return weighing.Finish();
}

}  // namespace tavithumb::maker
