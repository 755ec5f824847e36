// SPDX-License-Identifier: GPL-3.0-or-later
#include "maker/kernel.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <numeric>
#include <ostream>
#include <vector>

#include "tests/maker/lanczos3.h"

namespace tavithumb::maker {
namespace {

// What MakeKernel() is called with.
struct KernelRow {
  double from, to, covered;
  int results;
  int samples;
};

void PrintTo(const KernelRow& row, std::ostream* out) {
  *out << row.from << " to " << row.to << " of " << row.samples << " samples as " << row.covered << " of "
       << row.results;
}

const std::vector<KernelRow> kRows = {
    {0, 300, 120, 120, 300}, {0, 300, 119.5, 120, 300},    {300, 0, 120, 120, 300},       {0, 4000, 3, 3, 4000},
    {0, 4001, 3, 3, 4001},   {10.3, 250.1, 100, 100, 300}, {250.1, 10.3, 99.5, 100, 300}, {0, 50, 70, 70, 50},
    {0, 2, 1, 1, 2},         {-3, 12, 11, 11, 9},          {0.25, 40.25, 40, 40, 41},     {0, 1, 5, 5, 1},
    {0, 100, 66.5, 67, 100},
};

// The exact weights of all source samples in a result; samples beyond the source count for its edge.
std::vector<double> ExactWeights(const KernelRow& row, int result) {
  const double step = (row.to - row.from) / row.covered;
  const double scale = std::max(1.0, std::abs(step));
  const double centre = row.from + (result + 0.5) * step - 0.5;
  std::vector<double> weights(static_cast<std::size_t>(row.samples));
  double sum = 0;
  for (int place = static_cast<int>(std::ceil(centre - 3 * scale)); place <= centre + 3 * scale; ++place) {
    const double weight = test::Lanczos3((place - centre) / scale);
    weights[static_cast<std::size_t>(std::clamp(place, 0, row.samples - 1))] += weight;
    sum += weight;
  }
  for (double& weight : weights) weight /= sum;
  return weights;
}

std::vector<int> WeightsOf(const Kernel& kernel, int result, int samples) {
  std::vector<int> weights(static_cast<std::size_t>(samples) + 1);  // a tap may lie one behind the source
  const int start = kernel.starts[static_cast<std::size_t>(result)];
  for (int tap = 0; tap < kernel.taps; ++tap) {
    weights.at(static_cast<std::size_t>(start) + static_cast<std::size_t>(tap)) = kernel.Weights(result)[tap];
  }
  return weights;
}

TEST(Kernels, HaveTheWeightsOfLanczos3) {
  for (const KernelRow& row : kRows) {
    SCOPED_TRACE(testing::PrintToString(row));
    const Kernel kernel = MakeKernel(row.from, row.to, row.covered, row.results, row.samples);
    ASSERT_EQ(kernel.Results(), row.results);
    for (int result = 0; result < row.results; ++result) {
      const std::vector<int> weights = WeightsOf(kernel, result, row.samples);
      const std::vector<double> exact = ExactWeights(row, result);
      EXPECT_EQ(std::accumulate(weights.begin(), weights.end(), 0), Kernel::kOne) << result;
      EXPECT_EQ(weights.back(), 0) << result;
      // Running sums are rounded: a weight has the error of two of them.
      for (std::size_t i = 0; i < exact.size(); ++i) {
        ASSERT_NEAR(weights[i], exact[i] * Kernel::kOne, 1.1) << "result " << result << ", sample " << i;
      }
    }
  }
}

TEST(Kernels, HaveAsManyTapsAsTheirLongestResultNeeds) {
  const struct {
    KernelRow row;
    int taps;
  } rows[] = {
      {{0, 40, 40, 40, 40}, 2},  {{40, 0, 40, 40, 40}, 2}, {{0.5, 39.5, 39, 39, 40}, 6},
      {{0, 80, 40, 40, 80}, 12}, {{0, 1, 5, 5, 1}, 2},     {{0, 1000, 1, 1, 1000}, 1000},
  };
  for (const auto& row : rows) {
    const KernelRow& of = row.row;
    EXPECT_EQ(MakeKernel(of.from, of.to, of.covered, of.results, of.samples).taps, row.taps)
        << testing::PrintToString(of);
  }
}

TEST(Kernels, KnowWhatIsACopy) {
  const struct {
    KernelRow row;
    bool isCopy;
  } rows[] = {
      {{0, 40, 40, 40, 40}, true},  {{7, 27, 20, 20, 40}, true},      {{0, 1, 1, 1, 1}, true},
      {{40, 0, 40, 40, 40}, false}, {{0.5, 20.5, 20, 20, 40}, false}, {{0, 40, 20, 20, 40}, false},
      {{0, 40, 41, 41, 40}, false}, {{-2, 38, 40, 40, 40}, false},    {{0, 40, 39.5, 40, 40}, false},
  };
  for (const auto& row : rows) {
    const KernelRow& of = row.row;
    EXPECT_EQ(MakeKernel(of.from, of.to, of.covered, of.results, of.samples).isCopy, row.isCopy)
        << testing::PrintToString(of);
  }
}

}  // namespace
}  // namespace tavithumb::maker
