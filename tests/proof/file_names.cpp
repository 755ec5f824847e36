// SPDX-License-Identifier: GPL-3.0-or-later
// Photos of all types under names of all types: the tools are started as for a plain name except for the name itself,
// the answer is the same, and no other file is created, changed or removed. Through the library and the command, which
// makes thumbnails itself unless told to leave them to the library.
// file_names quick|full COMMAND RECORDER
#include <fcntl.h>
#include <sys/wait.h>
#include <tavithumb/error.h>
#include <tavithumb/libtavithumb.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <map>
#include <regex>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

#include "photos.h"
#include "pictures.h"
#include "preload.h"
#include "private_tmp.h"
#include "program.h"
#include "temp_dir.h"
#include "volume_kind.h"

namespace fs = std::filesystem;

namespace tavithumb::proof {
namespace {

constexpr char kPlain[] = "plain";

// A use of the library.
struct Way {
  const char* name;
  bool isQuick;
  const char* extension;
  void (*make)(const std::string& path);
  bool converts;  // with convert, which expands patterns in names
  int options = 0;
  std::vector<std::string> flags = {};  // of the command, for the same request
  bool onVolumeWithoutEntries = false;
};

const std::vector<Way>& Ways() {
  static const std::vector<Way> ways = {
      {"JPEG", false, "jpg", MakeBigJpeg, false},
      {"turned JPEG", true, "jpg", MakeTurnedJpeg, true},
      {"preview", false, "jpg", MakeJpegWithPreview, false},
      {"turned preview", true, "jpg", MakeTurnedJpegWithPreview, true},
      {"PNG", true, "png", [](const std::string& path) { test::MakePng(path, 200, 150); }, true},
      {"avatar",
       false,
       "png",
       [](const std::string& path) { test::MakePng(path, 200, 150); },
       true,
       Thumb::OPT_AVATAR,
       {"--avatar"}},
      {"animated GIF",
       true,
       "gif",
       [](const std::string& path) { test::MakeGif(path, 200, 150, 3); },
       true,
       Thumb::OPT_ENABLE_GIF,
       {"--keep-animation"}},
      {"still GIF", false, "gif", [](const std::string& path) { test::MakeGif(path, 200, 150, 3); }, true},
      {"HEIC", false, "heic", [](const std::string& path) { test::MakeHeic(path, 256, 128, true); }, true},
      {"raw", true, "raf", MakeRawPhoto, false},
      {"BMP", false, "bmp", [](const std::string& path) { test::MakeBmp(path, 150, 200); }, true},
      {"TIFF", false, "tif", [](const std::string& path) { test::MakeTiff(path, 200, 150); }, true},
      {"JPEG, volume without entries", false, "jpg", MakeBigJpeg, false, 0, {}, true},
      {"PNG, volume without entries",
       true,
       "png",
       [](const std::string& path) { test::MakePng(path, 200, 150); },
       true,
       0,
       {},
       true},
  };
  return ways;
}

// Names without their extension, some of which mean something to a tool.
std::vector<std::string> Names(bool isFull, std::size_t extensionSize) {
  std::vector<std::string> names = {"%d", "50%", "x[0]*", "- '\"`$(touch y)`;@a:b\n\xFF",
                                    std::string(254 - extensionSize, 'n')};
  const std::vector<std::string> more = {"-",
                                         "--help",
                                         "-outfile",
                                         "+append",
                                         "@list",
                                         "@",
                                         "a:b",
                                         "png:x",
                                         "msl:x",
                                         "null:",
                                         "fd:1",
                                         "inline:x",
                                         "%03d",
                                         "%%",
                                         "%[fx:1]",
                                         "%x",
                                         "x[0]",
                                         "[a-z]",
                                         "*",
                                         "?",
                                         "{a,b}",
                                         "~",
                                         "|touch y",
                                         ">y",
                                         "<y",
                                         "&",
                                         "#",
                                         "!",
                                         "=",
                                         "'",
                                         "\"",
                                         "`touch y`",
                                         "$(touch y)",
                                         ";",
                                         " ",
                                         "a  b ",
                                         "\t",
                                         "new\nline",
                                         "a\r",
                                         "\x01\x1B[31m\x7F",
                                         "\\",
                                         "\\n",
                                         "\xC3\xA4\xE2\x82\xAC",
                                         "\xFF\xFE",
                                         "\xED\xA0\x80",
                                         ".",
                                         "..",
                                         "x.png",
                                         "x.jpg[1]"};
  if (isFull) names.insert(names.end(), more.begin(), more.end());
  return names;
}

// Names that convert would take for a frame number, or for other files.
bool IsPattern(const Way& way, const std::string& name) {
  if (way.options == Thumb::OPT_ENABLE_GIF && name.find('%') != std::string::npos) return true;
  return std::regex_search(name, std::regex("%[0-9]*[dox]|%%|%\\[|[*?{}]|\\["));
}

std::string ContentOf(const fs::path& path) {
  if (fs::is_symlink(path)) return "-> " + fs::read_symlink(path).string();
  return fs::is_directory(path) ? "a folder" : test::ReadFile(path);
}

using Tree = std::map<std::string, std::string>;

Tree TreeBelow(const std::string& folder) {
  Tree tree;
  for (const auto& entry : fs::recursive_directory_iterator(folder)) tree[entry.path()] = ContentOf(entry.path());
  return tree;
}

// Everything in both temporary folders, which are private to this proof, except below `own`.
Tree Surroundings(const std::string& own) {
  Tree tree = TreeBelow("/tmp");
  tree.merge(TreeBelow("/var/tmp"));
  for (auto entry = tree.lower_bound(own); entry != tree.end();) {
    const bool isOwn = entry->first == own || entry->first.rfind(own + "/", 0) == 0;
    entry = isOwn ? tree.erase(entry) : std::next(entry);
  }
  return tree;
}

// A photo under a name, in a folder of files that a tool could mistake for it.
class Place {
 public:
  Place(const std::string& photo, const std::string& base, const std::string& below = "")
      : folder_(temporary_.Path() + below),
        base_(base),
        source_(folder_ + "/" + base_),
        directory_(folder_ + "/.tavi_ea/" + base_) {
    fs::create_directories(folder_);
    const std::string extension = fs::path(photo).extension();
    for (const char* decoy : {"0", "1", "000", "x", "x0", "a", "list", "y", "b"}) {
      const std::string other = decoy + extension;
      if (other == base_ || !below.empty()) continue;
      fs::copy_file(fs::path(photo).parent_path() / "decoy", folder_ + "/" + other);
      fs::create_directories(folder_ + "/.tavi_ea/" + other);
    }
    fs::copy_file(photo, source_);
    test::SetTimes(source_, 1600000000, 1600000000);
  }

