// SPDX-License-Identifier: GPL-3.0-or-later
#include "sdk/ea_store.h"

#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <system_error>

namespace tavi {
namespace {

std::optional<Store> ReadEnvironment() {
  const char* const named = secure_getenv("TAVITHUMB_STORE");
  if (named == nullptr || *named != '/') return std::nullopt;
  const std::string path = named;
  const std::string folder = path.substr(0, path.find_last_not_of('/') + 1);
  if (folder.empty()) return std::nullopt;  // the root: sources would be their own mirrors
  const char* const all = secure_getenv("TAVITHUMB_STORE_ALL");
  return Store{folder, all != nullptr && std::string(all) == "1"};
}

}  // namespace

bool Store::Holds(const std::string& path) const {
  return (path + "/").compare(0, folder.size() + 1, folder + "/") == 0;
}

std::optional<std::string> Store::MirrorOf(const std::string& sources) const {
  std::error_code error;
  const std::filesystem::path absolute = std::filesystem::absolute(sources.empty() ? "." : sources, error);
  if (error) return std::nullopt;
  std::string resolved = std::filesystem::canonical(absolute, error);
  if (error) resolved = std::filesystem::weakly_canonical(absolute, error);
  if (error) return std::nullopt;
  return folder + resolved.substr(0, resolved.find_last_not_of('/') + 1);
}

const Store* ConfiguredStore() {
  static const std::optional<Store> store = ReadEnvironment();
  return store ? &*store : nullptr;
}

bool IsTrustedStore(const struct stat& store) {
  const uid_t user = geteuid();
  return S_ISDIR(store.st_mode) && (store.st_mode & S_IWOTH) == 0 &&
         (store.st_uid == 0 || store.st_uid == user || user == 0);
}

}  // namespace tavi
