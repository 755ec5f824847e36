// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <ctime>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace tavithumb::proof {

// One use of the library.
struct Kind {
  const char* name;
  const char* extension;
  void (*makeSource)(const std::string& source);
  // The answer's path, "" if there is none.
  std::string (*ask)(const std::string& source);
  // The entry that it stores; "" if none.
  const char* entry;
  // An older thumbnail is stored before each request.
  bool hasOlder = true;
  // What else must be next to the source before each request.
  void (*prepare)(const std::string& source) = nullptr;
  // The converter itself writes to the final name.
  bool writesFinalName = false;
  // The answer goes to standard output; a pipe and its child may stay open.
  bool delivers = false;
  bool leavesPipe = false;
  // Its picture comes from /tmp: to another volume, mv copies it to the final name.
  bool comesFromTmp = false;
};

const std::vector<Kind>& Kinds();

// Whether the command's "get --size small" asks for the same.
bool IsPlain(const Kind& kind);

// The EA directory of a source, and an entry in it.
std::string EADirectory(const std::string& source);
std::string EAEntry(const std::string& source, const std::string& name);

// A source of one type in a folder of its own, which may belong to another user.
class Source {
 public:
  Source(const std::string& folder, const Kind& kind);
  // The same file under another name, on the same volume.
  Source(const std::string& folder, const Source& model);

  const std::string& Path() const { return path_; }
  // In its initial state: without a thumbnail, or with the older one.
  void Reset() const;
  void GiveTo(uid_t user, gid_t group) const;
  bool IsUntouched() const;

 private:
  const Kind* kind_;
  std::string folder_;
  std::string path_;
  std::shared_ptr<const std::string> content_;
};

// Whether files are complete pictures, by decoding them. Results are cached by content.
class WholePictures {
 public:
  bool Holds(const std::string& path);

 private:
  std::map<std::string, bool> known_;
};

// What is wrong in the EA directory of a source, "" if nothing: files under final names are complete pictures, the
// older thumbnail or a newer one exists, and all others have temporary names.
std::string FlawInEADirectory(const Source& source, const Kind& kind, WholePictures& pictures);

// Entries under temporary names.
std::size_t CountTemporaryEntries(const Source& source);

// Files in /tmp and /var/tmp, private to the proof, with none of the library's temporary names.
std::vector<std::string> StrangeTemporaryFiles();

}  // namespace tavithumb::proof
