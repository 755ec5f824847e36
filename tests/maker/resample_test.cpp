// SPDX-License-Identifier: GPL-3.0-or-later
#include "maker/resample.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <functional>
#include <ostream>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "tests/maker/instructions.h"
#include "tests/maker/lanczos3.h"

namespace tavithumb::maker {

void PrintTo(const Scaling& scaling, std::ostream* out) {
  const Region& from = scaling.from;
  *out << "(" << from.left << ", " << from.top << ") to (" << from.right << ", " << from.bottom << ") as "
       << scaling.width << " x " << scaling.height << " of " << scaling.size.width << " x " << scaling.size.height;
}

namespace {

using Values = std::function<double(double x, double y)>;

// Samples of a function at the middles of the samples, a sample being one wide and one high.
Plane Sampled(Size size, const Values& values) {
  Plane plane(size);
  for (int y = 0; y < size.height; ++y) {
    for (int x = 0; x < size.width; ++x) {
      plane.Row(y)[x] = static_cast<std::uint8_t>(std::lround(std::clamp(values(x + 0.5, y + 0.5), 0.0, 255.0)));
    }
  }
  return plane;
}

Plane Noise(Size size, std::mt19937* random) {
  return Sampled(size, [&](double, double) { return (*random)() % 256; });
}

Scaling Whole(Size from, Size to) {
  return {{0, 0, static_cast<double>(from.width), static_cast<double>(from.height)},
          to,
          static_cast<double>(to.width),
          static_cast<double>(to.height)};
}

std::vector<int> Samples(const Plane& plane) {
  std::vector<int> samples;
  for (int y = 0; y < plane.Height(); ++y) samples.insert(samples.end(), plane.Row(y), plane.Row(y) + plane.Width());
  return samples;
}

struct Case {
  Size source;
  Scaling scaling;
};

Size RandomSize(std::mt19937* random, int most) {
  const auto side = [&] { return 1 + static_cast<int>((*random)() % static_cast<unsigned>(most)); };
  const int width = side();
  return {width, side()};
}

// Any part, a little beyond the edges too; sometimes the whole; mirrored or not; reduced, enlarged or copied.
Case RandomCase(std::mt19937* random) {
  const auto between = [&](double low, double high) { return std::uniform_real_distribution<>(low, high)(*random); };
  const auto isOneOf = [&](unsigned count) { return (*random)() % count == 0; };
  Case random_case;
  Size& source = random_case.source;
  source = RandomSize(random, isOneOf(8) ? 500 : 90);
  Scaling& scaling = random_case.scaling;
  scaling = Whole(source, isOneOf(6) ? source : RandomSize(random, 100));
  Region& from = scaling.from;
  if (isOneOf(2)) {
    from = {between(-3, source.width / 2.0), between(-3, source.height / 2.0),
            between(source.width / 2.0, source.width + 3), between(source.height / 2.0, source.height + 3)};
  }
  if (isOneOf(3)) std::swap(from.left, from.right);
  if (isOneOf(3)) std::swap(from.top, from.bottom);
  if (isOneOf(3)) scaling.width -= 0.5;
  if (isOneOf(3)) scaling.height -= 0.5;
  return random_case;
}

TEST(Resample, KnowsTheVectorInstructionsOfTheProcessor) {
  const std::int64_t best = hwy::SupportedAndGeneratedTargets().front();
  std::printf("vector instructions: %s\n", hwy::TargetName(best));
  EXPECT_NE(best, HWY_SCALAR);
  EXPECT_NE(best, HWY_EMU128);
}

TEST(Resample, GivesTheSameSamplesByVectorsAsByPlainCode) {
  WithAllInstructions([] {
    std::mt19937 random(1);  // NOLINT(cert-msc32-c,cert-msc51-cpp): repeatable on purpose
    for (int i = 0; i < 150; ++i) {
      const Case one = RandomCase(&random);
      const Plane source = Noise(one.source, &random);
      ASSERT_EQ(Samples(Resample(source, one.scaling)), Samples(ResamplePlainly(source, one.scaling)))
          << one.source.width << " x " << one.source.height << ": " << testing::PrintToString(one.scaling);
    }
  });
}

// The results of a vector may lie further apart than its window is wide, by a single sample too.
TEST(Resample, GivesTheSameSamplesByVectorsAtEveryReduction) {
  WithAllInstructions([] {
    std::mt19937 random(4);  // NOLINT(cert-msc32-c,cert-msc51-cpp): repeatable on purpose
    const Size size = {480, 3};
    const Plane source = Noise(size, &random);
    for (int width = 1; width <= size.width; ++width) {
      const Scaling scaling = Whole(size, {width, 2});
      ASSERT_EQ(Samples(Resample(source, scaling)), Samples(ResamplePlainly(source, scaling))) << width;
    }
  });
}

TEST(Resample, GivesTheSameSamplesByVectorsOfPlanesThatAreReducedStrongly) {
  WithAllInstructions([] {
    std::mt19937 random(2);  // NOLINT(cert-msc32-c,cert-msc51-cpp): repeatable on purpose
    for (const Size size : {Size{20000, 3}, Size{3, 20000}, Size{5000, 40}}) {
      const Plane source = Noise(size, &random);
      for (const Size to : {Size{1, 1}, Size{2, 2}, Size{70, 3}}) {
        const Scaling scaling = Whole(size, to);
        ASSERT_EQ(Samples(Resample(source, scaling)), Samples(ResamplePlainly(source, scaling)))
            << testing::PrintToString(scaling);
      }
    }
  });
}

// Next to an edge, Lanczos3 goes beyond black and white.
TEST(Resample, EndsAtBlackAndWhite) {
  WithAllInstructions([] {
    const Values edge = [](double x, double y) { return x < 2500 && y < 30 ? 0 : 255; };
    const Plane source = Sampled({5000, 60}, edge);
    for (const Size to : {Size{20, 60}, Size{20, 20}, Size{2500, 20}, Size{2500, 60}}) {
      const std::vector<int> samples = Samples(Resample(source, Whole({5000, 60}, to)));
      EXPECT_EQ(samples, Samples(ResamplePlainly(source, Whole({5000, 60}, to)))) << to.width << " x " << to.height;
      for (int x = to.width / 2 + 1; x < to.width; ++x) {
        ASSERT_GE(samples[static_cast<std::size_t>(x)], 250) << x << " of " << to.width << " x " << to.height;
      }
      for (int x = 0; x < to.width / 2 - 1; ++x) {
        ASSERT_LE(samples[static_cast<std::size_t>(x)], 5) << x << " of " << to.width << " x " << to.height;
      }
    }
  });
}

TEST(Resample, KeepsFlatAreas) {
  for (const int value : {0, 1, 127, 128, 254, 255}) {
    const Plane source = Sampled({301, 203}, [&](double, double) { return value; });
    for (const Size to : {Size{1, 1}, Size{13, 200}, Size{120, 81}, Size{301, 203}, Size{400, 300}}) {
      const std::vector<int> expected(static_cast<std::size_t>(to.width * to.height), value);
      EXPECT_EQ(Samples(Resample(source, Whole({301, 203}, to))), expected) << to.width << " x " << to.height;
    }
  }
}

TEST(Resample, AveragesWhatBecomesOneSample) {
  const Plane source = Sampled({6000, 1}, [](double x, double) { return x < 3000 ? 200 : 100; });
  EXPECT_EQ(Samples(Resample(source, Whole({6000, 1}, {1, 1}))), std::vector<int>{150});
}

TEST(Resample, CopiesWhatKeepsItsSize) {
  std::mt19937 random(3);  // NOLINT(cert-msc32-c,cert-msc51-cpp): repeatable on purpose
  const Plane source = Noise({67, 45}, &random);
  EXPECT_EQ(Samples(Resample(source, Whole({67, 45}, {67, 45}))), Samples(source));
  const Plane part = Resample(source, {{5, 7, 35, 27}, {30, 20}, 30, 20});
  for (int y = 0; y < 20; ++y) {
    for (int x = 0; x < 30; ++x) ASSERT_EQ(part.Row(y)[x], source.Row(y + 7)[x + 5]) << x << ", " << y;
  }
}

TEST(Resample, MirrorsWhatKeepsItsSize) {
  std::mt19937 random(4);  // NOLINT(cert-msc32-c,cert-msc51-cpp): repeatable on purpose
  const Plane source = Noise({67, 45}, &random);
  const Plane mirrored = Resample(source, {{67, 45, 0, 0}, {67, 45}, 67, 45});
  for (int y = 0; y < 45; ++y) {
    for (int x = 0; x < 67; ++x) ASSERT_EQ(mirrored.Row(y)[x], source.Row(44 - y)[66 - x]) << x << ", " << y;
  }
}

TEST(Resample, RepeatsTheEdgesOfTheSource) {
  const Plane source = Sampled({4, 4}, [](double x, double y) { return (x < 2 ? 40 : 80) + (y < 2 ? 0 : 100); });
  const Plane result = Resample(source, {{-20, -20, 24, 24}, {44, 44}, 44, 44});
  EXPECT_EQ(result.Row(0)[0], 40);
  EXPECT_EQ(result.Row(0)[43], 80);
  EXPECT_EQ(result.Row(43)[0], 140);
  EXPECT_EQ(result.Row(43)[43], 180);
}

// Rounding makes single samples differ; what is at another place differs everywhere, in the same direction. Results
// that reach beyond the edges of the source are left out.
void ExpectEqualOnAverage(Size size, const std::string& name, const std::function<double(int x, int y)>& difference) {
  constexpr int border = 4;
  double sum = 0;
  for (int y = border; y < size.height - border; ++y) {
    for (int x = border; x < size.width - border; ++x) {
      ASSERT_NEAR(difference(x, y), 0, 2) << name << " at " << x << ", " << y;
      sum += difference(x, y);
    }
  }
  EXPECT_NEAR(sum / ((size.width - 2 * border) * (size.height - 2 * border)), 0, 0.28) << name;
}

// Slopes stay slopes: each sample shows where in the source it has been taken.
TEST(Resample, PutsEachSampleAtItsPlace) {
  const Size size = {400, 300};
  const Values slopes = [](double x, double y) { return 20 + 0.3113 * x + 0.2937 * y; };
  const Plane source = Sampled(size, slopes);
  const Scaling rows[] = {
      Whole(size, {200, 150}),
      Whole(size, {123, 77}),
      {{0, 0, 400, 300}, {160, 120}, 159.5, 119.5},
      {{400, 0, 0, 300}, {160, 120}, 159.5, 119.5},
      {{400, 300, 0, 0}, {123, 77}, 122.5, 76.5},
      {{0, 300, 399.5, 0}, {240, 180}, 239.5, 179.5},
      {{30.3, 20.7, 250.1, 290.9}, {100, 100}, 100, 100},
      {{250.1, 290.9, 30.3, 20.7}, {100, 100}, 100, 100},
      {{100, 100, 200, 200}, {170, 170}, 169.75, 169.5},
  };
  for (const Scaling& row : rows) {
    const Plane result = Resample(source, row);
    const double across = (row.from.right - row.from.left) / row.width;
    const double down = (row.from.bottom - row.from.top) / row.height;
    ExpectEqualOnAverage(result.Dimensions(), testing::PrintToString(row), [&](int x, int y) {
      return result.Row(y)[x] - slopes(row.from.left + across * (x + 0.5), row.from.top + down * (y + 0.5));
    });
  }
}

// One axis of the reference: in floating point, rounded and clamped only by the caller.
std::vector<double> ReduceExactly(const std::vector<double>& source, std::size_t results) {
  const double scale = static_cast<double>(source.size()) / static_cast<double>(results);
  const auto last = static_cast<std::ptrdiff_t>(source.size()) - 1;
  std::vector<double> reduced;
  for (std::size_t i = 0; i < results; ++i) {
    const double centre = (static_cast<double>(i) + 0.5) * scale - 0.5;
    double sum = 0;
    double weights = 0;
    for (double k = std::ceil(centre - 3 * scale); k <= centre + 3 * scale; ++k) {
      const double weight = test::Lanczos3((k - centre) / scale);
      sum += weight *
             source[static_cast<std::size_t>(std::clamp<std::ptrdiff_t>(static_cast<std::ptrdiff_t>(k), 0, last))];
      weights += weight;
    }
    reduced.push_back(sum / weights);
  }
  return reduced;
}

std::vector<std::vector<double>> Transposed(const std::vector<std::vector<double>>& rows) {
  std::vector<std::vector<double>> columns(rows[0].size(), std::vector<double>(rows.size()));
  for (std::size_t y = 0; y < rows.size(); ++y) {
    for (std::size_t x = 0; x < rows[y].size(); ++x) columns[x][y] = rows[y][x];
  }
  return columns;
}

std::vector<double> ReduceExactly(const Plane& source, Size to) {
  std::vector<std::vector<double>> rows;
  for (int y = 0; y < source.Height(); ++y) {
    rows.push_back(ReduceExactly({source.Row(y), source.Row(y) + source.Width()}, static_cast<std::size_t>(to.width)));
  }
  std::vector<double> samples;
  std::vector<std::vector<double>> columns = Transposed(rows);
  for (std::vector<double>& column : columns) column = ReduceExactly(column, static_cast<std::size_t>(to.height));
  for (const std::vector<double>& row : Transposed(columns)) {
    for (const double sample : row) samples.push_back(std::clamp(sample, 0.0, 255.0));
  }
  return samples;
}

double MeanSquare(const std::vector<double>& a, const std::vector<double>& b) {
  double sum = 0;
  for (std::size_t i = 0; i < a.size(); ++i) sum += (a[i] - b[i]) * (a[i] - b[i]);
  return sum / static_cast<double>(a.size());
}

std::vector<double> Sampled(const std::vector<double>& exact) {
  std::vector<double> rounded(exact);
  for (double& value : rounded) value = std::round(value);
  return rounded;
}

std::vector<double> AsDoubles(const Plane& plane) {
  const std::vector<int> samples = Samples(plane);
  return {samples.begin(), samples.end()};
}

// Circles that get finer from the top left corner on, to two samples a period at the other one.
double ZonePlate(double x, double y) {
  return 127.5 + 110 * std::cos((x * x + y * y) * 0.007);
}

// Soft and hard edges, fine texture.
double Scene(double x, double y) {
  const double soft = 60 * std::sin(x / 37) * std::cos(y / 23);
  const double texture = 25 * std::sin(x * 1.7 + y * 0.6) * std::sin(y * 1.1);
  const double edges = (static_cast<int>(x / 53) + static_cast<int>(y / 41)) % 2 == 0 ? 30 : -30;
  return 128 + soft + texture + edges;
}

TEST(Resample, ComesCloseToLanczos3InFloatingPoint) {
  const Size size = {300, 220};
  const struct {
    const char* name;
    Values values;
  } pictures[] = {{"zone plate", ZonePlate}, {"scene", Scene}};
  for (const auto& picture : pictures) {
    const Plane source = Sampled(size, picture.values);
    for (const Size to : {Size{240, 176}, Size{187, 137}, Size{150, 110}, Size{50, 37}}) {
      const std::vector<double> exact = ReduceExactly(source, to);
      const double error = MeanSquare(AsDoubles(Resample(source, Whole(size, to))), exact);
      // Rounding to bytes alone costs 1/12; twice, for both axes, is what 8 bits between them cost.
      EXPECT_LT(error, 0.25) << picture.name << " to " << to.width << " x " << to.height;
      EXPECT_GT(error, 0) << picture.name;
      EXPECT_LT(error, MeanSquare(Sampled(exact), exact) + 0.15) << picture.name << " to " << to.width;
    }
  }
}

TEST(Transpose, MakesColumnsOfRows) {
  std::mt19937 random(5);  // NOLINT(cert-msc32-c,cert-msc51-cpp): repeatable on purpose
  WithAllInstructions([&] {
    for (const Size size : {Size{1, 1}, Size{16, 16}, Size{17, 15}, Size{1, 100}, Size{100, 1}, Size{130, 77}}) {
      const Plane source = Noise(size, &random);
      const Plane result = Transpose(source);
      ASSERT_EQ(result.Dimensions(), (Size{size.height, size.width}));
      for (int y = 0; y < size.height; ++y) {
        for (int x = 0; x < size.width; ++x) ASSERT_EQ(result.Row(x)[y], source.Row(y)[x]) << x << ", " << y;
      }
    }
  });
}

Channel WholeChannel(Plane plane) {
  const Size size = plane.Dimensions();
  return {std::move(plane), static_cast<double>(size.width), static_cast<double>(size.height)};
}

Picture GrayPicture(Plane plane) {
  Picture picture;
  picture.model = Model::kGray;
  picture.channels.push_back(WholeChannel(std::move(plane)));
  return picture;
}

std::vector<std::string> Rows(const Plane& plane) {
  std::vector<std::string> rows;
  for (int y = 0; y < plane.Height(); ++y) rows.emplace_back(plane.Row(y), plane.Row(y) + plane.Width());
  return rows;
}

TEST(Scale, PutsEachCornerWhereTheOrientationWantsIt) {
  const struct {
    Orientation orientation;
    std::vector<std::string> upright;
  } rows[] = {
      {{0, false}, {"abc", "def"}},     {{0, true}, {"cba", "fed"}},     {{1, false}, {"da", "eb", "fc"}},
      {{1, true}, {"fc", "eb", "da"}},  {{2, false}, {"fed", "cba"}},    {{2, true}, {"def", "abc"}},
      {{3, false}, {"cf", "be", "ad"}}, {{3, true}, {"ad", "be", "cf"}},
  };
  const Picture picture =
      GrayPicture(Sampled({3, 2}, [](double x, double y) { return 'a' + std::floor(x) + 3 * std::floor(y); }));
  for (const auto& row : rows) {
    const Picture upright = Scale(picture, {0, 0, 3, 2}, row.orientation, {3, 2}, false);
    EXPECT_EQ(Rows(upright.channels[0].plane), row.upright)
        << row.orientation.quarterTurns << " turns, mirrored: " << row.orientation.isMirrored;
  }
}

// A picture at 4:2:0 whose luma and chroma are the same slopes.
Picture SlopesWithHalvedChroma(Size size) {
  const double sides = size.width + size.height;
  Picture picture;
  picture.model = Model::kYcc;
  picture.channels.push_back(
      WholeChannel(Sampled(size, [&](double x, double y) { return 10 + 230 * (x + y) / sides; })));
  for (int i = 0; i < 2; ++i) {
    Plane chroma = Sampled({(size.width + 1) / 2, (size.height + 1) / 2},
                           [&](double x, double y) { return 10 + 460 * (x + y) / sides; });
    picture.channels.push_back({std::move(chroma), size.width / 2.0, size.height / 2.0});
  }
  return picture;
}

// The mean of the luma samples that a chroma sample covers.
double LumaAt(const Plane& luma, int x, int y) {
  return (luma.Row(2 * y)[2 * x] + luma.Row(2 * y)[2 * x + 1] + luma.Row(2 * y + 1)[2 * x] +
          luma.Row(2 * y + 1)[2 * x + 1]) /
         4.0;
}

void ExpectAlignedChroma(const Picture& picture) {
  const Plane& luma = picture.channels[0].plane;
  const Plane& chroma = picture.channels[1].plane;
  ExpectEqualOnAverage(chroma.Dimensions(), "chroma",
                       [&](int x, int y) { return chroma.Row(y)[x] - LumaAt(luma, x, y); });
}

TEST(Scale, KeepsTheChromaOfOddSizesAtItsLuma) {
  for (const Size size : {Size{479, 321}, Size{478, 320}, Size{161, 203}}) {
    const Picture picture = SlopesWithHalvedChroma(size);
    const Region whole = {0, 0, static_cast<double>(size.width), static_cast<double>(size.height)};
    for (const Size to : {Size{61, 43}, Size{60, 40}, Size{size.width, size.height}}) {
      for (int turns = 0; turns < 8; ++turns) {
        const Orientation orientation = {turns % 4, turns > 3};
        SCOPED_TRACE(std::to_string(size.width) + " to " + std::to_string(to.width) + ", orientation " +
                     std::to_string(turns));
        ExpectAlignedChroma(Scale(picture, whole, orientation, to, true));
      }
    }
  }
}

TEST(Scale, KeepsTheChromaOfAPartAtItsLuma) {
  const Picture picture = SlopesWithHalvedChroma({479, 321});
  for (int turns = 0; turns < 8; ++turns) {
    SCOPED_TRACE(turns);
    ExpectAlignedChroma(Scale(picture, {101.3, 33, 301.3, 233}, {turns % 4, turns > 3}, {71, 71}, true));
  }
}

TEST(Scale, KeepsTheChromaAtItsLumaWhenPicturesAreMadeOfOthers) {
  Picture picture = SlopesWithHalvedChroma({479, 321});
  Orientation orientation = {1, true};
  for (const Size to : {Size{301, 203}, Size{141, 199}, Size{61, 93}}) {
    const Channel& luma = picture.channels[0];
    picture = Scale(picture, {0, 0, luma.width, luma.height}, orientation, to, true);
    orientation = {};
    ExpectAlignedChroma(picture);
  }
}

TEST(Scale, GivesEachChannelItsSize) {
  const Picture picture = SlopesWithHalvedChroma({100, 80});
  const struct {
    Orientation orientation;
    bool halvesChroma;
    Size luma;
    Size chroma;
    double width;
    double height;
  } rows[] = {
      {{0, false}, true, {47, 31}, {24, 16}, 23.5, 15.5}, {{1, false}, true, {31, 47}, {16, 24}, 15.5, 23.5},
      {{2, true}, true, {47, 31}, {24, 16}, 23.5, 15.5},  {{0, false}, false, {47, 31}, {47, 31}, 47, 31},
      {{3, true}, false, {31, 47}, {31, 47}, 31, 47},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(std::to_string(row.orientation.quarterTurns) + " turns, halved: " + std::to_string(row.halvesChroma));
    const Picture result = Scale(picture, {0, 0, 100, 80}, row.orientation, {47, 31}, row.halvesChroma);
    EXPECT_EQ(result.channels[0].plane.Dimensions(), row.luma);
    EXPECT_EQ(result.channels[0].width, row.luma.width);
    EXPECT_EQ(result.channels[0].height, row.luma.height);
    for (const std::size_t i : {1, 2}) {
      EXPECT_EQ(result.channels[i].plane.Dimensions(), row.chroma);
      EXPECT_EQ(result.channels[i].width, row.width);
      EXPECT_EQ(result.channels[i].height, row.height);
    }
  }
}

TEST(Scale, HalvesOnlyChroma) {
  for (const Model model : {Model::kGray, Model::kYcc, Model::kRgb, Model::kCmyk}) {
    Picture picture;
    picture.model = model;
    picture.hasAlpha = true;
    const std::size_t colours = model == Model::kGray ? 1 : model == Model::kCmyk ? 4 : 3;
    for (std::size_t i = 0; i <= colours; ++i) picture.channels.push_back(WholeChannel(Plane({20, 10})));
    const Picture result = Scale(picture, {0, 0, 20, 10}, {}, {8, 4}, true);
    for (std::size_t i = 0; i <= colours; ++i) {
      const bool isHalved = model == Model::kYcc && (i == 1 || i == 2);
      EXPECT_EQ(result.channels[i].plane.Dimensions(), (isHalved ? Size{4, 2} : Size{8, 4})) << colours << ", " << i;
    }
  }
}

TEST(Scale, KeepsWhatDescribesTheSamples) {
  Picture picture = GrayPicture(Plane({10, 10}));
  picture.channels.push_back(WholeChannel(Plane({10, 10})));
  picture.ycc = {0.2126, 0.0722, false};
  picture.hasAlpha = true;
  picture.isPremultiplied = true;
  picture.profile = {1, 2, 3};
  picture.storedSize = {80, 80};
  const Picture result = Scale(picture, {0, 0, 10, 10}, {1, false}, {5, 5}, true);
  EXPECT_EQ(result.model, Model::kGray);
  EXPECT_EQ(result.ycc.redWeight, 0.2126);
  EXPECT_EQ(result.ycc.blueWeight, 0.0722);
  EXPECT_FALSE(result.ycc.isFullRange);
  EXPECT_TRUE(result.hasAlpha);
  EXPECT_TRUE(result.isPremultiplied);
  EXPECT_EQ(result.profile, picture.profile);
  EXPECT_EQ(result.storedSize, (Size{80, 80}));
  EXPECT_EQ(result.channels.size(), 2U);
}

}  // namespace
}  // namespace tavithumb::maker
