// SPDX-License-Identifier: GPL-3.0-or-later
#include "sdk/fs_kind.h"

#include <gtest/gtest.h>
#include <sys/sysmacros.h>
#include <tavi/core.h>

#include <sstream>
#include <string>
#include <utility>

namespace tavithumb::test {
namespace {

using tavi::kFatFS;
using tavi::kImageFS;
using tavi::kLocalFS;
using tavi::kRemoteFS;

TEST(KindOfMagic, FollowsTheFileSystemsNumber) {
  const struct {
    const char* name;
    std::uint32_t magic;
    int kind;
  } rows[] = {
      {"NFS", 0x6969, kRemoteFS},
      {"SMB", 0x517B, kRemoteFS},
      {"CIFS", 0xFF534D42, kRemoteFS},
      {"SMB2", 0xFE534D42, kRemoteFS},
      {"AFS", 0x5346414F, kRemoteFS},
      {"kAFS", 0x6B414653, kRemoteFS},
      {"9p", 0x01021997, kRemoteFS},
      {"Ceph", 0x00C36400, kRemoteFS},
      {"Coda", 0x73757245, kRemoteFS},
      {"NCP", 0x564C, kRemoteFS},
      {"Lustre", 0x0BD00BD0, kRemoteFS},
      {"GPFS", 0x47504653, kRemoteFS},
      {"BeeGFS", 0x19830326, kRemoteFS},
      {"OrangeFS", 0x20030528, kRemoteFS},
      {"PanFS", 0xAAD7AAEA, kRemoteFS},
      {"vboxsf", 0x786F4256, kRemoteFS},
      {"vmhgfs", 0xBACBACBC, kRemoteFS},
      {"prl_fs", 0x7C7C6673, kRemoteFS},
      {"ISO 9660", 0x9660, kImageFS},
      {"UDF", 0x15013346, kImageFS},
      {"squashfs", 0x73717368, kImageFS},
      {"erofs", 0xE0F5E1E2, kImageFS},
      {"cramfs", 0x28CD3D45, kImageFS},
      {"cramfs, other byte order", 0x453DCD28, kImageFS},
      {"FAT", 0x4D44, kFatFS},
      {"exFAT", 0x2011BAB0, kFatFS},
      {"ext4", 0xEF53, kLocalFS},
      {"btrfs", 0x9123683E, kLocalFS},
      {"XFS", 0x58465342, kLocalFS},
      {"tmpfs", 0x01021994, kLocalFS},
      {"overlayfs", 0x794C7630, kLocalFS},
      {"NTFS", 0x5346544E, kLocalFS},
      {"ntfs3", 0x7366746E, kLocalFS},
      {"F2FS", 0xF2F52010, kLocalFS},
      {"ZFS", 0x2FC12FC1, kLocalFS},
      {"HFS+", 0x482B, kLocalFS},
      {"FUSE", 0x65735546, kLocalFS},
      {"unknown", 0x12345678, kLocalFS},
      {"zero", 0, kLocalFS},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(tavi::KindOfMagic(row.magic), row.kind) << row.name;
  }
}

tavi::FsKind KindOfType(const std::string& type) {
  return tavi::KindOfFuse({type, "/dev/sdb1"});
}

TEST(KindOfFuse, FollowsTheMountsType) {
  for (const char* type : {"virtiofs",      "fuse.sshfs",     "fuse.rclone",     "fuse.s3fs",
                           "fuse.s3ql",     "fuse.goofys",    "fuse.mount-s3",   "fuse.mountpoint-s3",
                           "fuse.gcsfuse",  "fuse.blobfuse",  "fuse.blobfuse2",  "fuse.google-drive-ocamlfuse",
                           "fuse.juicefs",  "fuse.JuiceFS",   "fuse.seaweedfs",  "fuse.davfs",
                           "fuse.davfs2",   "fuse.curlftpfs", "fuse.smbnetfs",   "fuse.fusesmb",
                           "fuse.nfs",      "fuse.fuse-nfs",  "fuse.afpfs",      "fuse.gvfsd-fuse",
                           "fuse.kio-fuse", "fuse.glusterfs", "fuse.ceph-fuse",  "fuse.ceph",
                           "fuse.moosefs",  "fuse.mfs",       "fuse.lizardfs",   "fuse.saunafs",
                           "fuse.cvmfs2",   "fuse.xrootdfs",  "fuse.vmhgfs-fuse"}) {
    EXPECT_EQ(KindOfType(type), kRemoteFS) << type;
  }
  for (const char* type : {"fuse.squashfuse", "fuse.squashfuse_ll", "fuse.erofsfuse", "fuse.fuseiso"}) {
    EXPECT_EQ(KindOfType(type), kImageFS) << type;
  }
  for (const char* type : {"fuse.exfat", "fuseblk.exfat", "fuse.exfat-fuse", "fuse.fusefat"}) {
    EXPECT_EQ(KindOfType(type), kFatFS) << type;
  }
  for (const char* type : {"fuse", "fuseblk", "fuse.ntfs-3g", "fuse.encfs", "fuse.gocryptfs", "fuse.mergerfs",
                           "fuse.bindfs", "fuse.", "fuse.sshfs2", "sshfs", "FUSE.SSHFS", "ext4", ""}) {
    EXPECT_EQ(KindOfType(type), kLocalFS) << type;
  }
}

TEST(KindOfFuse, IsRemoteForAPlainMountOfAWebAddress) {
  const struct {
    std::string type, source;
    int kind;
  } rows[] = {
      {"fuse", "https://dav.example/photos", kRemoteFS},
      {"fuse", "http://dav.example", kRemoteFS},
      {"fuse", "https", kLocalFS},
      {"fuse", "/srv/https://photos", kLocalFS},
      {"fuse", "", kLocalFS},
      {"fuse.encfs", "https://dav.example", kLocalFS},
      {"fuseblk", "https://dav.example", kLocalFS},
  };
  for (const auto& row : rows) EXPECT_EQ(tavi::KindOfFuse({row.type, row.source}), row.kind) << row.source;
}

TEST(KindOfUdevProperties, FollowsTheFileSystemsType) {
  const std::pair<std::string, int> rows[] = {
      {"S:disk/by-uuid/1\nE:ID_FS_TYPE=exfat\nE:ID_FS_USAGE=filesystem\n", kFatFS},
      {"E:ID_FS_TYPE=vfat", kFatFS},
      {"E:ID_FS_TYPE=ntfs\nE:ID_FS_LABEL=exfat\n", kLocalFS},
      {"E:ID_FS_TYPE=exfat2\n", kLocalFS},
      {"E:ID_PART_ENTRY_TYPE=exfat\n", kLocalFS},
      {"", kLocalFS},
  };
  for (const auto& [text, kind] : rows) {
    std::istringstream properties(text);
    EXPECT_EQ(tavi::KindOfUdevProperties(properties), kind) << text;
  }
}

// The first bytes of a device that has `name` at byte `at`.
std::string Sector(std::size_t at, const std::string& name, std::size_t size = 512) {
  std::string sector(512, 'x');
  return sector.replace(at, name.size(), name).substr(0, size);
}

TEST(KindOfBootSector, FollowsTheFileSystemsName) {
  const std::pair<std::string, int> rows[] = {
      {Sector(3, "EXFAT   "), kFatFS},
      {Sector(54, "FAT12   "), kFatFS},
      {Sector(54, "FAT16   "), kFatFS},
      {Sector(82, "FAT32   "), kFatFS},
      {Sector(3, "NTFS    "), kLocalFS},
      {Sector(4, "EXFAT   "), kLocalFS},
      {Sector(54, "FAT32   "), kLocalFS},
      {Sector(3, "EXFAT   ", 11), kFatFS},
      {Sector(3, "EXFAT   ", 10), kLocalFS},
      {Sector(82, "FAT32   ", 89), kLocalFS},
      {"", kLocalFS},
  };
  for (const auto& [sector, kind] : rows) EXPECT_EQ(tavi::KindOfBootSector(sector), kind) << sector;
}

TEST(FindMount, GoesByTheDeviceNumber) {
  const std::string table =
      "36 35 98:0 /mnt1 /mnt/with\\040blank rw,noatime master:1 - ext3 /dev/root rw,errors=continue\n"
      "37 35 0:42 / /mnt/remote rw shared:7 master:1 propagate_from:2 unbindable - fuse.sshfs host:/a\\040b rw\n"
      "a broken line\n"
      "38 35 0:4 / /mnt/no-optional-fields rw - tmpfs tmpfs rw\n"
      "39 35 0:43 / /mnt/cut-short rw\n"
      "41 35 0:44 / /mnt/without-source rw - fuse\n"
      "40 35 259:1048575 / /mnt/-/dash rw - fuseblk /dev/sda1 rw";
  const struct {
    dev_t device;
    std::string type, source;
  } rows[] = {
      {makedev(98, 0), "ext3", "/dev/root"},
      {makedev(0, 42), "fuse.sshfs", "host:/a\\040b"},
      {makedev(0, 4), "tmpfs", "tmpfs"},
      {makedev(259, 1048575), "fuseblk", "/dev/sda1"},
      {makedev(0, 43), "", ""},
      {makedev(0, 44), "fuse", ""},
      {makedev(98, 1), "", ""},
      {makedev(0, 2), "", ""},
  };
  for (const auto& row : rows) {
    std::istringstream mountinfo(table);
    const tavi::Mount mount = tavi::FindMount(mountinfo, row.device);
    EXPECT_EQ(mount.type, row.type) << major(row.device) << ":" << minor(row.device);
    EXPECT_EQ(mount.source, row.source) << major(row.device) << ":" << minor(row.device);
  }
}

TEST(FSKinds, ToldByTheCoreLibraryAreThoseOfTheTypeCodes) {
  const struct {
    int type;
    bool remote, image;
  } rows[] = {{kRemoteFS, true, false}, {kImageFS, false, true}, {kLocalFS, false, false}, {kFatFS, false, false},
              {0, false, false},        {-1, false, false},      {4, false, false},        {1000, false, false}};
  for (const auto& row : rows) {
    EXPECT_EQ(TAVIFSIsRemoteFS(row.type) != 0, row.remote) << row.type;
    EXPECT_EQ(TAVIFSIsImageFS(row.type) != 0, row.image) << row.type;
  }
}

TEST(FSKinds, NumberVolumesThatCannotHoldTheNamesTwelve) {
  EXPECT_EQ(static_cast<int>(kFatFS), 12);
}

}  // namespace
}  // namespace tavithumb::test