  const std::string& Folder() const { return folder_; }
  const std::string& Base() const { return base_; }
  const std::string& Source() const { return source_; }
  const std::string& Directory() const { return directory_; }

  // An argument or a path in a form independent of the name: placeholders for the name and for numbers that differ.
  // Root's command works in the folder of the photo.
  std::string General(const std::string& given) const {
    const std::string text = given.rfind("./", 0) == 0 ? folder_ + given.substr(1) : given;
    static const std::regex numbers("_[0-9]+");
    static const std::string frames = "/var/tmp/convert_thumbnail__";
    if (text.rfind(directory_ + "/", 0) == 0) {
      return "<EA>" + std::regex_replace(text.substr(directory_.size()), numbers, "_N");
    }
    if (text.rfind(source_, 0) == 0) return "<source>" + text.substr(source_.size());
    if (text.rfind(frames, 0) == 0) {
      const std::size_t end = text.find_first_not_of("0123456789", frames.size());
      return text.substr(end) == base_ ? "<frames>" : text;
    }
    if (text.rfind("/var/tmp/", 0) == 0) return std::regex_replace(text, numbers, "_N");
    if (text.rfind("/tmp/thumb.", 0) == 0) return std::regex_replace(text, std::regex("\\.[0-9]+"), ".N");
    return text;
  }

 private:
  const test::TempDir temporary_;
  const std::string folder_;
  const std::string base_;
  const std::string source_;
  const std::string directory_;
};

// The result of a request, in a form independent of the name.
struct Outcome {
  std::string answer;
  std::string content;
  std::vector<std::string> runs;  // of tools, with their arguments
  std::string flaw;               // what happened elsewhere
};

enum class Maker { kCommand, kLibrary };

bool operator==(const Outcome& one, const Outcome& other) {
  return one.answer == other.answer && one.content == other.content && one.runs == other.runs;
}

std::string Differences(const Tree& before, const Tree& after) {
  std::string text;
  for (const auto& [path, content] : before) {
    const auto now = after.find(path);
    if (now == after.end()) text += " gone: " + path;
    if (now != after.end() && now->second != content) text += " changed: " + path;
  }
  for (const auto& [path, content] : after) {
    if (before.count(path) == 0) text += " new: " + path;
  }
  return text;
}

class Proof {
 public:
  Proof(std::string command, std::string recorder) : command_(std::move(command)), recorder_(std::move(recorder)) {}

  // The same request to the library, in a process of its own, and to the command, with its own thumbnails or the
  // library's. A temporary answer is deleted.
  Outcome AskLibrary(const Way& way, const Place& place) {
    return Observe(place, [&](const std::string& answerFile) {
      const pid_t child = fork();
      if (child == 0) Request(way, place, answerFile);
      waitpid(child, nullptr, 0);
    });
  }

