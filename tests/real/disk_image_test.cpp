// SPDX-License-Identifier: GPL-3.0-or-later
// Sources on a volume that cannot store entries: a read-only disk image, mounted where only a child process sees it.
#include <sched.h>
#include <sys/mount.h>

#include <algorithm>
#include <ctime>

#include "real_support.h"

namespace tavithumb::test {
namespace {

class OnADiskImage : public RealTest {
 protected:
  void SetUp() override {
    RealTest::SetUp();
    if (geteuid() != 0) GTEST_SKIP() << "needs root";
    if (!Exists("/usr/bin/mksquashfs")) GTEST_SKIP() << "needs mksquashfs";
    std::filesystem::create_directories(folder_);
    std::filesystem::create_directories(volume_);
    Pack();
    if (StatusOfChild([this] { return Enter(), 0; }) != 0) GTEST_SKIP() << "needs a mountable loop device";
  }

  void Pack() const { RunTool({"/usr/bin/mksquashfs", folder_, image_, "-noappend", "-quiet", "-no-progress"}); }

  // Mounts the image for this process only; the mount goes away with the process.
  void Enter() const {
    if (unshare(CLONE_NEWNS) != 0) throw std::runtime_error("unshare");
    if (mount("none", "/", "", MS_REC | MS_PRIVATE, nullptr) != 0) throw std::runtime_error("mount");
    RunTool({"/bin/mount", "-t", "squashfs", "-o", "loop,ro", image_, volume_});
  }

  // Runs `body` with the files of the folder on the volume. It must leave nothing behind.
  void OnVolume(const std::function<void()>& body) const {
    Pack();
    InChild([&] {
      Enter();
      body();
      EXPECT_EQ(OwnTemporaryFiles(), std::vector<std::string>{});
      EXPECT_FALSE(HasChildren());
    });
  }

  std::string InFolder(const std::string& name) const { return folder_ + "/" + mark_ + name; }
  std::string OnVolume(const std::string& name) const { return volume_ + "/" + mark_ + name; }

  // Makes a request, expects a temporary file with that tag as the answer, passes it to `look`, and deletes it.
  void ExpectTemporary(Thumb& job, const std::string& size, const std::string& tag, const std::string& mimeType,
                       const std::function<void(const std::string&)>& look) const {
    const std::time_t before = std::time(nullptr);
    const std::string path = job.CalcOutputFile(size);
    std::vector<std::string> possible;
    for (std::time_t second = before; second <= std::time(nullptr); ++second) {
      possible.push_back("/var/tmp/tavithumb_" + tag + "_" + std::to_string(getpid()) + "_" + std::to_string(second));
    }
    EXPECT_NE(std::find(possible.begin(), possible.end(), path), possible.end()) << path;
    EXPECT_EQ(OwnTemporaryFiles(), std::vector<std::string>{path});
    ExpectAnswer(AnswerOf(job, path), path, "BrovixVarTmp", mimeType);
    look(path);
    unlink(path.c_str());
  }

