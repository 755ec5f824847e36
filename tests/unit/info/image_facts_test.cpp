// SPDX-License-Identifier: GPL-3.0-or-later
#include <gtest/gtest.h>
#include <libheif/heif_cxx.h>
#include <syslog.h>

#include <exiv2/exiv2.hpp>
#include <future>
#include <stdexcept>

#include "../records.h"
#include "exiv2_lock.h"
#include "fake_libc.h"
#include "info/exiv2_errors.h"
#include "pictures.h"
#include "raw_file.h"
#include "temp_dir.h"

namespace tavithumb::test {
namespace {

using Log = std::vector<LogLine>;

class ImageFacts : public testing::Test {
 protected:
  // Whatever the result of reading, the lock is free afterwards.
  void TearDown() override { EXPECT_TRUE(Exiv2LockIsFree()); }
  OpenInfo Read(const std::string& path) const {
    OpenInfo info(path, "small", {120, 120});
    info.ExtractImgInfo(false);
    return info;
  }
  // The code that reading throws, with its text; the record is kept.
  int ErrorOf(OpenInfo* info, std::string* text = nullptr) const {
    try {
      info->ExtractImgInfo(false);
    } catch (const Error& error) {
      if (text != nullptr) *text = error.what();
      return error.Code();
    }
    return 0;
  }
  std::string Jpeg(const std::vector<std::pair<std::string, std::string>>& exif = {}) const {
    MakeJpeg(folder / "a.jpg", 60, 40);
    if (!exif.empty()) SetExif(folder / "a.jpg", exif);
    return folder / "a.jpg";
  }

