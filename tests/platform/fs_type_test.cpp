// SPDX-License-Identifier: GPL-3.0-or-later
#include <gtest/gtest.h>
#include <tavi/core.h>
#include <tavi/sdk.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <utility>

#include "children.h"
#include "fuse_server.h"

namespace fs = std::filesystem;

namespace tavithumb::test {
namespace {

// What the two libraries together report about a volume.
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

TEST(GetFSType, SucceedsForFilesAndFolders) {
  if (!Exists("/dev/shm")) GTEST_SKIP() << "needs /dev/shm";
  const std::string file = "/dev/shm/tavithumb-test-" + std::to_string(getpid());
  WriteFile(file, "");
  EXPECT_EQ(Nature("/dev/shm"), "local");
  EXPECT_EQ(Nature(file), "local");
  fs::remove(file);
}

TEST(GetFSType, FollowsTypeAndSourceOfAFuseMount) {
  const struct {
    std::string type, source, nature;
  } rows[] = {
      {"fuse.sshfs", "host:/", "remote"},       {"fuse.glusterfs", "test", "remote"},
      {"fuse.encfs", "test", "local"},          {"fuse", "test", "local"},
      {"fuse.squashfuse", "test", "image"},     {"fuse.exfat", "test", "12"},
      {"fuse.fusefat", "test", "12"},           {"fuse", "https://dav.example/with a blank", "remote"},
      {"fuse", "http://dav.example", "remote"},
  };
  CheckWithMounts([&]() -> std::string {
    const TempDir folder;
    const std::string mountPoint = folder / "with a blank";
    fs::create_directory(mountPoint);
    for (const auto& row : rows) {
      SCOPED_TRACE(row.type + " of " + row.source);
      const FuseServer server(mountPoint, row.type, row.source);
      if (!server.IsMounted()) return "needs FUSE";
      EXPECT_EQ(Nature(mountPoint), row.nature);
    }
    return "";
  });
}

// The path of a new loop device for the file at `path`; "" when there can't be one.
std::string LoopDevice(const std::string& path) {
  std::FILE* const output =
      popen(("PATH=$PATH:/sbin:/usr/sbin losetup -f --show '" + path + "' 2>/dev/null").c_str(), "r");
  char line[256] = {};
  const bool isRead = std::fgets(line, sizeof line, output) != nullptr;
  return pclose(output) == 0 && isRead ? std::string(line, std::strcspn(line, "\n")) : "";
}

TEST(GetFSType, OfAFuseMountOfABlockDeviceFollowsWhatTheDeviceHolds) {
  if (geteuid() != 0) GTEST_SKIP() << "needs root, for a loop device";
  for (const auto& [name, nature] : {std::pair("EXFAT   ", "12"), std::pair("NTFS    ", "local")}) {
    SCOPED_TRACE(name);
    CheckWithMounts([name = name, nature = nature]() -> std::string {
      const TempDir folder;
      fs::create_directory(folder / "mounted");
      WriteFile(folder / "image", "xxx" + std::string(name));
      fs::resize_file(folder / "image", 1048576);
      const std::string device = LoopDevice(folder / "image");
      if (device.empty()) return "needs a loop device";
      std::string missing;
      {
        const FuseServer server(folder / "mounted", "fuseblk", device);
        if (server.IsMounted()) {
          EXPECT_EQ(Nature(folder / "mounted"), nature);
        } else {
          missing = "needs FUSE for block devices";
        }
      }
      EXPECT_EQ(std::system(("PATH=$PATH:/sbin:/usr/sbin losetup -d " + device).c_str()), 0);
      return missing;
    });
  }
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