  const std::string folder_ = directory_ / "folder";
  const std::string volume_ = directory_ / "volume";
  const std::string image_ = directory_ / "image.squashfs";
};

// Without a known extension at the end of its name, convert keeps the type of its input.
TEST_F(OnADiskImage, TheThumbnailIsATemporaryFileThatTheCallerDeletes) {
  MakePng(InFolder("a.png"), 600, 400);
  MakeBmp(InFolder("a.bmp"), 600, 400);
  MakeTiff(InFolder("a.tif"), 600, 400);
  MakeGif(InFolder("a.gif"), 600, 400, 3);
  MakeHeic(InFolder("a.heic"), 600, 400, true);
  struct Kind {
    const char* name;
    int options;
    const char* extension;
    const char* mimeType;
    int frames;
  };
  OnVolume([&] {
    for (const Kind& kind :
         {Kind{"a.png", kBrovix, "png", "image/png", 1}, Kind{"a.bmp", kBrovix, "jpg", "image/jpeg", 1},
          Kind{"a.tif", kBrovix, "jpg", "image/jpeg", 1},
          Kind{"a.gif", kBrovix | Thumb::OPT_ENABLE_GIF, "gif", "image/gif", 3},
          Kind{"a.gif", kBrovix, "jpg", "image/jpeg", 1}, Kind{"a.heic", kBrovix, "jpg", "image/jpeg", 1}}) {
      for (const auto& [size, width, height] : {std::tuple("small", 120, 80), std::tuple("medium", 360, 240)}) {
        SCOPED_TRACE(testing::Message() << kind.name << " " << kind.mimeType << " " << size);
        Thumb job(OnVolume(kind.name), kind.options, false);
        ExpectTemporary(job, size, std::string("TAVIFILETMP_THUMB.") + kind.extension, kind.mimeType,
                        [&, w = width, h = height](const std::string& path) {
                          const PictureFacts facts = Identify(path);
                          EXPECT_EQ(facts.width, w);
                          EXPECT_EQ(facts.height, h);
                          EXPECT_EQ(facts.frames, kind.frames);
                          ExpectScene(path);
                        });
        EXPECT_FALSE(job.IsNeedDelete());  // set only for decoded JPEGs
      }
    }
  });
}

TEST_F(OnADiskImage, AJpegIsDecodedIntoATemporaryFileAndTheJobSaysWhetherToDeleteIt) {
  const std::uintmax_t bmpAndHalfAMiB = 150 * 100 * 3 + 54 + 524288;
  MakeJpeg(InFolder("worth.jpg"), 600, 400);
  MakeJpeg(InFolder("hardly.jpg"), 600, 400);
  std::filesystem::resize_file(InFolder("worth.jpg"), bmpAndHalfAMiB);
  std::filesystem::resize_file(InFolder("hardly.jpg"), bmpAndHalfAMiB - 1);
  OnVolume([&] {
    for (const auto& [name, needDelete] : {std::pair("worth.jpg", false), std::pair("hardly.jpg", true)}) {
      SCOPED_TRACE(name);
      Thumb job(OnVolume(name), kBrovix, false);
      ExpectTemporary(job, "small", "TAVIFILETMP_THUMB.jpg", "image/jpeg", [&](const std::string& path) {
        ExpectPicture(path, "BMP3", 150, 100);
        ExpectScene(path);
      });
      EXPECT_EQ(job.IsNeedDelete(), needDelete);
    }
  });
}

TEST_F(OnADiskImage, TheOrientationAndTheUsersRotationAreInTheTemporaryFile) {
  for (int orientation = 1; orientation <= 8; ++orientation) {
    std::filesystem::rename(OrientedJpeg("turned.jpg", orientation, 3000000),
                            InFolder(std::to_string(orientation) + ".jpg"));
  }
  OnVolume([&] {
    const char* const tags[] = {"TAVIFILETMP_THUMB.jpg",    "TAVIFILETMP_THUMB.jpg",    "TAVIFILETMP_THUMB_r2.jpg",
                                "TAVIFILETMP_THUMB_r2.jpg", "TAVIFILETMP_THUMB_r1.jpg", "TAVIFILETMP_THUMB_r1.jpg",
                                "TAVIFILETMP_THUMB_r3.jpg", "TAVIFILETMP_THUMB_r3.jpg"};
    for (int orientation = 1; orientation <= 8; ++orientation) {
      SCOPED_TRACE(orientation);
      Thumb job(OnVolume(std::to_string(orientation) + ".jpg"), kBrovix, false);
      ExpectTemporary(job, "small", tags[orientation - 1], "image/jpeg",
                      [&](const std::string& path) { ExpectScene(path); });
    }
    Thumb job(OnVolume("6.jpg"), kBrovix, false);
    job.Rotate(1);
    ExpectTemporary(job, "small", "TAVIFILETMP_THUMB_r2.jpg", "image/jpeg",
                    [&](const std::string& path) { ExpectScene(path, 1); });
  });
}

TEST_F(OnADiskImage, AnAvatarHasTheSameTemporaryName) {
  MakePng(InFolder("a.png"), 600, 400);
  OnVolume([&] {
    Thumb job(OnVolume("a.png"), Thumb::OPT_AVATAR, false);
    ExpectTemporary(job, "small", "TAVIFILETMP_THUMB.png", "image/png",
                    [](const std::string& path) { ExpectPicture(path, "PNG", 120, 120); });
  });
}

TEST_F(OnADiskImage, AnEmbeddedPreviewIsAbandonedAndRemoved) {
  MakeJpeg(InFolder("a.jpg"), 600, 400);
  MakeJpeg(directory_ / "preview.jpg", 180, 120);
  SetPreview(InFolder("a.jpg"), directory_ / "preview.jpg");
  std::filesystem::resize_file(InFolder("a.jpg"), 800000);
  OnVolume([&] {
    Thumb job(OnVolume("a.jpg"), kBrovix, false);
    ExpectTemporary(job, "small", "TAVIFILETMP_THUMB.jpg", "image/jpeg",
                    [](const std::string& path) { ExpectPicture(path, "BMP3", 150, 100); });
  });
}

// dcraw's preview would have to be stored next to the source, and convert may or may not support camera raw itself.
TEST_F(OnADiskImage, ARawFileLeavesNothingBehind) {
  MakeJpeg(directory_ / "preview.jpg", 240, 160);
  MakeRaf(InFolder("a.raf"), directory_ / "preview.jpg");
  OnVolume([&] {
    const Answer answer = Ask(OnVolume("a.raf"), "small");
    if (!answer.path.empty()) unlink(answer.path.c_str());
  });
}

TEST_F(OnADiskImage, ThumbnailsStoredOnItAreFound) {
  MakePng(InFolder("a.png"), 600, 400);
  SetTimes(InFolder("a.png"), kSourceTime, kSourceTime);
  const Answer made = Ask(InFolder("a.png"), "small");
  EXPECT_EQ(made.type, "Brovix");
  OnVolume([&] {
    ExpectAnswer(Ask(OnVolume("a.png"), "small"), EAEntry(OnVolume("a.png"), "TAVIFILE_THUMB_S.png"), "Brovix",
                 "image/png");
  });
}

TEST_F(OnADiskImage, SourcesThatNeedNoThumbnailAreServedUnchanged) {
  MakePng(InFolder("a.png"), 90, 60);
  MakeHeic(InFolder("a.heic"), 90, 60, true);
  OnVolume([&] {
    ExpectAnswer(Ask(OnVolume("a.png"), "small"), OnVolume("a.png"), "Original", "image/png");
    ExpectAnswer(Ask(OnVolume("a.heic"), "small", kBrovix, 0, true), OnVolume("a.heic"), "", "image/jpeg");
  });
}

TEST_F(OnADiskImage, ExistingThumbnailsCannotBeStored) {
  MakePng(InFolder("a.png"), 600, 400);
  MakePng(directory_ / "thumb.png", 120, 80);
  OnVolume([&] {
    Thumb job(OnVolume("a.png"), kBrovix, false);
    EXPECT_FALSE(job.SaveExistingThumbsToEA({{"small", directory_ / "thumb.png"}}, 0, false));
    EXPECT_TRUE(Exists(directory_ / "thumb.png"));
  });
}

}  // namespace
}  // namespace tavithumb::test
