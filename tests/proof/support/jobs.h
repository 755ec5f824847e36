// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <ctime>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace tavithumb::proof {

// One way through the library.
struct Kind {
  const char* name;
  const char* extension;
  void (*makeSource)(const std::string& source);
  // The answer's path, "" when there is none.
  std::string (*ask)(const std::string& source);
  // The entry that it stores; "" when none.
  const char* entry;
  // An older thumbnail lies there before each request.
  bool hasOlder = true;
  // What else must lie beside the source before each request.
  void (*prepare)(const std::string& source) = nullptr;
  // The converter itself writes under the final name.
  bool writesFinalName = false;
  // The answer goes to standard output; a pipe and its child may stay open.
  bool delivers = false;
  bool leavesPipe = false;
  // Its picture comes from /tmp: onto another volume, mv copies it to the final name.
  bool comesFromTmp = false;
};

const std::vector<Kind>& Kinds();

// The EA directory of a source, and an entry in it.
std::string EADirectory(const std::string& source);
std::string EAEntry(const std::string& source, const std::string& name);

// A source of a kind in a folder of its own, which may belong to somebody else.
class Source {
 public:
  Source(const std::string& folder, const Kind& kind);
  // The same file under another name, on the same volume.
  Source(const std::string& folder, const Source& model);

  const std::string& Path() const { return path_; }
  // As it was in the beginning: no thumbnail, or the older one.
  void Reset() const;
  void GiveTo(uid_t user, gid_t group) const;
  bool IsUntouched() const;

 private:
  const Kind* kind_;
  std::string folder_;
  std::string path_;
  std::shared_ptr<const std::string> content_;
};

// Whether files are whole pictures, by decoding them. A content that was seen before is known.
class WholePictures {
 public:
  bool Holds(const std::string& path);

 private:
  std::map<std::string, bool> known_;
};

// What is wrong in the EA directory of a source, "" when nothing: under final names lie whole pictures alone, the older
// thumbnail or a newer one is there, and all else carries a temporary name.
std::string FlawInEADirectory(const Source& source, const Kind& kind, WholePictures& pictures);

// Entries under temporary names.
std::size_t CountTemporaryEntries(const Source& source);

// What lies in /tmp and /var/tmp, private to the proof, under none of the library's temporary names.
std::vector<std::string> StrangeTemporaryFiles();

}  // namespace tavithumb::proof
