// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <gtest/gtest.h>
#include <syslog.h>

#include <string>
#include <vector>

#include "../records.h"
#include "fake_libc.h"
#include "recording_platform.h"
#include "temp_dir.h"

namespace tavithumb::test {

using Calls = std::vector<PlatformCall>;
using Log = std::vector<LogLine>;
using Listing = std::vector<std::string>;

// A folder with a source in it, its EA directory at <folder>/ea/<source name>,
// tools that are only recorded, and a captured system log. The source's
// modification time is 1000.
class JobTest : public testing::Test {
 protected:
  // Makes the source and returns its path.
  std::string Source(const std::string& name, const std::string& content = "source") const {
    WriteFile(folder / name, content);
    SetTimes(folder / name, 900, 1000);
    return folder / name;
  }
  std::string Entry(const std::string& source, const std::string& eaName) const {
    return folder / ("ea" + source.substr(source.rfind('/')) + "/" + eaName);
  }
  // Stores an entry with a modification time.
  std::string Store(const std::string& source, const std::string& eaName, std::time_t time) const {
    const std::string entry = Entry(source, eaName);
    WriteFile(entry, "thumbnail");
    SetTimes(entry, time, time);
    return entry;
  }
  Listing Entries(const std::string& source) const { return Names(Entry(source, "")); }

  static PlatformCall EAPath(const std::string& source, const std::string& eaName) {
    return {"TAVIEAPath", "0", source, eaName, "4096", "0"};
  }

  // Facts as if read from an upright JPEG.
  static void SetFacts(OpenThumb* job, std::uint32_t width, std::uint32_t height,
                       const std::string& mimeType = "image/jpeg") {
    OpenInfo& info = job->Info();
    info.mimeType_ = mimeType;
    info.width_ = width;
    info.height_ = height;
    info.good_ = true;
  }
  static void SetRequest(OpenThumb* job, const std::string& size) {
    job->Info().size_ = size;
    job->Info().dimension_ = Thumb::strThumbSizeMap_.at(size);
  }

  static LogLine Logged(int line, const std::string& function, const std::string& message) {
    return {LOG_ERR, "libtavithumb:" + std::to_string(line) + " (" + function + ") \"" + message + "\""};
  }

  const TempDir folder;
  RecordingPlatform platform{folder / "ea"};
  FakeLibc libc;
  CapturedLog log;
};

}  // namespace tavithumb::test
