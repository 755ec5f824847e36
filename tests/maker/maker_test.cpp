// SPDX-License-Identifier: GPL-3.0-or-later
#include "maker/maker.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

#include "maker/colour.h"
#include "pictures.h"
#include "temp_dir.h"
#include "tests/maker/colour_difference.h"

namespace tavithumb::maker {
namespace {

using test::TempDir;

std::string BytesOf(const Thumbnail& thumbnail) {
  return {thumbnail.bytes.begin(), thumbnail.bytes.end()};
}

void Convert(std::vector<std::string> arguments) {
  arguments.insert(arguments.begin(), "/usr/bin/convert");
  test::RunTool(arguments);
}

Source SourceAt(const std::string& path) {
  Source source;
  source.path = path;
  return source;
}

// The sampling factors of the first component and the others, as in "2x2,1x1", and the marker of the frame.
std::string FrameOf(const Thumbnail& jpeg) {
  const std::vector<std::uint8_t>& bytes = jpeg.bytes;
  for (std::size_t at = 2; at + 15 < bytes.size();
       at += 2 + static_cast<std::size_t>(bytes[at + 2] * 256 + bytes[at + 3])) {
    if (bytes[at + 1] < 0xC0 || bytes[at + 1] > 0xC2) continue;
    const auto factors = [&](std::size_t place) {
      return std::to_string(bytes[place] >> 4) + "x" + std::to_string(bytes[place] & 15);
    };
    const std::string kind = bytes[at + 1] == 0xC0 ? "baseline " : "other ";
    return kind + (bytes[at + 9] == 1 ? factors(at + 11) : factors(at + 11) + "," + factors(at + 14));
  }
  return "";
}

class Making : public testing::Test {
 protected:
  std::string Keep(const std::string& name, const Thumbnail& thumbnail) {
    const std::string path = folder_ / name;
    test::WriteFile(path, BytesOf(thumbnail));
    return path;
  }

  // How much the thumbnail differs from what ImageMagick makes of the source with these arguments.
  double DifferenceFrom(const Thumbnail& thumbnail, const std::string& source, std::vector<std::string> arguments) {
    const std::string expected = folder_ / "expected.png";
    arguments.insert(arguments.begin(), source + "[0]");
    arguments.push_back(expected);
    Convert(arguments);
    const test::PictureFacts facts = test::Identify(expected);
    EXPECT_EQ(thumbnail.size, (Size{facts.width, facts.height})) << source;
    const std::string made = Keep("made", thumbnail);
    const test::PictureFacts really = test::Identify(made);
    EXPECT_EQ(thumbnail.size, (Size{really.width, really.height})) << source;
    return test::Difference(made, expected);
  }

  std::vector<std::uint8_t> FileOf(const std::string& name) const {
    const std::string bytes = test::ReadFile(folder_ / name);
    return {bytes.begin(), bytes.end()};
  }

  // A preview of one colour, which the photo does not have.
  std::vector<std::uint8_t> Plain(const std::string& size) const {
    Convert({"-size", size, "xc:#404040", folder_ / "preview.jpg"});
    return FileOf("preview.jpg");
  }

  bool IsPlain(const Thumbnail& thumbnail) {
    Convert({"-size", "90x60", "xc:#404040", folder_ / "plain.png"});
    return test::Difference(Keep("made", thumbnail), folder_ / "plain.png") < 0.02;
  }

