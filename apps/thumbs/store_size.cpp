// SPDX-License-Identifier: GPL-3.0-or-later
#include "thumbs/store_size.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/statvfs.h>
#include <tavithumb/util.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <ctime>
#include <optional>
#include <regex>
#include <stdexcept>
#include <system_error>
#include <utility>
#include <vector>

#include "system/file_descriptor.h"
#include "system/numbers.h"
#include "system/paths.h"
#include "thumbs/ea_folder.h"
#include "thumbs/source.h"
#include "thumbs/store.h"
#include "thumbs/stored_entries.h"

namespace tavithumb::apps {
namespace {

constexpr char countName[] = ".size";

// With room for what is stored while one process removes, or is about to count.
constexpr double fullShare = 0.95;
constexpr double trimmedShare = 0.85;

std::optional<std::uint64_t>& Limit() {
  static std::optional<std::uint64_t> limit;
  return limit;
}

std::uint64_t SpaceOf(const struct stat& record) {
  return static_cast<std::uint64_t>(record.st_blocks) * 512;
}

std::uint64_t ShareOf(std::uint64_t limit, double share) {
  return static_cast<std::uint64_t>(static_cast<double>(limit) * share);
}

// The count, which other processes can't read or write during this object's lifetime.
class Count {
 public:
  explicit Count(const std::string& store)
      : file_(open(JoinPath(store, countName).c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0600)) {
    struct stat owner = {};
    while (flock(file_.Number(), LOCK_EX) == -1 && errno == EINTR) {
    }
    if (!Read()) Replace("unknown");  // which already takes the space of a number
    if (geteuid() != 0 || stat(store.c_str(), &owner) != 0) return;
    if (fchown(file_.Number(), owner.st_uid, owner.st_gid) != 0) return;  // on a volume without owners
  }

  // Nothing if the store has never been measured.
  std::optional<std::uint64_t> Read() const {
    std::array<char, 32> text = {};
    const ssize_t size = pread(file_.Number(), text.data(), text.size(), 0);
    return size <= 0 ? std::nullopt : ParseNumber<std::uint64_t>({text.data(), static_cast<std::size_t>(size)});
  }

  void Write(std::uint64_t bytes) const { Replace(std::to_string(bytes)); }

 private:
  void Replace(const std::string& text) const {
    const ssize_t written = pwrite(file_.Number(), text.data(), text.size(), 0);
    if (ftruncate(file_.Number(), std::max<ssize_t>(written, 0)) != 0) return;  // then the count is too high
  }

  FileDescriptor file_;
};

// What is in the store.
class Content {
 public:
  // A folder with the entries of one source.
  struct Entries {
    std::string path;  // of the source
    std::size_t files;
    std::uint64_t bytes;
  };
  struct File {
    std::size_t entries;
    std::string name;
    std::uint64_t bytes;
    std::pair<std::time_t, long> lastUse;
  };

  Content() { Read(Folder(StoreFolder()), "/", false); }

  std::uint64_t Bytes() const { return bytes_; }
  void Trim(std::uint64_t goal, const StoreRemoval& removal);

 private:
  void Read(const Folder& folder, const std::string& source, bool isEntries);
  void Add(const std::string& name, const struct stat& record);
  void Remove(const File& file, const StoreRemoval& removal);
  void RemoveEntries(const Entries& entries, const StoreRemoval& removal);

