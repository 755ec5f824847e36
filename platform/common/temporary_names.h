// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <optional>
#include <string>
#include <utility>

namespace tavi {

// The names of unfinished files and directories: one of these prefixes and six random characters of [0-9A-Za-z]. A
// process that is killed leaves them on disk.
constexpr char kCopyPrefix[] = ".tavi_copy.";        // a file, next to the destination of a copy or move
constexpr char kDirectoryPrefix[] = ".tavi_mkdir.";  // an empty directory, next to where an EA directory will be
constexpr std::size_t kRandomLength = 6;

// A name that is unlikely to exist; nothing, with errno set, if the system provides no random bytes.
inline std::optional<std::string> TemporaryName(const std::string& prefix) {
  constexpr char alphabet[] = "0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz";
  unsigned char bytes[kRandomLength];
  if (getentropy(bytes, sizeof bytes) != 0) return std::nullopt;
  std::string name = prefix;
  for (const unsigned char byte : bytes) name += alphabet[byte % (sizeof alphabet - 1)];
  return name;
}

// Calls `create` with one temporary name after another until it doesn't fail with EEXIST. Returns the name that
// succeeded; "" with errno set on failure.
template <typename Create>
std::string CreateTemporary(const std::string& prefix, const Create& create) {
  for (int attempt = 0; attempt < 100; ++attempt) {
    std::optional<std::string> name = TemporaryName(prefix);
    if (!name) return "";
    if (create(name->c_str())) return std::move(*name);  // no allocation here: a failure would leave the entry on disk
    if (errno != EEXIST) return "";
  }
  return "";
}

}  // namespace tavi