  Outcome AskCommand(const Way& way, const Place& place, Maker maker) {
    return Observe(place, [&](const std::string& answerFile) {
      std::vector<std::string> argv = {command_, "get", "-0", "--size", "small"};
      argv.insert(argv.end(), way.flags.begin(), way.flags.end());
      if (maker == Maker::kLibrary) argv.emplace_back("--library");
      argv.insert(argv.end(), {"--", place.Base()});
      const Run run = RunProgram(argv, Environment(), {}, place.Folder());
      const bool failed = run.code == 1 && run.out.empty() && std::count(run.err.begin(), run.err.end(), '\n') == 1;
      if (failed) return;
      test::WriteFile(answerFile, run.code == 0 && run.err.empty() ? run.out.substr(0, run.out.size() - 1)
                                                                   : "code " + std::to_string(run.code) + run.err);
    });
  }

 private:
  template <typename Ask>
  Outcome Observe(const Place& place, const Ask& ask) {
    std::error_code tooLong;  // the path of a missing file is too long as well
    fs::remove_all(place.Directory(), tooLong);
    fs::remove_all(record_ / "answer");
    fs::remove_all(record_ / "arguments");
    const Tree before = Surroundings(place.Directory());
    ask(record_ / "answer");
    Outcome outcome;
    const std::string answer = test::ReadFile(record_ / "answer");
    outcome.answer = place.General(answer);
    if (!answer.empty()) outcome.content = test::ReadFile(answer);
    if (answer.rfind("/var/tmp/", 0) == 0) fs::remove(answer);
    outcome.runs = Runs(place);
    fs::remove_all(record_ / "answer");
    fs::remove_all(record_ / "arguments");
    outcome.flaw = Differences(before, Surroundings(place.Directory()));
    return outcome;
  }

  std::vector<std::string> Environment() const {
    std::vector<std::string> variables = test::Preloading(recorder_);
    variables.push_back("ARGUMENTS_FILE=" + (record_ / "arguments"));
    return variables;
  }

  [[noreturn]] void Request(const Way& way, const Place& place, const std::string& answerFile) const {
    const int nowhere = open("/dev/null", O_WRONLY);
    dup2(nowhere, STDERR_FILENO);
    const std::vector<std::string> variables = Environment();
    for (const std::string& variable : variables) putenv(const_cast<char*>(variable.c_str()));
    if (chdir("/") != 0) _exit(1);
    std::string answer;
    try {
      if (way.onVolumeWithoutEntries) volume_ = new VolumeWithoutEntries;
      Thumb job(place.Source(), Thumb::OPT_BROVIX_EA | way.options, false);
      answer = job.CalcOutputFile("small");
    } catch (const Error& error) {
      answer = "Error " + std::to_string(error.Code());
    }
    test::WriteFile(answerFile, answer);
    _exit(0);
  }

  // The recorded command itself is not a tool.
  std::vector<std::string> Runs(const Place& place) const {
    std::vector<std::string> runs;
    const std::string records = test::ReadFile(record_ / "arguments");
    std::string run;
    bool isFirst = true;
    for (std::size_t at = 0; at < records.size();) {
      const std::string argument = records.c_str() + at;
      at += argument.size() + 1;
      run += (isFirst ? "" : " ") + place.General(argument);
      isFirst = argument.empty();
      if (!argument.empty()) continue;
      if (run.rfind(command_, 0) != 0) runs.push_back(run);
      run.clear();
    }
    return runs;
  }

