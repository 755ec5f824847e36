// SPDX-License-Identifier: GPL-3.0-or-later
#include "convert/arguments.h"

#include <gtest/gtest.h>

#include <sstream>

namespace tavithumb::apps::convert {
namespace {

using Arguments = std::vector<std::string>;

std::string Text(const Arguments& arguments) {
  std::string text;
  for (const std::string& argument : arguments) text += "'" + argument + "' ";
  return text;
}

// "/v/a.tif -> /v/d.jpg, JPEG, 640x480, mirrored, 1 turn"
std::string Text(const std::optional<Conversion>& conversion) {
  if (!conversion) return "convert";
  std::ostringstream text;
  text << conversion->source << " -> " << conversion->destination
       << (conversion->type == maker::Type::kPng ? ", PNG, " : ", JPEG, ") << conversion->size.width << "x"
       << conversion->size.height;
  if (conversion->crop) text << " at " << conversion->crop->left << "," << conversion->crop->top;
  if (conversion->orientation.isMirrored) text << ", mirrored";
  text << ", " << conversion->orientation.quarterTurns << " turns";
  return text.str();
}

// As the library builds them.
Arguments Library(const Arguments& geometry, const Arguments& turns, const std::string& destination = "/v/d.jpg") {
  Arguments arguments = {"/usr/bin/convert", "-strip", "-colorspace", "sRGB", "/v/a.tif[0]"};
  arguments.insert(arguments.end(), geometry.begin(), geometry.end());
  arguments.insert(arguments.end(), turns.begin(), turns.end());
  arguments.push_back(destination);
  return arguments;
}

const Arguments kScale = {"-thumbnail", "640x480"};
const Arguments kNoTurns = {"-rotate", "0", "-rotate", "0"};

TEST(Arguments, OfTheLibraryAreTaken) {
  const Arguments mirror = {"-rotate", "0", "-flop", "-rotate", "0"};
  const Arguments crop = {"-crop", "320x240+40+0"};
  const struct {
    Arguments arguments;
    const char* conversion;
  } rows[] = {
      {Library(kScale, kNoTurns), "/v/a.tif -> /v/d.jpg, JPEG, 640x480, 0 turns"},
      {Library(kScale, kNoTurns, "/v/d.png"), "/v/a.tif -> /v/d.png, PNG, 640x480, 0 turns"},
      {Library(kScale, mirror), "/v/a.tif -> /v/d.jpg, JPEG, 640x480, mirrored, 0 turns"},
      {Library(crop, kNoTurns), "/v/a.tif -> /v/d.jpg, JPEG, 320x240 at 40,0, 0 turns"},
      {Library(crop, mirror), "/v/a.tif -> /v/d.jpg, JPEG, 320x240 at 40,0, mirrored, 0 turns"},
      // For a crop that is larger than the picture, the library's offsets wrap around.
      {Library({"-crop", "100x200+2147483548+4294967295"}, kNoTurns),
       "/v/a.tif -> /v/d.jpg, JPEG, 100x200 at 2147483548,4294967295, 0 turns"},
      {Library({"-thumbnail", "2147483647x1"}, kNoTurns), "/v/a.tif -> /v/d.jpg, JPEG, 2147483647x1, 0 turns"},
  };
  for (const auto& row : rows) EXPECT_EQ(Text(ParseArguments(row.arguments)), row.conversion) << Text(row.arguments);
}

// Rotated, then mirrored, then rotated again: the result mirrors first.
TEST(Arguments, GiveTheRotationsAndTheMirroringAsOne) {
  const struct {
    const char* stored;
    const char* users;
    int turns;          // of both
    int mirroredTurns;  // with a mirroring in between
  } rows[] = {
      {"0", "0", 0, 0},     {"90", "0", 1, 3},     {"180", "0", 2, 2},        {"270", "0", 3, 1},
      {"0", "90", 1, 1},    {"90", "90", 2, 0},    {"180", "90", 3, 3},       {"270", "90", 0, 2},
      {"0", "180", 2, 2},   {"90", "180", 3, 1},   {"180", "180", 0, 0},      {"270", "180", 1, 3},
      {"0", "270", 3, 3},   {"90", "270", 0, 2},   {"180", "270", 1, 1},      {"270", "270", 2, 0},
      {"0", "-90", 3, 3},   {"-90", "0", 3, 1},    {"-180", "-270", 3, 3},    {"-270", "-270", 2, 0},
      {"360", "450", 1, 1}, {"450", "-360", 1, 3}, {"0", "2147483610", 1, 1},
  };
  for (const auto& row : rows) {
    const Arguments plain = Library(kScale, {"-rotate", row.stored, "-rotate", row.users});
    const Arguments mirrored = Library(kScale, {"-rotate", row.stored, "-flop", "-rotate", row.users});
    EXPECT_EQ(Text(ParseArguments(plain)),
              "/v/a.tif -> /v/d.jpg, JPEG, 640x480, " + std::to_string(row.turns) + " turns")
        << Text(plain);
    EXPECT_EQ(Text(ParseArguments(mirrored)),
              "/v/a.tif -> /v/d.jpg, JPEG, 640x480, mirrored, " + std::to_string(row.mirroredTurns) + " turns")
        << Text(mirrored);
  }
}

TEST(Arguments, WithNamesThatAreTakenLiterallyAreTaken) {
  for (const std::string name : {"/a", "/v/with spaces.heic", "/v/png:a.jpg", "/v/\xC3\xBC.bmp", "/v/-strip", "/v/a@b",
                                 "/v/TAVIFILETMP_THUMB_r1.jpg_1700000000", "/v/~", "/v/new\nline", "./a", "./png:a"}) {
    Arguments arguments = Library(kScale, kNoTurns, name + ".jpg");
    arguments[4] = name + "[0]";
    EXPECT_EQ(Text(ParseArguments(arguments)), name + " -> " + name + ".jpg, JPEG, 640x480, 0 turns");
  }
}

TEST(Arguments, WithOtherNamesAreLeftToConvert) {
  for (const std::string name : {"",
                                 "[0]",
                                 "a.tif[0]",
                                 "../a.tif[0]",
                                 ".a.tif[0]",
                                 "/v/a.tif",
                                 "/v/a.tif[1]",
                                 "/v/a.tif[0-3]",
                                 "/v/a.tif[00]",
                                 "/v/a.tif[0] ",
                                 "/v/a.tif[0][0]",
                                 "/v/%d.tif[0]",
                                 "/v/*.tif[0]",
                                 "/v/?.tif[0]",
                                 "/v/{a}.tif[0]",
                                 "/v%20/a.tif[0]",
                                 "png:/v/a.tif[0]",
                                 "-[0]",
                                 "@list[0]",
                                 "fd:0[0]",
                                 "https://host/a[0]"}) {
    Arguments arguments = Library(kScale, kNoTurns);
    arguments[4] = name;
    EXPECT_EQ(Text(ParseArguments(arguments)), "convert") << Text(arguments);
  }
  for (const std::string name :
       {"", "d.jpg", "/v/d", "/v/d.gif", "/v/d.JPG", "/v/d.jpeg", "/v/d.jpg_1_2", "/v/d.webp", "/v/%d.jpg", "/v/*.jpg",
        "/v/d[0].jpg", "png:/v/d.jpg", "/v/d.jpg ", "/v/d.jpg[0]", "jpg:-", "-", "null:"}) {
    const Arguments arguments = Library(kScale, kNoTurns, name);
    EXPECT_EQ(Text(ParseArguments(arguments)), "convert") << Text(arguments);
  }
}

TEST(Arguments, WithOtherGeometriesAreLeftToConvert) {
  for (const char* geometry :
       {"", "x", "640", "640x", "x480", "0x480", "640x0", "-640x480", "+640x480", "640x480!", "640x480>", "640x480^",
        "50%", "640x480x1", " 640x480", "640X480", "2147483648x1", "640x480+0+0", "6.5x480"}) {
    const Arguments arguments = Library({"-thumbnail", geometry}, kNoTurns);
    EXPECT_EQ(Text(ParseArguments(arguments)), "convert") << Text(arguments);
  }
  for (const char* geometry :
       {"", "320x240", "320x240+40", "320x240+40+", "320x240++0", "320x240+40+0+0", "320x240+40-0", "320x240-40+0",
        "320x240+-40+0", "320x240+4294967296+0", "+40+0", "320x240+40+0!", "0x0+0+0", "x+1+1"}) {
    const Arguments arguments = Library({"-crop", geometry}, kNoTurns);
    EXPECT_EQ(Text(ParseArguments(arguments)), "convert") << Text(arguments);
  }
  for (const char* option : {"-resize", "-scale", "-sample", "-geometry", "thumbnail", "-thumbnail ", ""}) {
    const Arguments arguments = Library({option, "640x480"}, kNoTurns);
    EXPECT_EQ(Text(ParseArguments(arguments)), "convert") << Text(arguments);
  }
}

TEST(Arguments, WithOtherRotationsAreLeftToConvert) {
  const Arguments rows[] = {
      {},
      {"-rotate", "0"},
      {"-rotate", "0", "-flop"},
      {"-flop", "-rotate", "0", "-rotate", "0"},
      {"-rotate", "0", "-rotate", "0", "-flop"},
      {"-rotate", "0", "-flop", "-flop", "-rotate", "0"},
      {"-rotate", "0", "-flip", "-rotate", "0"},
      {"-rotate", "0", "-rotate", "0", "-rotate", "0"},
      {"-rotate", "45", "-rotate", "0"},
      {"-rotate", "0", "-rotate", "1"},
      {"-rotate", "90>", "-rotate", "0"},
      {"-rotate", "", "-rotate", "0"},
      {"-rotate", "90.0", "-rotate", "0"},
      {"-rotate", "+90", "-rotate", "0"},
      {"-rotate", "2147483730", "-rotate", "0"},
      {"-auto-orient", "-rotate", "0", "-rotate", "0"},
      {"-rotate", "0", "-rotate", "0", "-quality", "50"},
  };
  for (const Arguments& turns : rows) {
    const Arguments arguments = Library(kScale, turns);
    EXPECT_EQ(Text(ParseArguments(arguments)), "convert") << Text(arguments);
  }
}

// One argument that is missing, twice there, or another.
TEST(Arguments, ThatAreNotExactlyTheLibrarysAreLeftToConvert) {
  const Arguments whole = Library({"-crop", "320x240+40+0"}, {"-rotate", "90", "-flop", "-rotate", "180"});
  ASSERT_NE(Text(ParseArguments(whole)), "convert");
  for (std::size_t i = 0; i < whole.size(); ++i) {
    const auto place = static_cast<Arguments::difference_type>(i);
    Arguments changed = whole;
    changed[i] = "-other";
    EXPECT_EQ(Text(ParseArguments(changed)), "convert") << Text(changed);
    changed = whole;
    changed.insert(changed.begin() + place, whole[i]);
    EXPECT_EQ(Text(ParseArguments(changed)), "convert") << Text(changed);
    changed = whole;
    changed.erase(changed.begin() + place);
    if (whole[i] != "-flop") {
      EXPECT_EQ(Text(ParseArguments(changed)), "convert") << Text(changed);
    }
    changed.resize(i);
    EXPECT_EQ(Text(ParseArguments(changed)), "convert") << Text(changed);
  }
}

TEST(Arguments, OfAnimationsAndPeopleAreLeftToConvert) {
  const Arguments rows[] = {
      {},
      {"/usr/bin/convert"},
      {"/usr/bin/convert", "--help"},
      {"/usr/bin/convert", "-version"},
      {"/usr/bin/convert", "/v/a.png", "/v/d.jpg"},
      {"/usr/bin/convert", "/v/a.gif", "-coalesce", "/var/tmp/convert_thumbnail__1700000000a.gif"},
      {"/usr/bin/convert", "-strip", "-colorspace", "sRGB", "-thumbnail", "120x90", "-rotate", "0", "-layers",
       "optimize", "/var/tmp/convert_thumbnail__1700000000a.gif", "-rotate", "0", "/v/d.gif"},
  };
  for (const Arguments& arguments : rows) EXPECT_EQ(Text(ParseArguments(arguments)), "convert") << Text(arguments);
}

}  // namespace
}  // namespace tavithumb::apps::convert
