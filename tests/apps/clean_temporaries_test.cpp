// SPDX-License-Identifier: GPL-3.0-or-later
// Whatever temporary file the library makes, `tavithumb clean` removes it when its process is gone.
#include <open_records.h>
#include <pictures.h>
#include <tavithumb/util.h>

#include <filesystem>

#include "command_runner.h"

namespace tavithumb::test {
namespace {

namespace fs = std::filesystem;
using Strings = std::vector<std::string>;

struct OpenDJpeg : DJpegCmd {
  using DJpegCmd::DJpegCmd;
  using DJpegCmd::tmpPath_;
};
struct OpenDcraw : DcrawCmd {
  using DcrawCmd::DcrawCmd;
  using DcrawCmd::rawThumbPath_;
};
struct OpenGif : GIFConvertCmd {
  using GIFConvertCmd::coalesceTmpPath_;
  using GIFConvertCmd::GIFConvertCmd;
};

// Runs the command with folders of its own for temporary files.
class CleanTemporaries : public testing::Test {
 protected:
  CleanTemporaries() {
    for (const char* name : file::TEMPORARY_FOLDERS) fs::create_directories(system.Path() + name);
    MakeJpeg(jpeg, 1000, 800);
    MakeJpeg(folder / "preview.jpg", 160, 120);
    SetPreview(jpeg, folder / "preview.jpg");
    fs::remove(folder / "preview.jpg");
    SetExif(jpeg, {{"Exif.Image.Orientation", "6"}});
    MakeRaf(folder / "raw.raf", jpeg);
    MakeGif(folder / "cat.gif", 60, 40, 2);
  }
  ~CleanTemporaries() override {
    for (const std::string& path : made) RealRemove(path);
  }
  static void RealRemove(const std::string& path) {
    std::error_code ignored;
    fs::remove(path, ignored);
  }

  ThumbInfo Facts(const std::string& source, bool withPreview) const {
    ThumbInfo info(source, "small", {120, 120});
    info.ExtractImgInfo(withPreview);
    return info;
  }

  // One temporary path of each operation that makes one.
  Strings MakeAll() const {
    const ThumbInfo photo = Facts(jpeg, true), raw = Facts(folder / "raw.raf", false),
                    gif = Facts(folder / "cat.gif", false);
    const std::string workName = photo.GetBrovixTmpThumbEAName();
    file::MakeEADir(jpeg);
    file::MakeEADir(raw.GetPath());
    const std::string work = file::GetEAPath(jpeg, workName), varTmp = file::GetVarTmpPath(workName);
    return {photo.GetEXIFPreviewTmpPath(),
            work,
            varTmp,
            file::GetEATmpPath(jpeg, photo.GetBrovixThumbEAName()),
            OpenDJpeg(photo, jpeg, work).tmpPath_,
            OpenDJpeg(photo, jpeg, varTmp).tmpPath_,
            OpenDcraw(raw, raw.GetPath(), file::GetEAPath(raw.GetPath(), raw.GetBrovixTmpThumbEAName())).rawThumbPath_,
            OpenDcraw(raw, raw.GetPath(), file::GetVarTmpPath(raw.GetBrovixTmpThumbEAName())).rawThumbPath_,
            OpenGif(gif, gif.GetPath(), work).coalesceTmpPath_};
  }

  // As if it lay in the folders that the command takes for those for temporary files.
  std::string PlaceOf(const std::string& path) const {
    return path.rfind(folder.Path(), 0) == 0 ? path : system.Path() + path;
  }

  Outcome Clean() const {
    Start start = In(folder.Path());
    start.environment = Preloading(SURROUNDINGS);
    start.environment.insert(start.environment.end(), {"TEMPORARY_FOLDERS=" + system.Path(), "SECONDS_LATER=3601"});
    return run({"clean", "."}, start);
  }

  const TempDir folder;
  const TempDir system;
  const std::string jpeg = folder / "photo.jpg";
  const CommandRunner run;
  Strings made;
};

TEST_F(CleanTemporaries, RemovesEachKindThatTheLibraryMakes) {
  made = MakeAll();
  for (const std::string& path : made) {
    ASSERT_NE(path, "");
    WriteFile(PlaceOf(path), "left behind");
  }
  const Outcome outcome = Clean();
  EXPECT_EQ(outcome.code, 0) << outcome;
  EXPECT_EQ(outcome.err, "");
  for (const std::string& path : made) EXPECT_FALSE(Exists(PlaceOf(path))) << path;
  EXPECT_EQ(Names(folder.Path()), (Strings{".tavi_ea", "cat.gif", "photo.jpg", "raw.raf"}));
  for (const char* name : file::TEMPORARY_FOLDERS) EXPECT_EQ(Names(system.Path() + name), Strings{}) << name;
}

}  // namespace
}  // namespace tavithumb::test