  const std::string command_;
  const std::string recorder_;
  const test::TempDir record_;
  mutable VolumeWithoutEntries* volume_ = nullptr;
};

struct Tally {
  unsigned requests = 0;
  unsigned different = 0;
  unsigned elsewhere = 0;
  unsigned patterns = 0;
  unsigned traps = 0, followed = 0;
};

// Results allowed for a name that convert does not take literally: no answer, the photo itself, or no animation.
bool IsRefusal(const Way& way, const Outcome& outcome) {
  if (outcome.answer.empty() || outcome.answer == "<source>") return true;
  return way.options == Thumb::OPT_ENABLE_GIF && !outcome.content.empty();
}

void Judge(const Way& way, const std::string& base, const Outcome& plain, const Outcome& outcome, Tally* tally) {
  ++tally->requests;
  const bool isPattern = way.converts && IsPattern(way, base);
  const bool isTooLong = way.options == Thumb::OPT_ENABLE_GIF && base.size() == 255;
  const bool isSame = outcome == plain;
  const bool isRefused = (isPattern || isTooLong) && IsRefusal(way, outcome);
  if (isRefused && !isSame) ++tally->patterns;
  if (!isSame && !isRefused) ++tally->different;
  if (!outcome.flaw.empty()) ++tally->elsewhere;
  if ((isSame || isRefused) && outcome.flaw.empty()) return;
  std::fprintf(stderr, "%s, %s: %s%s\n", way.name, base.c_str(), outcome.answer.c_str(), outcome.flaw.c_str());
  for (const std::string& run : outcome.runs) std::fprintf(stderr, "  %s\n", run.c_str());
}

// A file is named like a frame of the photo; its content would make convert write another one.
void SetTrap(const Place& place) {
  test::WriteFile(place.Source() + "[0]", place.Source() + " -write " + place.Folder() + "/trap.png");
}

void TryWay(const Way& way, bool isFull, Proof* proof, Tally* tally) {
  const test::TempDir photos;
  const std::string extension = std::string(".") + way.extension, photo = photos / ("photo" + extension);
  way.make(photo);
  test::MakePng(photos / "decoy", 40, 30);
  const Place plainPlace(photo, kPlain + extension);
  const Outcome plain = proof->AskLibrary(way, plainPlace);
  const Outcome own = proof->AskCommand(way, plainPlace, Maker::kCommand);
  if (plain.content.empty() || own.content.empty()) throw std::runtime_error(std::string("no answer: ") + way.name);
  for (const std::string& name : Names(isFull, std::strlen(way.extension))) {
    const Place place(photo, name + extension);
    Judge(way, place.Base(), plain, proof->AskLibrary(way, place), tally);
    if (way.onVolumeWithoutEntries) continue;
    Judge(way, place.Base(), plain, proof->AskCommand(way, place, Maker::kLibrary), tally);
    Judge(way, place.Base(), own, proof->AskCommand(way, place, Maker::kCommand), tally);
  }
  const Place trapped(photo, kPlain + extension);
  SetTrap(trapped);
  ++tally->traps;
  if (!proof->AskLibrary(way, trapped).flaw.empty()) ++tally->followed;
}

// A photo whose path has 4,095 bytes, the maximum, has no place for a thumbnail next to it; one whose path has 4,096
// bytes is not a file.
void TryLongPaths(Proof* proof, Tally* tally) {
  const test::TempDir photos;
  const Way& way = Ways().front();
  const std::string photo = photos / "photo.jpg";
  way.make(photo);
  constexpr std::size_t longest = 4095;
  std::string below;
  const std::size_t rest = longest - photos.Path().size() - std::strlen("/photo.jpg");
  while (below.size() < rest) below += "/" + std::string(std::min<std::size_t>(250, rest - below.size() - 1), 'd');
  const Place place(photo, "photo.jpg", below);
  if (place.Source().size() != longest) throw std::runtime_error("no path of 4095 bytes");
  for (const Outcome& outcome : {proof->AskLibrary(way, place), proof->AskCommand(way, place, Maker::kLibrary),
                                 proof->AskCommand(way, place, Maker::kCommand)}) {
    ++tally->requests;
    if (!outcome.answer.empty()) ++tally->different;
    if (!outcome.flaw.empty()) ++tally->elsewhere;
  }
  ++tally->requests;
  try {
    Thumb(place.Folder() + "/photos.jpg", Thumb::OPT_BROVIX_EA, false);
    ++tally->different;
  } catch (const Error& error) {
    if (error.Code() != 601) ++tally->different;
  }
}

bool Prove(bool isFull, const std::string& command, const std::string& recorder) {
  Proof proof(command, recorder);
  Tally tally;
  for (const Way& way : Ways()) {
    if (isFull || way.isQuick) TryWay(way, isFull, &proof, &tally);
  }
  TryLongPaths(&proof, &tally);
  std::printf("names of files: arguments or answers other than for a plain name\t%u\t%u requests\n", tally.different,
              tally.requests);
  std::printf("names of files: files that appeared, changed or vanished elsewhere\t%u\t%u requests\n", tally.elsewhere,
              tally.requests);
  std::printf("names that convert would not take as they are: refused, or an animation stays still\t%u\t%u requests\n",
              tally.patterns, tally.requests);
  std::printf("files called like a frame of a photo, with arguments for convert in them: followed\t%u\t%u\n",
              tally.followed, tally.traps);
  return tally.different + tally.elsewhere + tally.followed == 0;
}

}  // namespace
}  // namespace tavithumb::proof

int main(int argc, char** argv) {
  if (argc != 4) return 2;
  tavithumb::proof::EnterPrivateTmp();
  return tavithumb::proof::Prove(std::strcmp(argv[1], "full") == 0, argv[2], argv[3]) ? 0 : 1;
}
