// SPDX-License-Identifier: GPL-3.0-or-later
#include "environment.h"

#include <benchmark/benchmark.h>
#include <tavi/core.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <stdexcept>

namespace fs = std::filesystem;

namespace tavithumb::bench {
namespace {

// Removed with all its content when the program exits.
class Folder {
 public:
  Folder() {
    std::string name = fs::temp_directory_path() / "tavithumb-bench-XXXXXX";
    if (mkdtemp(name.data()) == nullptr) throw std::runtime_error("no temporary folder");
    path_ = name;
  }
  ~Folder() {
    std::error_code ignored;
    fs::remove_all(path_, ignored);
  }
  Folder(const Folder&) = delete;
  Folder& operator=(const Folder&) = delete;

  std::string operator/(const std::string& name) const { return path_ / name; }

 private:
  fs::path path_;
};

const Folder& Temporary() {
  static const Folder folder;
  return folder;
}

fs::path Samples() {
  const char* folder = std::getenv("TAVITHUMB_SAMPLES");
  return folder == nullptr ? fs::path("../shared/samples") : fs::path(folder);
}

void MakePhoto(const std::string& path, const std::string& size, const std::string& preview,
               const std::string& orientation) {
  const std::string thumb = path.substr(0, path.rfind('.')) + "-thumb.jpg";
  Run({"/usr/bin/convert", "-size", size, "-seed", "1", "plasma:", "-quality", "97", path});
  Run({"/usr/bin/convert", path, "-resize", preview, "-quality", "60", thumb});
  Run({"/usr/bin/exiv2", "-it", path});
  Run({"/usr/bin/exiv2", "-Mset Exif.Image.Orientation " + orientation, path});
}

std::string Photo(const std::string& name, const std::string& size, const std::string& preview,
                  const std::string& orientation) {
  const std::string path = Temporary() / name;
  const fs::path sample = Samples() / "photos" / name;
  if (fs::exists(sample)) {
    fs::copy_file(sample, path);
  } else {
    MakePhoto(path, size, preview, orientation);
  }
  return path;
}

}  // namespace

const std::string& UprightPhoto() {
  static const std::string path = Photo("samsung-s7-edge.jpg", "4032x3024", "512x384", "1");
  return path;
}

const std::string& RotatedPhoto() {
  static const std::string path = Photo("canon-1000d-rotated.jpg", "3888x2592", "160x120", "6");
  return path;
}

void ForgetThumbnails(const std::string& photo) {
  fs::remove_all(fs::path(photo).parent_path() / ".tavi_ea");
}

void Run(const std::vector<std::string>& argv) {
  std::vector<const char*> pointers;
  for (const std::string& argument : argv) pointers.push_back(argument.c_str());
  pointers.push_back(nullptr);
  if (TLIBCExecv(pointers.front(), pointers.data(), 1) == 0) return;
  std::cerr << argv.front() << " failed\n";
  std::exit(1);
}

void TimeEach(benchmark::State& state, const std::function<void()>& prepare, const std::function<void()>& work) {
  for (auto iteration : state) {
    (void)iteration;
    prepare();
    const auto start = std::chrono::steady_clock::now();
    work();
    state.SetIterationTime(std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
  }
}

}  // namespace tavithumb::bench
