// SPDX-License-Identifier: GPL-3.0-or-later
// The facts and the preview of a picture, whatever type it claims to be.
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

// Nothing about the fuzzer's input belongs in this machine's log.
extern "C" __attribute__((visibility("default"))) void syslog(int, const char*, ...) {}

namespace {

constexpr tavithumb::ThumbDimension box = {2147483647, 2147483647};

// Rewritten for each picture. With this name, libheif gets the content if Exiv2 does not know its type.
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

// False if there are none, reported in one of the ways that the programs handle.
bool HasFacts(ThumbInfo* info, bool withPreview) {
  try {
    info->ExtractImgInfo(withPreview);
    return true;
  } catch (const tavithumb::Error& error) {
    Require(error.Code() == 601 || error.Code() == 602);
  } catch (const Exiv2::Error&) {
    Require(false);
  } catch (const std::exception&) {  // an orientation that is not a number
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