  std::vector<Entries> entries_;
  std::vector<File> files_;
  std::uint64_t bytes_ = 0;
};

std::vector<std::string> NamesOf(const Folder& folder) {
  try {
    return folder.Names();
  } catch (const std::system_error&) {  // removed meanwhile, or not this user's
    return {};
  }
}

// `source` is the path that the folder mirrors; below the folder of EA directories, that of a source.
void Content::Read(const Folder& folder, const std::string& source, bool isEntries) {
  for (const std::string& name : NamesOf(folder)) {
    const std::optional<struct stat> record = folder.Stat(name);
    if (!record) continue;
    bytes_ += SpaceOf(*record);
    if (S_ISREG(record->st_mode) && isEntries) Add(name, *record);
    if (!S_ISDIR(record->st_mode)) continue;
    const std::string inner = name == EAFolderName() ? source : JoinPath(source, name);
    const bool areEntries = BaseName(folder.Path()) == EAFolderName();
    if (areEntries) entries_.push_back({inner, 0, SpaceOf(*record)});
    Read(Folder(folder, name), inner, areEntries);
  }
}

void Content::Add(const std::string& name, const struct stat& record) {
  const auto lastUse = std::max(std::pair(record.st_atim.tv_sec, record.st_atim.tv_nsec),
                                std::pair(record.st_ctim.tv_sec, record.st_ctim.tv_nsec));
  files_.push_back({entries_.size() - 1, name, SpaceOf(record), lastUse});
  ++entries_.back().files;
}

void Content::Trim(std::uint64_t goal, const StoreRemoval& removal) {
  std::sort(files_.begin(), files_.end(),
            [](const File& one, const File& other) { return one.lastUse < other.lastUse; });
  for (const File& file : files_) {
    if (bytes_ <= goal) return;
    Remove(file, removal);
  }
}

// A temporary file belongs to a process that is storing, unless it is old.
bool IsInUse(const EntryName& entry, const struct stat& record) {
  constexpr std::time_t hour = 3600;
  return entry.isTemporary && std::time(nullptr) - std::max(record.st_mtime, record.st_ctime) <= hour;
}

std::string EntriesFolder(const std::string& source) {
  return JoinPath(JoinPath(file::Dirname(source), EAFolderName()), BaseName(source));
}

void Content::Remove(const File& file, const StoreRemoval& removal) {
  Entries& entries = entries_[file.entries];
  const Folder folder = OpenInStore(EntriesFolder(entries.path));
  const std::optional<struct stat> record = folder.Stat(file.name);
  const std::optional<EntryName> entry = ParseEntryName(file.name);
  if (!record || !entry || IsInUse(*entry, *record) || !removal.removeFile(folder, file.name, *record)) return;
  bytes_ -= std::min(bytes_, file.bytes);
  if (--entries.files == 0) RemoveEntries(entries, removal);
}

// While a process makes a thumbnail of the source, it needs the folder.
void Content::RemoveEntries(const Entries& entries, const StoreRemoval& removal) {
  const std::string folder = file::Dirname(entries.path);
  Source source(AT_FDCWD, entries.path);
  const Folder parent = OpenInStore(JoinPath(folder, EAFolderName()));
  if (!source.TryLock() || !removal.removeFolder(parent, BaseName(entries.path))) return;
  bytes_ -= std::min(bytes_, entries.bytes);
  if (parent.Stat(BaseName(entries.path))) return;
  std::string path = JoinPath(folder, EAFolderName());
  while (path != "/" && removal.removeFolder(OpenInStore(file::Dirname(path)), BaseName(path))) {
    path = file::Dirname(path);
  }
}

bool RemoveQuietly(const Folder& folder, const std::string& name, int flags) {
  return unlinkat(folder.Number(), name.c_str(), flags) == 0;
}

const StoreRemoval quietRemoval = {
    [](const Folder& folder, const std::string& name, const struct stat& /*record*/) {
      return RemoveQuietly(folder, name, 0);
    },
    [](const Folder& parent, const std::string& name) { return RemoveQuietly(parent, name, AT_REMOVEDIR); }};

}  // namespace

StoreSize ParseStoreSize(const std::string& text) {
  static const std::regex pattern(R"(([0-9]{1,15}(?:\.[0-9]{1,6})?)(?:(%)|([KMGT]?)(?:i?B)?))", std::regex::icase);
  std::smatch parts;
  if (!std::regex_match(text, parts, pattern)) {
    throw std::invalid_argument("'" + text + "' is not a valid size: use one such as 500M, 2G or 10%");
  }
  double number = std::stod(parts[1]);
  if (parts[2].length() != 0) {
    if (number > 100) throw std::invalid_argument("'" + text + "' is more than the whole volume: use at most 100%");
    return {number, true};
  }
  const std::string units = "KMGT";
  const char unit = parts[3].length() == 0 ? ' ' : static_cast<char>(*parts[3].first & ~0x20);
  for (std::size_t i = units.find(unit) + 1; i > 0; --i) number *= 1024;
  return {number, false};
}

std::uint64_t BytesOf(const StoreSize& size) {
  if (!size.isPercent) return static_cast<std::uint64_t>(size.number);
  struct statvfs volume = {};
  if (statvfs(StoreFolder().c_str(), &volume) != 0) throw std::system_error(errno, std::generic_category(), "statvfs");
  return ShareOf(std::uint64_t{volume.f_blocks} * volume.f_frsize, size.number / 100);
}

void LimitStore(const StoreSize& limit) {
  Limit() = BytesOf(limit);
}

// With its folder, which may be new.
void CountStored(const std::string& path) {
  if (!IsInStore(path)) return;
  const std::optional<std::uint64_t> limit = Limit();
  struct stat file = {}, folder = {};
  stat(path.c_str(), &file);
  stat(file::Dirname(path).c_str(), &folder);
  const Count count(StoreFolder());
  std::optional<std::uint64_t> bytes = count.Read();
  if (bytes) count.Write(*bytes += SpaceOf(file) + SpaceOf(folder));
  if (!limit || (bytes && *bytes <= ShareOf(*limit, fullShare))) return;
  Content content;
  if (content.Bytes() > ShareOf(*limit, fullShare)) content.Trim(ShareOf(*limit, trimmedShare), quietRemoval);
  count.Write(content.Bytes());
}

void TrimStore(std::uint64_t goal, const StoreRemoval& removal) {
  if (!IsStore(Folder(StoreFolder()))) return;  // an empty folder
  const Count count(StoreFolder());
  Content content;
  content.Trim(goal, removal);
  if (!removal.isDryRun) count.Write(content.Bytes());
}

}  // namespace tavithumb::apps
