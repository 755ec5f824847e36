// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <tavithumb/libtavithumb.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "pictures.h"
#include "temp_dir.h"

namespace tavithumb::test {

constexpr int kBrovix = Thumb::OPT_BROVIX_EA;
constexpr std::time_t kSourceTime = 1600000000;
constexpr double kSameScene = 0.06;  // scaled, recompressed, cut by a few pixels
constexpr double kOtherScene = 0.1;  // rotated or mirrored

// One more than there are: counting opens one.
inline std::size_t OpenDescriptors() {
  return Names("/proc/self/fd").size();
}

inline bool HasChildren() {
  return !(waitpid(-1, nullptr, WNOHANG) == -1 && errno == ECHILD);
}

inline struct stat StatOf(const std::string& path) {
  struct stat record = {};
  EXPECT_EQ(stat(path.c_str(), &record), 0) << path;
  return record;
}

// The result of a request, as its caller sees it.
struct Answer {
  std::string path;
  std::string type;
  std::string mimeType;
};

inline Answer AnswerOf(const Thumb& job, const std::string& path) {
  return {path, job.GetOutputType(), job.GetOutputMimeType()};
}

inline Answer Ask(const std::string& source, const std::string& size, int options = Thumb::OPT_BROVIX_EA, int turns = 0,
                  bool acceptHeic = false) {
  Thumb job(source, options, acceptHeic);
  job.Rotate(turns);
  const std::string path = job.CalcOutputFile(size);
  EXPECT_EQ(path, job.GetOutputFile());
  return AnswerOf(job, path);
}

inline void ExpectAnswer(const Answer& answer, const std::string& path, const std::string& type,
                         const std::string& mimeType) {
  EXPECT_EQ(answer.path, path);
  EXPECT_EQ(answer.type, type);
  EXPECT_EQ(answer.mimeType, mimeType);
}

inline void ExpectPicture(const std::string& path, const std::string& format, int width, int height, int frames = 1) {
  SCOPED_TRACE(path);
  if (!Exists(path)) {
    ADD_FAILURE() << "missing";
    return;
  }
  const PictureFacts facts = Identify(path);
  EXPECT_EQ(facts.format, format);
  EXPECT_EQ(facts.width, width);
  EXPECT_EQ(facts.height, height);
  EXPECT_EQ(facts.frames, frames);
}

// Stored for every service to use: open to everybody, owned by root, with its source's time and never read. A process
// that can't become root keeps what it made unchanged. To be called before the content is read.
inline void ExpectStoredFor(const std::string& source, const std::string& thumb) {
  const struct stat record = StatOf(thumb);
  EXPECT_EQ(record.st_mode, mode_t{S_IFREG | 0777});
  if (geteuid() != 0) return;
  EXPECT_EQ(record.st_uid, 0u);
  EXPECT_EQ(record.st_gid, 0u);
  EXPECT_EQ(record.st_mtime, StatOf(source).st_mtime);
  EXPECT_EQ(record.st_atime, 0);
}

// Where the stand-in stores an entry of a source.
inline std::string EAEntry(const std::string& source, const std::string& name) {
  const std::filesystem::path path(source);
  return path.parent_path() / ".tavi_ea" / path.filename() / name;
}

inline std::vector<std::string> EAEntries(const std::string& source) {
  return Names(EAEntry(source, ""));
}

// The exit status of a child process that runs `body` and exits with its result; -1 if it was killed.
inline int StatusOfChild(const std::function<int()>& body) {
  std::fflush(nullptr);
  const pid_t child = fork();
  if (child == 0) {
    int result = 1;
    try {
      result = body();
    } catch (const std::exception& exception) {
      std::fprintf(stderr, "in the child: %s\n", exception.what());
    }
    std::fflush(nullptr);
    _exit(result);
  }
  int status = -1;
  EXPECT_EQ(waitpid(child, &status, 0), child);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

// Runs `body` in a child process and fails if an expectation fails there.
inline void InChild(const std::function<void()>& body) {
  EXPECT_EQ(StatusOfChild([&] {
              body();
              return testing::Test::HasFailure() ? 1 : 0;
            }),
            0)
      << "see the child's failures above";
}

// A directory for the sources of one test; no temporary file, open descriptor or child may be left afterwards.
class RealTest : public testing::Test {
 protected:
  void SetUp() override {
    MakePng(upright_, 300, 200);
    descriptors_ = OpenDescriptors();
    temporaries_ = OwnTemporaryFiles();
  }

  void TearDown() override {
    EXPECT_EQ(OwnTemporaryFiles(), temporaries_);
    EXPECT_EQ(OpenDescriptors(), descriptors_);
    EXPECT_FALSE(HasChildren());
  }

  // The path of a source, which contains this process's id so that its temporary files can be recognised.
  std::string Source(const std::string& name) const { return directory_ / (mark_ + name); }

  // Sets a source's time, well in the past.
  static std::string Dated(const std::string& source) {
    SetTimes(source, kSourceTime, kSourceTime);
    return source;
  }

  // A JPEG of at least `bytes` bytes, padded after its end: online mode serves small files unchanged.
  std::string Jpeg(const std::string& name, int width, int height, std::uintmax_t bytes) const {
    const std::string source = Source(name);
    MakeJpeg(source, width, height);
    std::filesystem::resize_file(source, bytes);
    return Dated(source);
  }

  // A JPEG as a camera stores it with that orientation: upright when the orientation is applied.
  std::string OrientedJpeg(const std::string& name, int orientation, std::uintmax_t bytes) const {
    static const std::vector<std::vector<std::string>> toStored = {{},
                                                                   {"-flop"},
                                                                   {"-rotate", "180"},
                                                                   {"-flip"},
                                                                   {"-transpose"},
                                                                   {"-rotate", "270"},
                                                                   {"-transverse"},
                                                                   {"-rotate", "90"}};
    const std::string source = Source(name);
    std::vector<std::string> argv = {"/usr/bin/convert", upright_, "-resize", "1200x800"};
    const std::vector<std::string>& turn = toStored[static_cast<std::size_t>(orientation - 1)];
    argv.insert(argv.end(), turn.begin(), turn.end());
    argv.push_back("jpg:" + source);
    RunTool(argv);
    SetExif(source, {{"Exif.Image.Orientation", std::to_string(orientation)}});
    if (bytes != 0) std::filesystem::resize_file(source, bytes);
    return Dated(source);
  }

  // The upright scene after quarter turns clockwise.
  std::string Turned(int quarterTurns) const {
    const std::string path = directory_ / ("turned" + std::to_string(quarterTurns) + ".png");
    if (!Exists(path)) RunTool({"/usr/bin/convert", upright_, "-rotate", std::to_string(90 * quarterTurns), path});
    return path;
  }

  void ExpectScene(const std::string& path, int quarterTurns = 0) const {
    ASSERT_TRUE(Exists(path)) << path;
    EXPECT_LT(Difference(path, Turned(quarterTurns)), kSameScene) << path;
  }

  const TempDir directory_;
  const std::string mark_ = "p" + std::to_string(getpid()) + "-";
  const std::string upright_ = directory_ / "upright.png";
  std::size_t descriptors_ = 0;
  std::vector<std::string> temporaries_;
};

}  // namespace tavithumb::test
