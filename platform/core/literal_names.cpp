// SPDX-License-Identifier: GPL-3.0-or-later
#include "core/literal_names.h"

#include <glob.h>
#include <unistd.h>

#include <algorithm>
#include <string>
#include <vector>

namespace tavi {
namespace {

constexpr char kWildcards[] = "*?[]{}";

// "%d", "%03x", "%[" or "%%".
bool HasNumber(const std::string& path) {
  for (std::size_t i = path.find('%'); i != std::string::npos; i = path.find('%', i + 1)) {
    const std::size_t letter = path.find_first_not_of("0123456789", i + 1);
    if (path.find('%', i + 1) == i + 1) return true;
    if (letter != std::string::npos && std::string("dox[").find(path[letter]) != std::string::npos) return true;
  }
  return false;
}

std::string Escaped(const std::string& text) {
  std::string escaped;
  for (const char byte : text) escaped += (byte == '/' ? "" : "\\") + std::string(1, byte);
  return escaped;
}

// Whether the wildcards in the last part of `path` match a file other than `path` itself.
bool MatchesOthers(const std::string& path) {
  const std::size_t name = path.rfind('/') + 1;
  if (path.find_first_of(kWildcards, name) == std::string::npos) return false;
  glob_t found = {};
  const std::string pattern = Escaped(path.substr(0, name)) + path.substr(name);
  // NOLINTNEXTLINE(concurrency-mt-unsafe): only for patterns with names of users
  const int result = glob(pattern.c_str(), GLOB_BRACE | GLOB_PERIOD | GLOB_NOSORT, nullptr, &found);
  bool others = result != 0 && result != GLOB_NOMATCH;
  for (std::size_t i = 0; i < found.gl_pathc; ++i) others = others || path != found.gl_pathv[i];
  globfree(&found);
  return others;
}

// `path` without the frame selector "[0]" at its end.
std::string WithoutFrame(const std::string& path) {
  const std::string frame = "[0]";
  const bool hasFrame =
      path.size() > frame.size() && path.compare(path.size() - frame.size(), frame.size(), frame) == 0;
  return hasFrame ? path.substr(0, path.size() - frame.size()) : path;
}

// Whether all frames of an animation are written: with any '%' in the name, each goes to a separate numbered file.
bool WritesFrames(const std::vector<std::string>& arguments) {
  return std::any_of(arguments.begin(), arguments.end(),
                     [](const std::string& argument) { return argument == "-coalesce" || argument == "-layers"; });
}

bool IsLiteral(const std::string& path, bool writesFrames) {
  if (writesFrames ? path.find('%') != std::string::npos : HasNumber(path)) return false;
  const bool hasWildcards = path.find_first_of(kWildcards, path.rfind('/') + 1) != std::string::npos;
  if (hasWildcards && access(path.c_str(), F_OK) == 0) return false;
  return !MatchesOthers(WithoutFrame(path));
}

}  // namespace

bool TakesNamesLiterally(const char* path, const char* const* argv) {
  const std::string program = path;
  if (program.substr(program.rfind('/') + 1) != "convert") return true;
  std::vector<std::string> arguments;
  for (const char* const* argument = argv; *argument != nullptr; ++argument) arguments.emplace_back(*argument);
  const bool writesFrames = WritesFrames(arguments);
  return std::all_of(arguments.begin(), arguments.end(),
                     [&](const std::string& argument) { return IsLiteral(argument, writesFrames); });
}

}  // namespace tavi