  const TempDir folder_;
};

TEST_F(Making, GivesEachTargetItsThumbnailInTheOrderOfTheTargets) {
  test::MakeJpeg(folder_ / "photo.jpg", 1600, 1000);
  const std::vector<Thumbnail> made = Make(
      SourceAt(folder_ / "photo.jpg"), {{{120, 120}}, {{1280, 1280}}, {{90, 400}}, {{640, 640}}, {{3000, 3000}}}, {});
  ASSERT_EQ(made.size(), 5U);
  const std::vector<Size> sizes = {{120, 75}, {1280, 800}, {90, 56}, {640, 400}, {1600, 1000}};
  for (std::size_t i = 0; i < made.size(); ++i) {
    EXPECT_EQ(made[i].size, sizes[i]) << i;
    EXPECT_EQ(made[i].type, Type::kJpeg) << i;
    const std::string box = std::to_string(sizes[i].width) + "x" + std::to_string(sizes[i].height);
    EXPECT_LT(DifferenceFrom(made[i], folder_ / "photo.jpg", {"-thumbnail", box}), 0.02) << box;
  }
}

TEST_F(Making, ShowsEveryKindOfPicture) {
  struct Kind {
    const char* name;
    std::vector<std::string> arguments;
    Type type;
  };
  const std::vector<Kind> kinds = {
      {"baseline.jpg", {}, Type::kJpeg},
      {"progressive.jpg", {"-interlace", "JPEG"}, Type::kJpeg},
      {"grey.jpg", {"-colorspace", "Gray"}, Type::kJpeg},
      {"full-chroma.jpg", {"-sampling-factor", "1x1"}, Type::kJpeg},
      {"half-chroma.jpg", {"-sampling-factor", "2x1"}, Type::kJpeg},
      {"high-chroma.jpg", {"-sampling-factor", "1x2"}, Type::kJpeg},
      {"ink.jpg", {"-colorspace", "CMYK"}, Type::kJpeg},
      {"rgb.png", {}, Type::kPng},
      {"deep.png", {"-depth", "16"}, Type::kPng},
      {"palette.png", {"-colors", "200", "-type", "Palette"}, Type::kPng},
      {"interlaced.png", {"-interlace", "PNG"}, Type::kPng},
      {"grey.png", {"-colorspace", "Gray"}, Type::kPng},
      {"one.gif", {}, Type::kJpeg},
      {"plain.bmp", {}, Type::kJpeg},
      {"plain.tif", {}, Type::kJpeg},
      {"deep.tif", {"-depth", "16"}, Type::kJpeg},
      {"lossless.webp", {"-define", "webp:lossless=true"}, Type::kJpeg},
      {"lossy.webp", {}, Type::kJpeg},
      {"photo.heic", {}, Type::kJpeg},
  };
  test::MakePng(folder_ / "scene.png", 801, 533);
  for (const Kind& kind : kinds) {
    const std::string path = folder_ / kind.name;
    std::vector<std::string> arguments = kind.arguments;
    arguments.insert(arguments.begin(), folder_ / "scene.png");
    arguments.push_back(path);
    Convert(arguments);
    const std::vector<Thumbnail> made = Make(SourceAt(path), {{{360, 360}}, {{120, 120}}}, {});
    for (const Thumbnail& thumbnail : made) {
      EXPECT_EQ(thumbnail.type, kind.type) << kind.name;
      const std::string box = std::to_string(std::max(thumbnail.size.width, thumbnail.size.height));
      EXPECT_LT(DifferenceFrom(thumbnail, path, {"-colorspace", "sRGB", "-thumbnail", box + "x" + box}), 0.02)
          << kind.name << " " << box;
    }
  }
}

TEST_F(Making, WritesTheTypeThatIsAskedFor) {
  test::MakePng(folder_ / "scene.png", 801, 533);
  const std::vector<std::pair<const char*, std::vector<std::string>>> sources = {{"photo.jpg", {}},
                                                                                 {"gray.jpg", {"-colorspace", "Gray"}},
                                                                                 {"ink.jpg", {"-colorspace", "CMYK"}},
                                                                                 {"rgb.png", {}},
                                                                                 {"one.gif", {}}};
  const std::vector<std::pair<Type, std::string>> types = {
      {Type::kJpeg, "JPEG"}, {Type::kPng, "PNG"}, {Type::kWebp, "WEBP"}};
  for (const auto& [name, arguments] : sources) {
    std::vector<std::string> all = {folder_ / "scene.png"};
    all.insert(all.end(), arguments.begin(), arguments.end());
    all.push_back(folder_ / name);
    Convert(all);
    for (const auto& [type, format] : types) {
      Options options;
      options.type = type;
      for (const Thumbnail& made : Make(SourceAt(folder_ / name), {{{360, 360}}, {{120, 120}}}, options)) {
        EXPECT_EQ(made.type, type) << name;
        const std::string box = std::to_string(made.size.width) + "x" + std::to_string(made.size.height);
        EXPECT_LT(DifferenceFrom(made, folder_ / name, {"-colorspace", "sRGB", "-thumbnail", box}), 0.02)
            << name << " as " << format << " " << box;
        EXPECT_EQ(test::Identify(Keep("made", made)).format, format) << name;
      }
    }
  }
}

TEST_F(Making, KeepsAlphaInTypesThatHaveIt) {
  Convert({"-size", "200x100", "gradient:#ff0000ff-#0000ff00", folder_ / "fading.png"});
  for (const Type type : {Type::kPng, Type::kWebp}) {
    Options options;
    options.type = type;
    const Thumbnail made = Make(SourceAt(folder_ / "fading.png"), {{{100, 100}}}, options).front();
    const std::string average = test::RunTool(
        {"/usr/bin/convert", Keep("made", made), "-alpha", "extract", "-format", "%[fx:round(100*mean)]", "info:"});
    EXPECT_EQ(average, "50") << MimeTypeOf(type);
  }
  Options options;
  options.type = Type::kJpeg;
  const Thumbnail flat = Make(SourceAt(folder_ / "fading.png"), {{{100, 100}}}, options).front();
  EXPECT_LT(DifferenceFrom(flat, folder_ / "fading.png", {"-background", "white", "-flatten", "-thumbnail", "100x50"}),
            0.02);
}

TEST_F(Making, TurnsPicturesUprightAndThenAsTheUserWants) {
  test::MakePng(folder_ / "upright.png", 301, 200);
  struct Row {
    std::vector<std::string> store;  // how the upright picture was stored
    Orientation orientation;
  };
  const std::vector<Row> rows = {
      {{}, {0, false}},
      {{"-flop"}, {0, true}},
      {{"-rotate", "180"}, {2, false}},
      {{"-flip"}, {2, true}},
      {{"-transpose"}, {3, true}},
      {{"-rotate", "-90"}, {1, false}},
      {{"-transverse"}, {1, true}},
      {{"-rotate", "90"}, {3, false}},
  };
  for (const char* type : {".png", ".jpg"}) {
    for (const Row& row : rows) {
      const std::string stored = folder_ / ("stored" + std::string(type));
      std::vector<std::string> arguments = row.store;
      arguments.insert(arguments.begin(), folder_ / "upright.png");
      arguments.insert(arguments.end(), {"+repage", stored});
      Convert(arguments);
      for (int turns = 0; turns < 4; ++turns) {
        Source source = SourceAt(stored);
        source.orientation = row.orientation;
        source.userTurns = turns;
        const Thumbnail made = Make(source, {{{150, 150}}}, {}).front();
        const std::string degrees = std::to_string(turns * 90);
        EXPECT_LT(DifferenceFrom(made, folder_ / "upright.png", {"-rotate", degrees, "-thumbnail", "150x150"}), 0.02)
            << (row.store.empty() ? "" : row.store.front()) << " " << degrees << type;
      }
    }
  }
}

TEST_F(Making, FillsTheBoxOfAnAvatarFromTheCentre) {
  test::MakeJpeg(folder_ / "photo.jpg", 900, 600);
  Source source = SourceAt(folder_ / "photo.jpg");
  source.orientation = Orientation{1, false};
  const std::vector<Thumbnail> made = Make(source, {{{200, 200}, true}, {{360, 360}, false}}, {});
  EXPECT_LT(DifferenceFrom(made[0], folder_ / "photo.jpg",
                           {"-rotate", "90", "-thumbnail", "200x200^", "-gravity", "center", "-extent", "200x200"}),
            0.02);
  EXPECT_LT(DifferenceFrom(made[1], folder_ / "photo.jpg", {"-rotate", "90", "-thumbnail", "360x360"}), 0.02);
}

TEST_F(Making, CutsAPartOutAndStillMakesTheOthersOfTheWhole) {
  test::MakePng(folder_ / "photo.png", 300, 200);
  Source source = SourceAt(folder_ / "photo.png");
  source.orientation = Orientation{3, true};
  Target part = {{100, 90}};
  part.part = Region{7, 100, 107, 190};
  const std::vector<Thumbnail> made = Make(source, {part, {{120, 120}}}, {});
  const std::vector<std::string> turn = {"-flop", "-rotate", "270", "+repage"};
  std::vector<std::string> crop = {"-crop", "100x90+7+100", "+repage"};
  crop.insert(crop.end(), turn.begin(), turn.end());
  std::vector<std::string> whole = turn;
  whole.insert(whole.end(), {"-thumbnail", "120x120"});
  EXPECT_LT(DifferenceFrom(made[0], folder_ / "photo.png", crop), 0.005);
  EXPECT_LT(DifferenceFrom(made[1], folder_ / "photo.png", whole), 0.02);
}

TEST_F(Making, TurnsWhatADecoderHasMadeUprightOnlyOnRequest) {
  test::MakeHeic(folder_ / "photo.heic", 300, 200, true);
  Source source = SourceAt(folder_ / "photo.heic");
  source.orientation = Orientation{1, true};
  EXPECT_LT(DifferenceFrom(Make(source, {{{120, 120}}}, {}).front(), folder_ / "photo.heic", {"-thumbnail", "120x120"}),
            0.02);
  source.alwaysTurns = true;
  EXPECT_LT(DifferenceFrom(Make(source, {{{120, 120}}}, {}).front(), folder_ / "photo.heic",
                           {"-flop", "-rotate", "90", "-thumbnail", "120x120"}),
            0.02);
}

TEST_F(Making, KnowsAFilesFormatAndSizeByItsHeader) {
  test::MakePng(folder_ / "photo.jpg", 300, 200);
  test::MakeBmp(folder_ / "photo.png", 40, 30);
  const std::optional<Content> png = Examine(folder_ / "photo.jpg");
  const std::optional<Content> bmp = Examine(folder_ / "photo.png");
  ASSERT_TRUE(png && bmp);
  EXPECT_TRUE(png->format == Format::kPng && png->stored == (Size{300, 200}));
  EXPECT_TRUE(bmp->format == Format::kBmp && bmp->stored == (Size{40, 30}));
  test::WriteFile(folder_ / "garbage", std::string(100, 'x'));
  EXPECT_FALSE(Examine(folder_ / "garbage"));
  EXPECT_FALSE(Examine(folder_ / "missing"));
}

TEST_F(Making, WritesBaselineJpegsWithFullChromaOnlyForSmallBoxesAndWithoutMetadata) {
  test::MakeJpeg(folder_ / "photo.jpg", 900, 600);
  test::SetExif(folder_ / "photo.jpg",
                {{"Exif.GPSInfo.GPSLatitude", "47/1 22/1 0/1"}, {"Exif.Photo.UserComment", "secret"}});
  const std::vector<Thumbnail> made =
      Make(SourceAt(folder_ / "photo.jpg"), {{{161, 161}}, {{160, 160}}, {{120, 90}}}, {});
  EXPECT_EQ(FrameOf(made[0]), "baseline 2x2,1x1");
  EXPECT_EQ(FrameOf(made[1]), "baseline 1x1,1x1");
  EXPECT_EQ(FrameOf(made[2]), "baseline 1x1,1x1");
  for (const Thumbnail& thumbnail : made) {
    EXPECT_EQ(BytesOf(thumbnail).find("Exif"), std::string::npos);
    EXPECT_EQ(BytesOf(thumbnail).find("secret"), std::string::npos);
  }
}

TEST_F(Making, WritesFewerBytesAtLowerQuality) {
  test::MakeJpeg(folder_ / "photo.jpg", 900, 600);
  Options low;
  low.quality = 40;
  EXPECT_LT(Make(SourceAt(folder_ / "photo.jpg"), {{{640, 640}}}, low).front().bytes.size(),
            Make(SourceAt(folder_ / "photo.jpg"), {{{640, 640}}}, {}).front().bytes.size());
}

// Red, green, blue and alpha, in hexadecimal digits.
std::string PixelAt(const std::string& path, const std::string& place) {
  return test::RunTool({"/usr/bin/convert", path, "-crop", "1x1+" + place, "-depth", "8", "-alpha", "set", "-format",
                        "%[hex:u.p{0,0}]", "info:"});
}

TEST_F(Making, KeepsTheAlphaOfAPngAndLaysOtherPicturesOntoWhite) {
  Convert({"-size", "150x200", "xc:none", "xc:red", "+append", folder_ / "half.png"});
  Convert({folder_ / "half.png", "-define", "webp:lossless=true", folder_ / "half.webp"});
  const std::string png = Keep("made.png", Make(SourceAt(folder_ / "half.png"), {{{120, 120}}}, {}).front());
  EXPECT_EQ(PixelAt(png, "80+40"), "FF0000FF");
  EXPECT_EQ(PixelAt(png, "10+40").substr(6), "00");
  const std::string jpeg = Keep("made.jpg", Make(SourceAt(folder_ / "half.webp"), {{{120, 120}}}, {}).front());
  EXPECT_EQ(PixelAt(jpeg, "10+40"), "FFFFFFFF");
}

TEST_F(Making, LetsAnEmbeddedPreviewStandInIfItIsLargeEnoughAndOfTheSameShape) {
  test::MakeJpeg(folder_ / "photo.jpg", 900, 600);
  const auto preview = [&](const std::string& colour, const std::string& size) {
    Convert({"-size", size, "xc:" + colour, folder_ / "preview.jpg"});
    const std::string bytes = test::ReadFile(folder_ / "preview.jpg");
    return std::vector<std::uint8_t>(bytes.begin(), bytes.end());
  };
  Source source = SourceAt(folder_ / "photo.jpg");
  source.previews = {preview("red", "160x120"), preview("blue", "300x200"), preview("green", "450x300")};
  const auto shows = [&](const Thumbnail& thumbnail, const std::string& colour) {
    Convert({"-size", "90x60", "xc:" + colour, folder_ / "plain.png"});
    return test::Difference(Keep("made", thumbnail), folder_ / "plain.png") < 0.02;
  };
  EXPECT_TRUE(shows(Make(source, {{{120, 120}}}, {}).front(), "blue"));
  EXPECT_TRUE(shows(Make(source, {{{300, 300}}}, {}).front(), "blue"));
  EXPECT_TRUE(shows(Make(source, {{{120, 120}}, {{360, 360}}}, {}).front(), "green"));
  Options none;
  none.usesPreviews = false;
  for (const Thumbnail& thumbnail :
       {Make(source, {{{640, 640}}}, {}).front(), Make(source, {{{120, 120}}}, none).front()}) {
    EXPECT_LT(DifferenceFrom(
                  thumbnail, folder_ / "photo.jpg",
                  {"-thumbnail", std::to_string(thumbnail.size.width) + "x" + std::to_string(thumbnail.size.height)}),
              0.02);
  }
}

TEST_F(Making, TurnsAPreviewLikeThePhotoAndUsesNoneThatIsTurnedAlready) {
  test::MakeJpeg(folder_ / "photo.jpg", 900, 600);
  Convert({folder_ / "photo.jpg", "-resize", "180x120!", folder_ / "small.jpg"});
  Source source = SourceAt(folder_ / "photo.jpg");
  source.orientation = Orientation{1, false};
  source.previews = {FileOf("small.jpg")};
  const Thumbnail turned = Make(source, {{{120, 120}}}, {}).front();
  EXPECT_EQ(turned.size, (Size{80, 120}));
  Convert({folder_ / "small.jpg", "-rotate", "90", folder_ / "turned.jpg"});
  EXPECT_LT(DifferenceFrom(turned, folder_ / "turned.jpg", {"-thumbnail", "120x120"}), 0.02);
  source.previews = {Plain("120x180"), Plain("180x135")};
  EXPECT_FALSE(IsPlain(Make(source, {{{120, 120}}}, {}).front()));
  source.previews = {Plain("180x120")};
  EXPECT_TRUE(IsPlain(Make(source, {{{120, 120}}}, {}).front()));
}

TEST_F(Making, UsesNoPreviewWhoseColoursMayBeOthersThanThePhotos) {
  test::MakeJpeg(folder_ / "plain.jpg", 900, 600);
  const std::vector<std::uint8_t> profile = AdobeRgbProfile();
  test::WriteFile(folder_ / "adobe.icc", std::string(profile.begin(), profile.end()));
  Convert({folder_ / "plain.jpg", "-profile", folder_ / "adobe.icc", folder_ / "profile.jpg"});
  Convert({folder_ / "plain.jpg", "-colorspace", "CMYK", folder_ / "cmyk.jpg"});
  test::MakePng(folder_ / "picture.png", 900, 600);
  struct Row {
    const char* name;
    bool isAdobeRgb;
    bool usesPreview;
  };
  for (const Row& row : {Row{"plain.jpg", false, true}, Row{"plain.jpg", true, false}, Row{"profile.jpg", false, false},
                         Row{"cmyk.jpg", false, false}, Row{"picture.png", false, false}}) {
    Source source = SourceAt(folder_ / row.name);
    source.isAdobeRgb = row.isAdobeRgb;
    source.previews = {Plain("180x120")};
    EXPECT_EQ(IsPlain(Make(source, {{{120, 120}}}, {}).front()), row.usesPreview) << row.name << row.isAdobeRgb;
  }
}

TEST_F(Making, ConvertsAdobeRgbThatExifAloneTellsAsItsProfileWould) {
  Convert({"-size", "900x600", "-seed", "1", "plasma:red-lime", "-quality", "95", folder_ / "photo.jpg"});
  const std::vector<std::uint8_t> profile = AdobeRgbProfile();
  test::WriteFile(folder_ / "adobe.icc", std::string(profile.begin(), profile.end()));
  Options options;
  options.quality = 100;
  const auto pixels = [](const std::string& path) {
    const std::string bytes = test::RunTool({"/usr/bin/convert", path, "-depth", "8", "rgb:-"});
    return Samples(bytes.begin(), bytes.end());
  };
  Source source = SourceAt(folder_ / "photo.jpg");
  const Samples asSrgb = pixels(Keep("srgb.jpg", Make(source, {{{150, 150}}}, options).front()));
  source.isAdobeRgb = true;
  const Samples made = pixels(Keep("adobe.jpg", Make(source, {{{150, 150}}}, options).front()));
  Convert({folder_ / "photo.jpg", "-filter", "Lanczos", "-resize", "150x150", folder_ / "scaled.png"});
  const Samples expected = Converted(pixels(folder_ / "scaled.png"), profile, TYPE_RGB_8);
  ASSERT_EQ(made.size(), expected.size());
  EXPECT_LT(MeanDifference(made, expected), 1.5);
  EXPECT_GT(MeanDifference(asSrgb, expected), 3);
}

TEST_F(Making, UsesAPaddedPreviewButNoneThatIsCutOff) {
  test::MakeJpeg(folder_ / "photo.jpg", 900, 600);
  Source source = SourceAt(folder_ / "photo.jpg");
  const std::vector<std::uint8_t> whole = Plain("180x120");
  std::vector<std::uint8_t> padded = whole;
  padded.resize(whole.size() + 100);
  const std::vector<std::uint8_t> cut(whole.begin(), whole.end() - 10);
  const std::vector<std::uint8_t> zeros(100);
  for (const auto& [preview, usesPreview] :
       {std::make_pair(whole, true), {padded, true}, {cut, false}, {zeros, false}}) {
    source.previews = {preview};
    EXPECT_EQ(IsPlain(Make(source, {{{120, 120}}}, {}).front()), usesPreview) << preview.size();
  }
}

TEST_F(Making, GoesOnWithoutADamagedPreview) {
  test::MakeJpeg(folder_ / "photo.jpg", 900, 600);
  Source source = SourceAt(folder_ / "photo.jpg");
  source.previews = {{0xFF, 0xD8, 0xFF, 0xE0}};
  EXPECT_LT(DifferenceFrom(Make(source, {{{120, 120}}}, {}).front(), folder_ / "photo.jpg", {"-thumbnail", "120x120"}),
            0.02);
}

TEST_F(Making, DeclinesWhatItCannotShow) {
  test::WriteFile(folder_ / "text.jpg", "plain text, despite its name");
  test::WriteFile(folder_ / "empty.jpg", "");
  test::MakeGif(folder_ / "moving.gif", 40, 30, 3);
  test::MakeJpeg(folder_ / "cut.jpg", 900, 600);
  test::WriteFile(folder_ / "cut.jpg", test::ReadFile(folder_ / "cut.jpg").substr(0, 30));
  const auto reason = [&](const std::string& name) {
    Source source = SourceAt(folder_ / name);
    source.keepsAnimation = true;
    try {
      Make(source, {{{120, 120}}}, {});
    } catch (const Declined& declined) {
      return declined.Why();
    }
    ADD_FAILURE() << name << " was accepted";
    return Reason::kUnsupported;
  };
  EXPECT_EQ(reason("text.jpg"), Reason::kUnknownType);
  EXPECT_EQ(reason("empty.jpg"), Reason::kUnknownType);
  EXPECT_EQ(reason("moving.gif"), Reason::kAnimation);
  EXPECT_EQ(reason("cut.jpg"), Reason::kDamaged);
  EXPECT_EQ(reason("missing.jpg"), Reason::kUnreadable);
}

TEST(Contrast, IsLowForPlainPicturesAndNoiseAndHighForOthers) {
  const TempDir folder;
  Convert({"-size", "320x200", "xc:black", folder / "black.jpg"});
  Convert({"-size", "320x200", "xc:#80c0ff", folder / "plain.png"});
  Convert({"-size", "640x400", "xc:#101010", "-seed", "1", "+noise", "Gaussian", "-evaluate", "multiply", "0.3",
           folder / "noise.jpg"});
  test::MakeJpeg(folder / "scene.jpg", 640, 480);
  EXPECT_EQ(ContrastOf(folder / "black.jpg"), 0);
  EXPECT_EQ(ContrastOf(folder / "plain.png"), 0);
  EXPECT_LT(ContrastOf(folder / "noise.jpg"), 5);
  EXPECT_GT(ContrastOf(folder / "scene.jpg"), 20);
  EXPECT_THROW(ContrastOf(folder / "missing.jpg"), Declined);
}

}  // namespace
}  // namespace tavithumb::maker
