// SPDX-License-Identifier: GPL-3.0-or-later
#include <gtest/gtest.h>
#include <tavi/core.h>
#include <tavi/sdk.h>

#include <cerrno>
#include <filesystem>
#include <string>

#include "children.h"
#include "fuse_server.h"

namespace fs = std::filesystem;

namespace tavithumb::test {
namespace {

// What a caller learns of a volume.
std::string Nature(const std::string& path) {
  const int type = TAVIGetFSType(path.c_str(), 0);
  if (type == -1) return std::string("error: ") + std::strerror(errno);
  if (TAVIFSIsRemoteFS(type) != 0) return "remote";
  if (TAVIFSIsImageFS(type) != 0) return "image";
  return type == 12 ? "12" : "local";
}

TEST(GetFSType, IsAnErrorForWhatCannotBeQueried) {
  TempDir folder;
  WriteFile(folder / "file", "");
  EXPECT_EQ(Nature(folder / "missing"), "error: No such file or directory");
  EXPECT_EQ(Nature(folder / "file/below"), "error: Not a directory");
  EXPECT_EQ(Nature(""), "error: No such file or directory");
}

TEST(GetFSType, AnswersForFilesAndFolders) {
  if (!Exists("/dev/shm")) GTEST_SKIP() << "needs /dev/shm";
  const std::string file = "/dev/shm/tavithumb-test-" + std::to_string(getpid());
  WriteFile(file, "");
  EXPECT_EQ(Nature("/dev/shm"), "local");
  EXPECT_EQ(Nature(file), "local");
  fs::remove(file);
}

TEST(GetFSType, FollowsTheTypeOfAFuseMount) {
  const struct {
    std::string type, nature;
  } rows[] = {{"fuse.sshfs", "remote"}, {"fuse.glusterfs", "remote"}, {"fuse.encfs", "local"},
              {"fuse", "local"},        {"fuse.squashfuse", "image"}, {"fuse.exfat", "12"}};
  CheckWithMounts([&]() -> std::string {
    const TempDir folder;
    const std::string mountPoint = folder / "with a blank";
    fs::create_directory(mountPoint);
    for (const auto& row : rows) {
      SCOPED_TRACE(row.type);
      const FuseServer server(mountPoint, row.type);
      if (!server.IsMounted()) return "needs FUSE";
      EXPECT_EQ(Nature(mountPoint), row.nature);
    }
    return "";
  });
}

// A file system in a file, made by `maker` and mounted by way of a loop device.
void CheckMountedImage(const std::string& maker, const std::string& type, const std::string& nature) {
  if (geteuid() != 0) GTEST_SKIP() << "needs root, for a loop device";
  CheckWithMounts([&]() -> std::string {
    const TempDir folder;
    fs::create_directories(folder / "content");
    fs::create_directories(folder / "mounted");
    WriteFile(folder / "content/a.jpg", "a");
    const std::string change = "cd '" + folder.Path() + "' && export PATH=$PATH:/sbin:/usr/sbin && ";
    if (std::system((change + maker + " >log 2>&1").c_str()) != 0) return "needs " + maker;
    if (std::system((change + "mount -o loop,ro -t " + type + " image mounted >log 2>&1").c_str()) != 0) {
      return "needs mounts of " + type;
    }
    EXPECT_EQ(Nature(folder / "mounted"), nature);
    EXPECT_EQ(Nature(folder.Path()), "local");
    umount((folder / "mounted").c_str());
    return "";
  });
}

TEST(GetFSType, OfASquashfsIsAnImage) {
  CheckMountedImage("mksquashfs content image", "squashfs", "image");
}

TEST(GetFSType, OfAnErofsIsAnImage) {
  CheckMountedImage("mkfs.erofs image content", "erofs", "image");
}

TEST(GetFSType, OfAnIsoImageIsAnImage) {
  CheckMountedImage("genisoimage -o image content", "iso9660", "image");
}

TEST(GetFSType, OfAFatVolumeIsTwelve) {
  CheckMountedImage("mkfs.vfat -C image 1024", "vfat", "12");
}

TEST(GetFSType, OfAnExt4VolumeIsLocal) {
  CheckMountedImage("truncate -s 1M image && mkfs.ext4 -q image", "ext4", "local");
}

}  // namespace
}  // namespace tavithumb::test
