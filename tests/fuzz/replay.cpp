// SPDX-License-Identifier: GPL-3.0-or-later
// Replaces the fuzzer: replay FOLDER...   passes each file of the folders to a target, which aborts the process if a
// file breaks it.
#include <filesystem>
#include <fstream>
#include <iostream>
#include <sstream>

#include "fuzz.h"

namespace {

std::string ContentOf(const std::filesystem::path& path) {
  std::ostringstream content;
  content << std::ifstream(path, std::ios::binary).rdbuf();
  return content.str();
}

}  // namespace

int main(int argc, char** argv) {
  int files = 0;
  for (int i = 1; i < argc; ++i) {
    for (const std::filesystem::path& path : std::filesystem::directory_iterator(argv[i])) {
      std::cout << path.string() << std::endl;  // flushed now: this file may crash the process
      const std::string content = ContentOf(path);
      LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(content.data()), content.size());
      ++files;
    }
  }
  if (files > 0) return 0;
  std::cerr << "replay: no file to give\n";
  return 1;
}
