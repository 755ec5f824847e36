// SPDX-License-Identifier: GPL-3.0-or-later
#include "maker/plan.h"

#include <gtest/gtest.h>

#include <cmath>
#include <sstream>
#include <string>
#include <vector>

#include "pictures.h"

namespace tavithumb::maker {

// For the messages of failed tests.
static std::ostream& operator<<(std::ostream& out, Size size) {
  return out << size.width << "x" << size.height;
}

namespace {

std::string Text(Size size) {
  std::ostringstream text;
  text << size;
  return text.str();
}

std::string Text(const Region& region) {
  std::ostringstream text;
  text << region.left << "," << region.top << " to " << region.right << "," << region.bottom;
  return text.str();
}

TEST(FitInto, GivesTheSizesOfThumbnails) {
  struct Row {
    Size picture, box, size;
  };
  const std::vector<Row> rows = {
      {{4000, 3000}, {640, 640}, {640, 480}},
      {{3000, 4000}, {640, 640}, {480, 640}},
      {{4032, 3024}, {1280, 1280}, {1280, 960}},
      {{4608, 3072}, {360, 360}, {360, 240}},
      {{400, 300}, {120, 90}, {120, 90}},
      {{401, 299}, {120, 120}, {120, 89}},
      {{2272, 1704}, {120, 120}, {120, 90}},
      // Halves are rounded up, as far as the arithmetic gives exactly a half.
      {{288, 222}, {120, 120}, {120, 93}},
      {{38, 304}, {100, 100}, {13, 100}},
      // A narrow picture keeps one pixel.
      {{10000, 3}, {120, 120}, {120, 1}},
      {{3, 10000}, {120, 120}, {1, 120}},
      {{65500, 1}, {640, 640}, {640, 1}},
      // Only one side exceeds its box.
      {{641, 10}, {640, 640}, {640, 10}},
      {{10, 700}, {640, 480}, {7, 480}},
      // Nothing is enlarged.
      {{100, 80}, {640, 640}, {100, 80}},
      {{640, 640}, {640, 640}, {640, 640}},
      {{1, 1}, {1, 1}, {1, 1}},
      {{2, 1}, {1, 1}, {1, 1}},
  };
  for (const Row& row : rows) {
    EXPECT_EQ(FitInto(row.picture, row.box), row.size) << row.picture << " into " << row.box;
  }
}

struct Fit {
  Size picture, box;
};

// What ImageMagick makes of empty pictures of these sizes.
std::vector<std::string> SizesByConvert(const std::vector<Fit>& fits) {
  std::vector<std::string> argv = {"/usr/bin/convert"};
  for (const Fit& fit : fits) {
    for (const std::string& argument :
         {std::string("-size"), Text(fit.picture), std::string("xc:gray"), std::string("-thumbnail"), Text(fit.box),
          std::string("-format"), std::string("%wx%h\n"), std::string("-write"), std::string("info:-"),
          std::string("+delete")}) {
      argv.push_back(argument);
    }
  }
  argv.insert(argv.end(), {"-size", "1x1", "xc:gray", "null:"});
  std::istringstream output(test::RunTool(argv));
  std::vector<std::string> sizes;
  for (std::string line; std::getline(output, line);) {
    if (!line.empty()) sizes.push_back(line);
  }
  return sizes;
}

TEST(FitInto, AgreesWithImageMagickToThePixel) {
  std::vector<Fit> fits;
  for (int i = 0; i < 48; ++i) {
    const Size picture = {121 + i * 53 % 479, 121 + i * 97 % 401};
    const int side = i % 3 == 0 ? 120 : 31 + i;
    fits.push_back({picture, {side, i % 4 == 0 ? side / 2 : side}});
  }
  fits.push_back({{997, 2}, {120, 120}});
  fits.push_back({{3, 997}, {120, 120}});
  const std::vector<std::string> sizes = SizesByConvert(fits);
  ASSERT_EQ(sizes.size(), fits.size());
  for (std::size_t i = 0; i < fits.size(); ++i) {
    EXPECT_EQ(Text(FitInto(fits[i].picture, fits[i].box)), sizes[i]) << fits[i].picture << " into " << fits[i].box;
  }
}

TEST(Orientations, TurnAfterTheyMirror) {
  const Orientation mirrored = Turned({3, true}, 2);
  EXPECT_EQ(mirrored.quarterTurns, 1);
  EXPECT_TRUE(mirrored.isMirrored);
  EXPECT_EQ(Turned({1, false}, 0).quarterTurns, 1);
  EXPECT_FALSE(Turned({1, false}, 0).isMirrored);
}

TEST(Orientations, SwapTheSidesOfOddQuarterTurns) {
  EXPECT_EQ(Upright({40, 30}, {0, true}), (Size{40, 30}));
  EXPECT_EQ(Upright({40, 30}, {1, false}), (Size{30, 40}));
  EXPECT_EQ(Upright({40, 30}, {2, false}), (Size{40, 30}));
  EXPECT_EQ(Upright({40, 30}, {3, true}), (Size{30, 40}));
}

std::string Text(const Plan& plan) {
  std::ostringstream text;
  text << plan.upright << ", decode " << plan.decodeAtLeast;
  for (const Step& step : plan.steps) text << "; " << step.target << ": " << step.size << " of " << Text(step.part);
  return text.str();
}

TEST(Plans, HaveAStepForEachTargetLargestFirst) {
  EXPECT_EQ(Text(MakePlan({4000, 3000}, {}, {{{120, 120}}, {{640, 640}}, {{360, 360}}})),
            "4000x3000, decode 640x480; 1: 640x480 of 0,0 to 4000,3000; 2: 360x270 of 0,0 to 4000,3000; "
            "0: 120x90 of 0,0 to 4000,3000");
}

TEST(Plans, AreOfTheUprightPictureButDecodeAsStored) {
  EXPECT_EQ(Text(MakePlan({4000, 3000}, {1, false}, {{{120, 120}}, {{640, 640}}})),
            "3000x4000, decode 640x480; 1: 480x640 of 0,0 to 3000,4000; 0: 90x120 of 0,0 to 3000,4000");
}

TEST(Plans, KeepTheSizeOfPicturesThatFit) {
  EXPECT_EQ(Text(MakePlan({100, 50}, {}, {{{640, 640}}, {{1280, 1280}}})),
            "100x50, decode 100x50; 0: 100x50 of 0,0 to 100,50; 1: 100x50 of 0,0 to 100,50");
}

TEST(Plans, AreEmptyWithoutTargets) {
  EXPECT_EQ(Text(MakePlan({100, 50}, {}, {})), "100x50, decode 0x0");
}

TEST(Plans, CropFromTheCentreAndDecodeEnoughForThePart) {
  struct Row {
    Size stored;
    int turns;
    Size box;
    const char* plan;
  };
  const std::vector<Row> rows = {
      {{4000, 3000}, 0, {120, 120}, "4000x3000, decode 160x120; 0: 120x120 of 500,0 to 3500,3000"},
      {{4000, 3000}, 1, {120, 120}, "3000x4000, decode 160x120; 0: 120x120 of 0,500 to 3000,3500"},
      {{4000, 3000}, 1, {100, 50}, "3000x4000, decode 134x100; 0: 100x50 of 0,1250 to 3000,2750"},
      {{400, 301}, 0, {100, 100}, "400x301, decode 133x100; 0: 100x100 of 49.5,0 to 350.5,301"},
      {{120, 120}, 0, {120, 120}, "120x120, decode 120x120; 0: 120x120 of 0,0 to 120,120"},
      {{201, 120}, 0, {120, 120}, "201x120, decode 201x120; 0: 120x120 of 40,0 to 160,120"},
      // Too small in one direction or both: the part with the box's aspect, in its own pixels.
      {{200, 90}, 0, {120, 120}, "200x90, decode 200x90; 0: 90x90 of 55,0 to 145,90"},
      {{201, 90}, 0, {120, 120}, "201x90, decode 201x90; 0: 90x90 of 55,0 to 145,90"},
      {{100, 50}, 0, {120, 90}, "100x50, decode 100x50; 0: 67x50 of 16,0 to 83,50"},
      {{10, 10}, 0, {1, 1000}, "10x10, decode 10x10; 0: 1x10 of 4,0 to 5,10"},
      {{1, 1}, 0, {120, 90}, "1x1, decode 1x1; 0: 1x1 of 0,0 to 1,1"},
  };
  for (const Row& row : rows) {
    EXPECT_EQ(Text(MakePlan(row.stored, {row.turns, false}, {{row.box, true}})), row.plan)
        << row.stored << " into " << row.box;
  }
}

TEST(Plans, TakeAGivenPartOfTheStoredPictureInItsOwnPixels) {
  const struct {
    Orientation orientation;
    const char* plan;
  } rows[] = {
      {{0, false}, "40x30, decode 40x30; 0: 10x20 of 3,1 to 13,21"},
      {{1, false}, "30x40, decode 40x30; 0: 20x10 of 9,3 to 29,13"},
      {{2, false}, "40x30, decode 40x30; 0: 10x20 of 27,9 to 37,29"},
      {{3, false}, "30x40, decode 40x30; 0: 20x10 of 1,27 to 21,37"},
      {{0, true}, "40x30, decode 40x30; 0: 10x20 of 27,1 to 37,21"},
      {{1, true}, "30x40, decode 40x30; 0: 20x10 of 9,27 to 29,37"},
      {{2, true}, "40x30, decode 40x30; 0: 10x20 of 3,9 to 13,29"},
      {{3, true}, "30x40, decode 40x30; 0: 20x10 of 1,3 to 21,13"},
  };
  Target target = {{10, 20}};
  target.part = Region{3, 1, 13, 21};
  for (const auto& row : rows) {
    EXPECT_EQ(Text(MakePlan({40, 30}, row.orientation, {target})), row.plan)
        << row.orientation.quarterTurns << row.orientation.isMirrored;
  }
}

TEST(Plans, DecodeEnoughForEveryStepAndPutWholePicturesBeforeTheirCrops) {
  EXPECT_EQ(Text(MakePlan({4000, 3000}, {}, {{{120, 120}, true}, {{120, 120}}, {{160, 160}}})),
            "4000x3000, decode 160x120; 2: 160x120 of 0,0 to 4000,3000; 0: 120x120 of 500,0 to 3500,3000; "
            "1: 120x90 of 0,0 to 4000,3000");
}

TEST(JpegDenominators, DecodeNoSmallerThanNeeded) {
  struct Row {
    Size stored, atLeast;
    int denominator;
  };
  const std::vector<Row> rows = {
      {{4000, 3000}, {120, 90}, 8},  {{4000, 3000}, {500, 375}, 8},  {{4000, 3000}, {501, 375}, 4},
      {{4000, 3000}, {640, 480}, 4}, {{4000, 3000}, {1280, 960}, 2}, {{4000, 3000}, {2001, 1}, 1},
      {{4000, 3000}, {1, 1501}, 1},  {{6000, 4000}, {640, 427}, 8},  {{6000, 4000}, {1280, 853}, 4},
      {{633, 475}, {80, 60}, 8},     {{633, 475}, {81, 60}, 4},      {{1, 1}, {1, 1}, 8},
      {{9, 9}, {9, 9}, 1},           {{65500, 65500}, {0, 0}, 8},
  };
  for (const Row& row : rows) {
    EXPECT_EQ(JpegDenominator(row.stored, row.atLeast), row.denominator) << row.stored << " at least " << row.atLeast;
  }
}

TEST(Previews, StandInIfTheyAreLargeEnoughAndHaveThePhotosAspect) {
  struct Row {
    std::vector<Preview> previews;
    Size atLeast;
    int chosen;     // -1 for none
    int orLargest;  // what is chosen if a smaller one will do
  };
  const std::vector<Row> rows = {
      {{}, {120, 90}, -1, -1},
      {{{{160, 120}}}, {120, 90}, 0, 0},
      {{{{160, 120}}}, {160, 120}, 0, 0},
      {{{{160, 120}}}, {161, 120}, -1, 0},
      {{{{160, 120}}}, {160, 121}, -1, 0},
      // The smallest that is large enough, wherever it is in the list.
      {{{{1600, 1200}}, {{160, 120}}, {{640, 480}}}, {360, 270}, 2, 2},
      {{{{640, 480}}, {{1600, 1200}}}, {360, 270}, 0, 0},
      {{{{640, 480}}, {{1600, 1200}}, {{160, 120}}}, {3000, 2000}, -1, 1},
      // Black bars and lying on its side, but rounded sides are accepted.
      {{{{160, 106}}}, {120, 80}, -1, -1},
      {{{{120, 160}}}, {90, 120}, -1, -1},
      {{{{160, 119}}, {{160, 121}}}, {120, 90}, 0, 0},
      {{{{1000, 743}}, {{1000, 757}}}, {1, 1}, 0, 0},
      {{{{1000, 742}}, {{1000, 758}}}, {1, 1}, -1, -1},
      {{{{0, 0}}, {{-4, -3}}}, {0, 0}, -1, -1},
  };
  for (const Row& row : rows) {
    const auto index = [&row](bool orLargest) {
      const auto chosen = ChoosePreview({4000, 3000}, row.previews, row.atLeast, orLargest);
      return chosen ? static_cast<int>(*chosen) : -1;
    };
    EXPECT_EQ(index(false), row.chosen) << "row " << &row - rows.data();
    EXPECT_EQ(index(true), row.orLargest) << "row " << &row - rows.data();
  }
}

TEST(Estimates, AreNearTheMeanOfPhotos) {
  struct Row {
    Size size;
    double kilobytes;
  };
  for (const Row& row : {Row{{120, 90}, 3}, {{360, 270}, 19}, {{640, 480}, 51.5}, {{1280, 960}, 169}}) {
    const auto bytes = static_cast<double>(EstimateBytes(row.size, Type::kJpeg, 80));
    EXPECT_NEAR(bytes / row.kilobytes, 1000, 50) << row.size;
  }
}

TEST(Estimates, AreScaledByTheQuality) {
  struct Row {
    int quality;
    double factor;
  };
  const auto at80 = static_cast<double>(EstimateBytes({640, 480}, Type::kJpeg, 80));
  for (const Row& row : {Row{1, 0.07}, Row{10, 0.19}, Row{25, 0.37}, Row{40, 0.496}, Row{50, 0.58}, Row{65, 0.72},
                         Row{75, 0.87}, Row{85, 1.18}, Row{90, 1.48}, Row{95, 2.12}, Row{97, 2.952}, Row{100, 4.2}}) {
    const auto bytes = static_cast<double>(EstimateBytes({640, 480}, Type::kJpeg, row.quality));
    EXPECT_NEAR(bytes / at80, row.factor, 0.0005) << row.quality;
  }
}

TEST(Estimates, OfPngsDependOnThePixelsAlone) {
  EXPECT_EQ(EstimateBytes({640, 480}, Type::kPng, 80), 460800);
  EXPECT_EQ(EstimateBytes({3, 1}, Type::kPng, 1), 5);
}

TEST(Estimates, GrowWithTheQuality) {
  std::int64_t before = 0;
  for (int quality = 1; quality <= 100; ++quality) {
    const std::int64_t bytes = EstimateBytes({640, 480}, Type::kJpeg, quality);
    EXPECT_GT(bytes, before) << quality;
    before = bytes;
  }
}

}  // namespace
}  // namespace tavithumb::maker
