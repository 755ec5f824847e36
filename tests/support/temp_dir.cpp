// SPDX-License-Identifier: GPL-3.0-or-later
#include "temp_dir.h"

#include <sys/stat.h>
#include <unistd.h>
#include <utime.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace fs = std::filesystem;

namespace tavithumb::test {

TempDir::TempDir() {
  std::string name = fs::temp_directory_path() / "tavithumb-test-XXXXXX";
  if (mkdtemp(name.data()) == nullptr) throw std::runtime_error("mkdtemp " + name);
  path_ = name;
}

TempDir::~TempDir() {
  std::error_code ignored;
  fs::remove_all(path_, ignored);
}

void WriteFile(const std::string& path, const std::string& content) {
  fs::create_directories(fs::path(path).parent_path());
  std::ofstream(path, std::ios::binary) << content;
}

std::string ReadFile(const std::string& path) {
  std::ostringstream content;
  content << std::ifstream(path, std::ios::binary).rdbuf();
  return content.str();
}

bool Exists(const std::string& path) {
  return fs::exists(fs::symlink_status(path));
}

void SetTimes(const std::string& path, std::time_t access, std::time_t modification) {
  const utimbuf times{access, modification};
  if (utime(path.c_str(), &times) != 0) throw std::runtime_error("utime " + path);
}

std::time_t ModificationTime(const std::string& path) {
  struct stat record = {};
  if (stat(path.c_str(), &record) != 0) throw std::runtime_error("stat " + path);
  return record.st_mtime;
}

std::vector<std::string> Names(const std::string& directory) {
  std::vector<std::string> names;
  std::error_code missing;
  for (const fs::directory_entry& entry : fs::directory_iterator(directory, missing)) {
    names.push_back(entry.path().filename());
  }
  std::sort(names.begin(), names.end());
  return names;
}

std::vector<std::string> TemporaryFiles() {
  std::vector<std::string> found;
  for (const char* directory : {"/tmp", "/var/tmp"}) {
    for (const std::string& name : Names(directory)) {
      for (const char* prefix : {"thumb.", "tavithumb_", "convert_thumbnail_"}) {
        if (name.rfind(prefix, 0) == 0) found.push_back(std::string(directory) + "/" + name);
      }
    }
  }
  return found;
}

std::vector<std::string> OwnTemporaryFiles() {
  const std::string pid = std::to_string(getpid());
  std::vector<std::string> own;
  for (const std::string& path : TemporaryFiles()) {
    for (const std::string& mark : {"." + pid + ".", "_" + pid + "_", "p" + pid + "-"}) {
      if (path.find(mark) != std::string::npos) own.push_back(path);
    }
  }
  return own;
}

}  // namespace tavithumb::test