  const TempDir folder;
  CapturedLog log;
};

TEST_F(ImageFacts, AreTypeAndStoredSize) {
  MakeJpeg(folder / "a.jpg", 60, 40);
  MakePng(folder / "a.png", 61, 41);
  MakeBmp(folder / "a.bmp", 62, 42);
  MakeTiff(folder / "a.tif", 63, 43);
  MakeGif(folder / "a.gif", 64, 44, 2);
  struct Row {
    const char* name;
    const char* mimeType;
    std::uint32_t width, height;
  };
  for (const Row& row :
       {Row{"a.jpg", "image/jpeg", 60, 40}, Row{"a.png", "image/png", 61, 41}, Row{"a.bmp", "image/x-ms-bmp", 62, 42},
        Row{"a.tif", "image/tiff", 63, 43}, Row{"a.gif", "image/gif", 64, 44}}) {
    SCOPED_TRACE(row.name);
    const OpenInfo info = Read(folder / row.name);
    EXPECT_EQ(info.GetMimeType(), row.mimeType);
    EXPECT_EQ(info.GetWidth(), row.width);
    EXPECT_EQ(info.GetHeight(), row.height);
    EXPECT_TRUE(info.IsGood());
    EXPECT_FALSE(info.IsHeic());
    EXPECT_EQ(info.GetEXIFPreviewTmpPath(), "");
  }
  EXPECT_EQ(log.lines, Log{});
}

TEST_F(ImageFacts, MapEachOrientationToARotationAndAMirroring) {
  struct Row {
    const char* orientation;
    int rotate;
    bool flop;
  };
  const Row rows[] = {{"1", 0, false}, {"2", 0, true},  {"3", 2, false},  {"4", 2, true},
                      {"5", 1, true},  {"6", 1, false}, {"7", 3, true},   {"8", 3, false},
                      {"0", 0, false}, {"9", 0, false}, {"255", 0, false}};
  for (const Row& row : rows) {
    SCOPED_TRACE(row.orientation);
    const OpenInfo info = Read(Jpeg({{"Exif.Image.Orientation", row.orientation}}));
    EXPECT_EQ(info.GetRotate(), row.rotate);
    EXPECT_EQ(info.GetFlop(), row.flop);
    EXPECT_EQ(info.GetWidth(), 60u);  // as stored
    EXPECT_TRUE(info.IsGood());
  }
}

TEST_F(ImageFacts, TreatAPictureWithoutAnOrientationAsUpright) {
  const OpenInfo info = Read(Jpeg());
  EXPECT_EQ(info.GetRotate(), 0);
  EXPECT_FALSE(info.GetFlop());
}

TEST_F(ImageFacts, UseTheMakerNoteOnlyWhenTheStandardTagSaysNormal) {
  struct Row {
    const char* orientation;  // null: no standard tag
    const char* rotation;
    int rotate;
  };
  for (const Row& row : {Row{"1", "6", 1}, Row{"1", "8", 3}, Row{"1", "3", 2}, Row{"1", "1", 0}, Row{"1", "0", 0},
                         Row{"1", "77", 0}, Row{"8", "6", 3}, Row{nullptr, "6", 0}}) {
    SCOPED_TRACE(testing::Message() << (row.orientation == nullptr ? "none" : row.orientation) << " " << row.rotation);
    const std::string path = Jpeg({{"Exif.Image.Make", "Panasonic"}, {"Exif.Panasonic.Rotation", row.rotation}});
    if (row.orientation != nullptr) SetExif(path, {{"Exif.Image.Orientation", row.orientation}});
    const OpenInfo info = Read(path);
    EXPECT_EQ(info.GetRotate(), row.rotate);
    EXPECT_FALSE(info.GetFlop());
  }
}

// The orientation of a JPEG as any text.
void SetOrientationText(const std::string& path, const std::string& text) {
  auto image = Exiv2::ImageFactory::open(path);
  image->readMetadata();
  const Exiv2::AsciiValue value(text);
  image->exifData().add(Exiv2::ExifKey("Exif.Image.Orientation"), &value);
  image->writeMetadata();
}

TEST_F(ImageFacts, ReadAnOrientationTextAsANumberTrailingGarbageIgnored) {
  const std::pair<const char*, int> rows[] = {{" 6", 1}, {"+6", 1},          {"6x", 1},
                                              {"-3", 0}, {"-2147483648", 0}, {"1 ", 0}};
  for (const auto& [text, rotate] : rows) {
    SCOPED_TRACE(text);
    Jpeg();
    SetOrientationText(folder / "a.jpg", text);
    EXPECT_EQ(Read(folder / "a.jpg").GetRotate(), rotate);
  }
}

TEST_F(ImageFacts, IgnoreTheMakerNoteWhenTheStandardTagSaysNormalInAnotherForm) {
  for (const char* text : {"1x", "1 ", "01", "+1"}) {
    SCOPED_TRACE(text);
    Jpeg({{"Exif.Image.Make", "Panasonic"}, {"Exif.Panasonic.Rotation", "6"}});
    SetOrientationText(folder / "a.jpg", text);
    EXPECT_EQ(Read(folder / "a.jpg").GetRotate(), 0);
  }
}

TEST_F(ImageFacts, PassOnTheExceptionForAnInvalidOrientationWithTheRestSet) {
  for (const bool tooLarge : {false, true}) {
    SCOPED_TRACE(tooLarge);
    Jpeg();
    SetOrientationText(folder / "a.jpg", tooLarge ? "99999999999" : "odd");
    OpenInfo info(folder / "a.jpg", "small", {120, 120});
    if (tooLarge) {
      EXPECT_THROW(info.ExtractImgInfo(false), std::out_of_range);
    } else {
      EXPECT_THROW(info.ExtractImgInfo(false), std::invalid_argument);
    }
    EXPECT_EQ(info.GetMimeType(), "image/jpeg");
    EXPECT_EQ(info.GetWidth(), 60u);
    EXPECT_EQ(info.GetHeight(), 40u);
    EXPECT_FALSE(info.IsGood());
  }
}

TEST_F(ImageFacts, AreNotReadForAVideo) {
  Jpeg();
  WriteFile(folder / "clip.MOV", ReadFile(folder / "a.jpg"));
  OpenInfo info(folder / "clip.MOV", "small", {120, 120});
  const std::unique_lock<std::mutex> held(ThumbInfo::exiv2_mutex_);  // no use of Exiv2 gets past this
  info.ExtractImgInfo(true);
  EXPECT_EQ(info.GetMimeType(), "");
  EXPECT_EQ(info.GetWidth(), 0u);
  EXPECT_FALSE(info.IsGood());
}

TEST_F(ImageFacts, RecogniseAVideoByTheLastPartOfThePath) {
  const std::string jpeg = ReadFile(Jpeg());
  WriteFile(folder / "mp4", jpeg);
  EXPECT_FALSE(Read(folder / "mp4").IsGood());
  WriteFile(folder / "clips.mov/photo", jpeg);
  EXPECT_TRUE(Read(folder / "clips.mov/photo").IsGood());
}

TEST_F(ImageFacts, OfACameraRawFileAreThoseOfItsFullPicture) {
  WriteFile(folder / "a.nef", RawFile(false));
  const OpenInfo info = Read(folder / "a.nef");
  EXPECT_EQ(info.GetMimeType(), "image/x-nikon-nef");
  EXPECT_EQ(info.GetWidth(), 4000u);
  EXPECT_EQ(info.GetHeight(), 3000u);
}

TEST_F(ImageFacts, OfAMissingFileAreError603AndNotLogged) {
  for (const char* name : {"gone.jpg", "gone.heic"}) {
    SCOPED_TRACE(name);
    WriteFile(folder / name, "");
    OpenInfo info(folder / name, "small", {120, 120});
    RealUnlink((folder / name).c_str());
    std::string text;
    EXPECT_EQ(ErrorOf(&info, &text), 603);
    EXPECT_EQ(text,
              "(E603) " + (folder / name) + ": Failed to open the data source: No such file or directory (errno = 2)");
    EXPECT_FALSE(info.IsGood());
  }
  EXPECT_EQ(log.lines, Log{});
}

TEST_F(ImageFacts, OfAnUnknownTypeAreError602AndNotLogged) {
  WriteFile(folder / "text.jpg", std::string(100, 'x'));
  OpenInfo info(folder / "text.jpg", "small", {120, 120});
  std::string text;
  EXPECT_EQ(ErrorOf(&info, &text), 602);
  EXPECT_EQ(text, "(E602) " + (folder / "text.jpg") + ": The file contains data of an unknown image type");
  EXPECT_FALSE(info.IsGood());
  EXPECT_EQ(log.lines, Log{});
}

TEST_F(ImageFacts, OfADamagedFileAreError601AndLoggedWithItsNumber) {
  WriteFile(folder / "empty.jpg", "");
  OpenInfo info(folder / "empty.jpg", "small", {120, 120});
  std::string text;
  EXPECT_EQ(ErrorOf(&info, &text), 601);
  EXPECT_EQ(text, "(E601) Failed to read input data");
  EXPECT_EQ(log.lines, (Log{{LOG_ERR,
                             "thumb_info:129 (ExtractImgInfo) \"Exiv2 exception: "
                             "E20 Failed to read input data\""}}));
  EXPECT_FALSE(info.IsGood());
}

TEST_F(ImageFacts, OfATruncatedJpegAreError601FromItsMetadata) {
  const std::string whole = ReadFile(Jpeg({{"Exif.Image.Make", std::string(400, 'm')}}));
  WriteFile(folder / "cut.jpg", whole.substr(0, 200));
  OpenInfo info(folder / "cut.jpg", "small", {120, 120});
  std::string text;
  EXPECT_EQ(ErrorOf(&info, &text), 601);
  EXPECT_EQ(text, "(E601) Failed to read image data");
  EXPECT_EQ(log.lines,
            (Log{{LOG_ERR, "thumb_info:129 (ExtractImgInfo) \"Exiv2 exception: E14 Failed to read image data\""}}));
  EXPECT_EQ(info.GetMimeType(), "");
  EXPECT_FALSE(info.IsGood());
}

TEST_F(ImageFacts, OfADirectoryAreError601) {
  WriteFile(folder / "album.heic/a.txt", "");
  OpenInfo info(folder / "album.heic", "small", {120, 120});
  std::string text;
  EXPECT_EQ(ErrorOf(&info, &text), 601);
  EXPECT_EQ(text, "(E601) corrupted image metadata");
  EXPECT_EQ(log.lines,
            (Log{{LOG_ERR, "thumb_info:129 (ExtractImgInfo) \"Exiv2 exception: E59 corrupted image metadata\""}}));
}

// Types that Exiv2 recognises as ISO-BMFF or video.
std::string QuickTime() {
  return std::string(
             "\0\0\0\x14"
             "ftypqt  \0\0\0\0qt  \0\0\0\x08mdat",
             28) +
         std::string(64, '\0');
}

TEST_F(ImageFacts, OfContainersAreAnUnknownTypeUnderAnyName) {
  MakeHeic(folder / "photo.jpg", 64, 64, true);
  WriteFile(folder / "clip.jpg", QuickTime());
  for (const char* name : {"photo.jpg", "clip.jpg"}) {
    SCOPED_TRACE(name);
    OpenInfo info(folder / name, "small", {120, 120});
    std::string text;
    EXPECT_EQ(ErrorOf(&info, &text), 602);
    EXPECT_EQ(text, "(E602) " + (folder / name) + ": The file contains data of an unknown image type");
    EXPECT_EQ(info.GetMimeType(), "");
    EXPECT_EQ(info.GetWidth(), 0u);
    EXPECT_FALSE(info.IsGood());
  }
  EXPECT_EQ(log.lines, Log{});
}

TEST_F(ImageFacts, OfHeicAreOnlyItsSize) {
  for (const char* name : {"photo.heic", "photo.HEIF"}) {
    SCOPED_TRACE(name);
    MakeHeic(folder / name, 100, 80, true);
    OpenInfo info(folder / name, "small", {120, 120});
    info.rotate_ = 3;
    info.flop_ = true;
    info.ExtractImgInfo(true);
    EXPECT_TRUE(info.IsHeic());
    EXPECT_TRUE(info.IsGood());
    EXPECT_FALSE(info.good_);
    EXPECT_EQ(info.GetMimeType(), "");
    EXPECT_EQ(info.GetWidth(), 100u);
    EXPECT_EQ(info.GetHeight(), 80u);
    EXPECT_EQ(info.GetRotate(), 0);
    EXPECT_FALSE(info.GetFlop());
    EXPECT_TRUE(info.IsNeedConvert());
  }
  EXPECT_EQ(log.lines, Log{});
}

TEST_F(ImageFacts, OfHeicWithoutMetadataAreError602WithNothingSet) {
  MakeHeic(folder / "plain.heic", 100, 80, false);
  OpenInfo info(folder / "plain.heic", "small", {120, 120});
  EXPECT_EQ(ErrorOf(&info), 602);
  EXPECT_FALSE(info.IsHeic());
  EXPECT_EQ(info.GetWidth(), 0u);
  EXPECT_EQ(log.lines, Log{});
}

// The probe's log line for a file that libheif rejects, with libheif's own message.
LogLine HeifFailure(const std::string& path) {
  try {
    heif::Context context;
    context.read_from_file(path);
    context.get_primary_image_handle();
  } catch (const heif::Error& error) {
    return {LOG_ERR, "thumb_info:160 (CheckAndGetHeif) \"" + path +
                         ", heif error: code = " + std::to_string(error.get_code()) +
                         ", subcode = " + std::to_string(error.get_subcode()) + ", " + error.get_message() + "\""};
  }
  return {0, "libheif reads it"};
}

TEST_F(ImageFacts, OfAFileThatIsNotHeifDespiteItsNameAreError602AfterALoggedProbeFailure) {
  MakeHeic(folder / "whole.heic", 100, 80, true);
  const std::string contents[] = {std::string(100, 'x'), QuickTime(), ReadFile(folder / "whole.heic").substr(0, 100)};
  for (const char* name : {"a.heic", "a.HEIF"}) {
    for (const std::string& content : contents) {
      SCOPED_TRACE(testing::Message() << name << " of " << content.size() << " bytes");
      log.lines.clear();
      WriteFile(folder / name, content);
      OpenInfo info(folder / name, "small", {120, 120});
      std::string text;
      EXPECT_EQ(ErrorOf(&info, &text), 602);
      EXPECT_EQ(text, "(E602) " + (folder / name) + ": The file contains data of an unknown image type");
      EXPECT_EQ(log.lines, (Log{HeifFailure(folder / name)}));
      EXPECT_FALSE(info.IsHeic());
      EXPECT_EQ(info.GetWidth(), 0u);
      EXPECT_EQ(info.GetHeight(), 0u);
    }
  }
}

TEST_F(ImageFacts, OfAJpegNamedHeicAreThoseOfAJpeg) {
  MakeJpeg(folder / "a.heic", 60, 40);
  const OpenInfo info = Read(folder / "a.heic");
  EXPECT_EQ(info.GetMimeType(), "image/jpeg");
  EXPECT_TRUE(info.IsGood());
  EXPECT_FALSE(info.IsHeic());
}

TEST_F(ImageFacts, KeepThoseOfHeicWhenASecondReadingFindsNone) {
  MakeHeic(folder / "photo.heic", 100, 80, true);
  OpenInfo info(folder / "photo.heic", "small", {120, 120});
  info.ExtractImgInfo(false);
  WriteFile(folder / "photo.heic", std::string(100, 'x'));
  info.ExtractImgInfo(false);
  EXPECT_TRUE(info.IsHeic());
  EXPECT_EQ(info.GetWidth(), 100u);
  EXPECT_EQ(log.lines, (Log{HeifFailure(folder / "photo.heic")}));
}

TEST_F(ImageFacts, AreMeasuredByTheHeifProbeWithoutTheLock) {
  MakeHeic(folder / "photo.heic", 100, 80, true);
  OpenInfo info(folder / "photo.heic", "small", {120, 120});
  const std::unique_lock<std::mutex> held(ThumbInfo::exiv2_mutex_);
  info.CheckAndGetHeif();
  EXPECT_TRUE(info.IsHeic());
}

TEST_F(ImageFacts, AreOverwrittenByASecondReadingButForHeicAndPreview) {
  MakeJpeg(folder / "a.jpg", 60, 40);
  OpenInfo info(folder / "a.jpg", "small", {120, 120});
  info.heic_ = true;
  info.exifPreviewTmpPath_ = "/kept";
  info.ExtractImgInfo(false);
  EXPECT_EQ(info.GetWidth(), 60u);
  MakePng(folder / "a.jpg", 30, 20);
  info.rotate_ = 3;
  info.flop_ = true;
  info.ExtractImgInfo(false);
  EXPECT_EQ(info.GetMimeType(), "image/png");
  EXPECT_EQ(info.GetWidth(), 30u);
  EXPECT_EQ(info.GetHeight(), 20u);
  EXPECT_EQ(info.GetRotate(), 0);
  EXPECT_FALSE(info.GetFlop());
  EXPECT_TRUE(info.IsHeic());
  EXPECT_EQ(info.GetEXIFPreviewTmpPath(), "/kept");
}

TEST_F(ImageFacts, WaitForTheLock) {
  OpenInfo info(Jpeg(), "small", {120, 120});
  std::unique_lock<std::mutex> held(ThumbInfo::exiv2_mutex_);
  auto reading = std::async(std::launch::async, [&] { info.ExtractImgInfo(false); });
  EXPECT_EQ(reading.wait_for(std::chrono::milliseconds(50)), std::future_status::timeout);
  held.unlock();
  reading.get();
  EXPECT_TRUE(info.IsGood());
}

TEST(Exiv2Errors, HaveTheSameNumbersForEveryRelease) {
  using Exiv2::ErrorCode;
  EXPECT_EQ(Exiv2Code(Exiv2::Error(ErrorCode::kerDataSourceOpenFailed, "a", "b")), 9);
  EXPECT_EQ(Exiv2Code(Exiv2::Error(ErrorCode::kerFileContainsUnknownImageType, "a")), 11);
  EXPECT_EQ(Exiv2Code(Exiv2::Error(ErrorCode::kerFailedToReadImageData)), 14);
  EXPECT_EQ(Exiv2Code(Exiv2::Error(ErrorCode::kerInputDataReadFailed)), 20);
}

}  // namespace
}  // namespace tavithumb::test
