// SPDX-License-Identifier: GPL-3.0-or-later
#include "sdk/fs_kind.h"

#include <linux/magic.h>
#include <sys/sysmacros.h>

#include <algorithm>
#include <iterator>
#include <string_view>

namespace tavi {
namespace {

struct MagicRow {
  std::uint32_t magic;
  FsKind kind;
};

// linux/magic.h defines only some of them.
constexpr MagicRow kMagicRows[] = {
    {NFS_SUPER_MAGIC, kRemoteFS},
    {SMB_SUPER_MAGIC, kRemoteFS},
    {CIFS_SUPER_MAGIC, kRemoteFS},
    {SMB2_SUPER_MAGIC, kRemoteFS},
    {AFS_SUPER_MAGIC, kRemoteFS},
    {AFS_FS_MAGIC, kRemoteFS},
    {V9FS_MAGIC, kRemoteFS},
    {CEPH_SUPER_MAGIC, kRemoteFS},
    {CODA_SUPER_MAGIC, kRemoteFS},
    {NCP_SUPER_MAGIC, kRemoteFS},
    {0x0BD00BD0, kRemoteFS},  // Lustre
    {0x47504653, kRemoteFS},  // GPFS
    {0x19830326, kRemoteFS},  // BeeGFS
    {0x20030528, kRemoteFS},  // OrangeFS
    {0xAAD7AAEA, kRemoteFS},  // PanFS
    {0x786F4256, kRemoteFS},  // folders shared by a virtual machine's host
    {0xBACBACBC, kRemoteFS},
    {0x7C7C6673, kRemoteFS},
    {ISOFS_SUPER_MAGIC, kImageFS},
    {UDF_SUPER_MAGIC, kImageFS},
    {SQUASHFS_MAGIC, kImageFS},
    {EROFS_SUPER_MAGIC_V1, kImageFS},
    {CRAMFS_MAGIC, kImageFS},
    {CRAMFS_MAGIC_WEND, kImageFS},
    // EA names may contain a colon, which these can't store.
    {MSDOS_SUPER_MAGIC, kFatFS},
    {EXFAT_SUPER_MAGIC, kFatFS},
};

struct FuseRow {
  std::string_view type;
  FsKind kind;
};

constexpr FuseRow kFuseRows[] = {
    {"virtiofs", kRemoteFS},          {"fuse.sshfs", kRemoteFS},         {"fuse.rclone", kRemoteFS},
    {"fuse.s3fs", kRemoteFS},         {"fuse.s3ql", kRemoteFS},          {"fuse.goofys", kRemoteFS},
    {"fuse.mount-s3", kRemoteFS},     {"fuse.mountpoint-s3", kRemoteFS}, {"fuse.gcsfuse", kRemoteFS},
    {"fuse.blobfuse", kRemoteFS},     {"fuse.blobfuse2", kRemoteFS},     {"fuse.google-drive-ocamlfuse", kRemoteFS},
    {"fuse.juicefs", kRemoteFS},      {"fuse.JuiceFS", kRemoteFS},       {"fuse.seaweedfs", kRemoteFS},
    {"fuse.davfs", kRemoteFS},        {"fuse.davfs2", kRemoteFS},        {"fuse.curlftpfs", kRemoteFS},
    {"fuse.smbnetfs", kRemoteFS},     {"fuse.fusesmb", kRemoteFS},       {"fuse.nfs", kRemoteFS},
    {"fuse.fuse-nfs", kRemoteFS},     {"fuse.afpfs", kRemoteFS},         {"fuse.gvfsd-fuse", kRemoteFS},
    {"fuse.kio-fuse", kRemoteFS},     {"fuse.glusterfs", kRemoteFS},     {"fuse.ceph-fuse", kRemoteFS},
    {"fuse.ceph", kRemoteFS},         {"fuse.moosefs", kRemoteFS},       {"fuse.mfs", kRemoteFS},
    {"fuse.lizardfs", kRemoteFS},     {"fuse.saunafs", kRemoteFS},       {"fuse.cvmfs2", kRemoteFS},
    {"fuse.xrootdfs", kRemoteFS},     {"fuse.vmhgfs-fuse", kRemoteFS},   {"fuse.squashfuse", kImageFS},
    {"fuse.squashfuse_ll", kImageFS}, {"fuse.erofsfuse", kImageFS},      {"fuse.fuseiso", kImageFS},
    {"fuse.exfat", kFatFS},           {"fuseblk.exfat", kFatFS},         {"fuse.exfat-fuse", kFatFS},
    {"fuse.fusefat", kFatFS},
};

// Removes the first field of a line and the blank after it, and returns the field.
std::string_view TakeField(std::string_view* line) {
  const std::string_view field = line->substr(0, line->find(' '));
  line->remove_prefix(std::min(line->size(), field.size() + 1));
  return field;
}

bool IsWebAddress(std::string_view source) {
  constexpr std::string_view http = "http://", https = "https://";
  return source.substr(0, http.size()) == http || source.substr(0, https.size()) == https;
}

}  // namespace

FsKind KindOfMagic(std::uint32_t magic) {
  const auto row = std::find_if(std::begin(kMagicRows), std::end(kMagicRows),
                                [magic](const MagicRow& candidate) { return candidate.magic == magic; });
  return row == std::end(kMagicRows) ? kLocalFS : row->kind;
}

// A line reads "36 35 98:0 /root /mount/point options [optional fields] - type source options"; blanks inside a
// field are escaped.
Mount FindMount(std::istream& mountinfo, dev_t device) {
  const std::string number = std::to_string(major(device)) + ":" + std::to_string(minor(device));
  for (std::string line; std::getline(mountinfo, line);) {
    std::string_view rest = line;
    TakeField(&rest);
    TakeField(&rest);
    if (TakeField(&rest) != number) continue;
    while (!rest.empty() && TakeField(&rest) != "-") {
    }
    const std::string_view type = TakeField(&rest), source = TakeField(&rest);
    return {std::string(type), std::string(source)};
  }
  return {};
}

FsKind KindOfFuse(const Mount& mount) {
  if (mount.type == "fuse" && IsWebAddress(mount.source)) return kRemoteFS;  // davfs2
  const auto row = std::find_if(std::begin(kFuseRows), std::end(kFuseRows),
                                [&mount](const FuseRow& candidate) { return candidate.type == mount.type; });
  return row == std::end(kFuseRows) ? kLocalFS : row->kind;
}

FsKind KindOfUdevProperties(std::istream& properties) {
  for (std::string line; std::getline(properties, line);) {
    if (line == "E:ID_FS_TYPE=exfat" || line == "E:ID_FS_TYPE=vfat") return kFatFS;
  }
  return kLocalFS;
}

FsKind KindOfBootSector(std::string_view sector) {
  const auto has = [sector](std::size_t at, std::string_view name) {
    return sector.size() >= at + name.size() && sector.substr(at, name.size()) == name;
  };
  return has(3, "EXFAT   ") || has(54, "FAT12   ") || has(54, "FAT16   ") || has(82, "FAT32   ") ? kFatFS : kLocalFS;
}

}  // namespace tavi
