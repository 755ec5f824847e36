// SPDX-License-Identifier: GPL-3.0-or-later
// The facts and the preview of a picture, whatever kind it claims to be.
#include <fcntl.h>
#include <tavithumb/error.h>
#include <tavithumb/thumb_info.h>
#include <unistd.h>

#include <cstdarg>
#include <exiv2/exiv2.hpp>
#include <filesystem>
#include <string>

#include "fuzz.h"

using tavithumb::ThumbInfo;

// What is thought up here does not belong in the log of this machine.
extern "C" __attribute__((visibility("default"))) void syslog(int, const char*, ...) {}

namespace {

constexpr tavithumb::ThumbDimension box = {2147483647, 2147483647};

// Rewritten for each picture. The name is one whose content libheif gets where Exiv2 knows no such kind.
class PictureFile {
 public:
  PictureFile()
      : path_(std::filesystem::temp_directory_path() / ("picture." + std::to_string(getpid()) + ".heic")),
        descriptor_(open(path_.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0600)) {
    Exiv2::LogMsg::setLevel(Exiv2::LogMsg::mute);
  }
  ~PictureFile() {
    close(descriptor_);
    unlink(path_.c_str());
  }
  PictureFile(const PictureFile&) = delete;
  PictureFile& operator=(const PictureFile&) = delete;

  const std::string& Path() const { return path_; }
  void Fill(const std::uint8_t* data, std::size_t size) const {
    Require(ftruncate(descriptor_, 0) == 0 && pwrite(descriptor_, data, size, 0) == static_cast<ssize_t>(size));
  }

 private:
  std::string path_;
  int descriptor_;
};

int LowestFreeDescriptor() {
  const int free = open("/dev/null", O_RDONLY | O_CLOEXEC);
  close(free);
  return free;
}

// False when there are none, told in one of the ways that the programs know.
bool HasFacts(ThumbInfo* info, bool withPreview) {
  try {
    info->ExtractImgInfo(withPreview);
    return true;
  } catch (const tavithumb::Error& error) {
    Require(error.Code() == 601 || error.Code() == 602);
  } catch (const Exiv2::Error&) {
    Require(false);
  } catch (const std::exception&) {  // an orientation that is no number
  }
  return false;
}

void RequireSense(const ThumbInfo& info) {
  Require(info.IsGood() && info.GetRotate() >= 0 && info.GetRotate() <= 3);
  const tavithumb::ThumbDimension target = info.GetTargetDimension();
  Require(target.width <= box.width && target.height <= box.height);
  for (const std::string& name : {info.GetBrovixThumbEAName(), info.GetAvatarThumbEAName()}) {
    Require(name.find('/') == name.npos && name.size() < 100);
  }
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const PictureFile file;
  file.Fill(data, size);
  const int descriptor = LowestFreeDescriptor();
  ThumbInfo info(file.Path(), "__CUSTOM_SIZE__", box);
  if (HasFacts(&info, true)) RequireSense(info);
  const std::string& preview = info.GetEXIFPreviewTmpPath();
  if (!preview.empty()) {
    ThumbInfo previewInfo(preview, "__CUSTOM_SIZE__", box);
    if (HasFacts(&previewInfo, false)) RequireSense(previewInfo);
    Require(unlink(preview.c_str()) == 0);
  }
  Require(LowestFreeDescriptor() == descriptor);
  return 0;
}
