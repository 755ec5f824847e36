// SPDX-License-Identifier: GPL-3.0-or-later
// Files whose name promises another type than they contain: the command shows a picture as what it is, and rejects
// everything else with one line, making nothing. A file that is not a picture can't make it read other files either.
// This is so for its own thumbnails and for those of the library's tools (--library).
// Needs ImageMagick's extra coders: without them, no drawing shows the picture that it links to.
// mislabelled quick|full COMMAND
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "photos.h"
#include "pictures.h"
#include "private_tmp.h"
#include "program.h"
#include "temp_dir.h"

namespace fs = std::filesystem;

namespace tavithumb::proof {
namespace {

constexpr int kCannotRunHere = 77;

// All that IsSupportImage() knows. For the extensions after the first eight, except the last two, convert chooses its
// own decoder for raw photos by the name alone.
constexpr std::size_t kPlainExtensions = 8;
const std::vector<std::string> kExtensions = {
    "jpg", "jpeg", "jpe", "bmp", "png", "tif", "tiff", "gif", "arw", "srf", "sr2", "dcr", "k25", "kdc", "cr2",  "crw",
    "nef", "mrw",  "ptx", "pef", "raf", "3fr", "erf",  "mef", "mos", "orf", "rw2", "dng", "x3f", "raw", "heic", "heif"};
const std::vector<std::string> kQuickExtensions = {"jpg", "png", "nef", "heic"};

enum class Shown {
  kAlways,
  kByMaker,  // by the library's tools, only under a name of HEIF
  kNever,
};

struct Content {
  std::string name;
  std::function<void(const std::string& path)> make;
  Shown shown;
  std::string reason = "";  // why there is no answer
};

std::function<void(const std::string& path)> Bytes(const std::string& content) {
  return [content](const std::string& path) { test::WriteFile(path, content); };
}

// Drawings that include another picture, at `secret`.
std::string Svg(const std::string& secret) {
  return "<svg xmlns=\"http://www.w3.org/2000/svg\" xmlns:xlink=\"http://www.w3.org/1999/xlink\" width=\"900\" "
         "height=\"900\"><image width=\"900\" height=\"900\" xlink:href=\"" +
         secret + "\"/></svg>";
}

std::string SvgInMetadata(const std::string& secret) {
  return "<?xml version=\"1.0\"?><x:xmpmeta xmlns:x=\"adobe:ns:meta/\"><rdf:RDF "
         "xmlns:rdf=\"http://www.w3.org/1999/02/22-rdf-syntax-ns#\"/>" +
         Svg(secret) + "</x:xmpmeta>";
}

void MakeWebp(const std::string& path) {
  const test::TempDir folder;
  test::MakePng(folder / "picture.png", 300, 200);
  test::RunTool({"/usr/bin/convert", folder / "picture.png", "webp:" + path});
}

std::vector<Content> Contents(const std::string& secret) {
  const std::string unknown = "its content is not in a known image format", damaged = "it is damaged",
                    failed = "it could not be converted", byMaker = "the library's tools cannot convert it";
  return {
      {"JPEG", MakeBigJpeg, Shown::kAlways},
      {"PNG", [](const std::string& path) { test::MakePng(path, 300, 200); }, Shown::kAlways},
      {"GIF", [](const std::string& path) { test::MakeGif(path, 300, 200, 2); }, Shown::kAlways},
      {"BMP", [](const std::string& path) { test::MakeBmp(path, 300, 200); }, Shown::kAlways},
      {"TIFF", [](const std::string& path) { test::MakeTiff(path, 300, 200); }, Shown::kAlways},
      {"WebP", MakeWebp, Shown::kAlways},
      {"RAF", MakeRawPhoto, Shown::kAlways},
      {"HEIC", [](const std::string& path) { test::MakeHeic(path, 300, 200, true); }, Shown::kByMaker, byMaker},
      {"nothing", Bytes(""), Shown::kNever, damaged},
      {"text", Bytes("This is a text of more than thirty bytes, and no picture."), Shown::kNever, unknown},
      {"short text", Bytes("text"), Shown::kNever, damaged},
      {"script", Bytes("#!/bin/sh\nconvert -size 900x900 xc:red \"$0.jpg\"\nexit 0\n"), Shown::kNever, unknown},
      {"MP4",
       Bytes(std::string("\0\0\0\x18"
                         "ftypisom\0\0\2\0isomiso2\0\0\0\x08mdat",
                         32)),
       Shown::kNever, unknown},
      {"ZIP", Bytes(std::string("PK\3\4\x14\0\0\0\0\0", 10) + std::string(60, 'z')), Shown::kNever, unknown},
      {"PDF", Bytes("%PDF-1.4\n1 0 obj<</Type/Catalog>>endobj\ntrailer<</Root 1 0 R>>\n%%EOF\n"), Shown::kNever,
       unknown},
      {"PostScript", Bytes("%!PS-Adobe-3.0\n%%BoundingBox: 0 0 900 900\nshowpage\n%%EOF\n"), Shown::kNever, unknown},
      {"EPS", Bytes("%!PS-Adobe-3.0 EPSF-3.0\n%%BoundingBox: 0 0 900 900\n%%EndComments\nshowpage\n%%EOF\n"),
       Shown::kNever, failed},
      {"SVG", Bytes("<?xml version=\"1.0\"?>" + Svg(secret)), Shown::kNever, unknown},
      {"SVG in metadata", Bytes(SvgInMetadata(secret)), Shown::kNever, failed},
      {"MVG",
       Bytes("push graphic-context\nviewbox 0 0 900 900\nimage over 0,0 0,0 '" + secret + "'\npop graphic-context\n"),
       Shown::kNever, unknown},
      {"MSL", Bytes("<?xml version=\"1.0\"?><image><read filename=\"" + secret + "\"/></image>"), Shown::kNever,
       unknown},
  };
}

bool IsHeifName(const std::string& extension) {
  return extension == "heic" || extension == "heif";
}

bool IsRawName(const std::string& extension) {
  const auto plain = kExtensions.begin() + kPlainExtensions;
  return std::find(kExtensions.begin(), plain, extension) == plain && !IsHeifName(extension);
}

bool EndsInLine(const std::string& text) {
  return std::count(text.begin(), text.end(), '\n') == 1 && text.back() == '\n';
}

class Proof {
 public:
  explicit Proof(std::string command) : command_(std::move(command)) { test::MakePng(Secret(), 900, 900); }

  std::string Secret() const { return folder_ / "secret.png"; }

  void Try(const Content& content, const std::string& extension) {
    const std::string source = folder_ / ("file." + extension);
    content.make(source);
    for (const bool byLibrary : {false, true}) Try(content, extension, source, byLibrary);
    fs::remove(source);
  }

  // Whether ImageMagick without our policy shows a drawing with what it links to.
  bool HasExtraCoders() const {
    const std::string drawing = folder_ / "drawing.jpg", shown = folder_ / "drawing.png";
    test::WriteFile(drawing, SvgInMetadata(Secret()));
    return RunProgram({"/usr/bin/convert", drawing, shown}).code == 0 && test::Identify(shown).width == 900;
  }

  bool Print() const {
    std::printf("kinds of content under endings of others: shown for what they are\t%u\t%u requests\n", shown_,
                shown_ + refused_);
    std::printf("kinds of content under endings of others: refused in one line\t%u\t%u requests\n", refused_,
                shown_ + refused_);
    std::printf("kinds of content under endings of others: any other end\t%u\t%u requests\n", wrong_,
                shown_ + refused_);
    return wrong_ == 0;
  }

 private:
  void Try(const Content& content, const std::string& extension, const std::string& source, bool byLibrary) {
    const Run run = RunCommand({"get", "--size", "small"}, source, byLibrary);
    const bool isShown = run.code == 0;
    const bool mayBeShown = MayBeShown(content, extension, byLibrary);
    const bool mayBeRefused = !mayBeShown || IsRawName(extension);
    const bool isWell = isShown ? IsScene(run) && mayBeShown : IsRefusal(run, source, content) && mayBeRefused;
    ++(isShown ? shown_ : refused_);
    fs::remove_all(EaFolder(source));
    const Run batch = RunCommand({"make", "--sizes", "small"}, source, byLibrary);
    if (!isWell || batch.code != run.code || IsEmpty(source) == isShown) {
      ++wrong_;
      std::fprintf(stderr, "%s as %s%s: %d %s%smake: %d %s%s\n", content.name.c_str(), extension.c_str(),
                   byLibrary ? ", by the library" : "", run.code, run.out.c_str(), run.err.c_str(), batch.code,
                   batch.out.c_str(), batch.err.c_str());
    }
    fs::remove_all(folder_ / ".tavi_ea");
  }

  Run RunCommand(std::vector<std::string> words, const std::string& source, bool byLibrary) const {
    words.insert(words.begin(), command_);
    if (byLibrary) words.emplace_back("--library");
    words.push_back(source);
    return RunProgram(words);
  }

  static bool MayBeShown(const Content& content, const std::string& extension, bool byLibrary) {
    return content.shown == Shown::kAlways ||
           (content.shown == Shown::kByMaker && (!byLibrary || IsHeifName(extension)));
  }

  // The thumbnail has the shape of the scene, which is not that of the secret.
  bool IsScene(const Run& run) const {
    if (!run.err.empty() || !EndsInLine(run.out)) return false;
    const std::string copy = folder_ / "answer";  // only its content tells the type
    fs::copy_file(run.out.substr(0, run.out.size() - 1), copy, fs::copy_options::overwrite_existing);
    const test::PictureFacts facts = test::Identify(copy);
    return facts.width * 2 == facts.height * 3 && facts.width >= 120 && facts.width <= 150;
  }

  // Nothing has been made.
  bool IsRefusal(const Run& run, const std::string& source, const Content& content) const {
    const std::string reason = content.shown == Shown::kAlways ? "it could not be converted" : content.reason;
    return run.code == 1 && run.out.empty() && IsEmpty(source) && EndsInLine(run.err) &&
           run.err.rfind("tavithumb: " + source + ": " + reason, 0) == 0;
  }

  std::string EaFolder(const std::string& source) const {
    return folder_ / (".tavi_ea/" + fs::path(source).filename().string());
  }
  bool IsEmpty(const std::string& source) const { return test::Names(EaFolder(source)).empty(); }

  const std::string command_;
  const test::TempDir folder_;
  unsigned shown_ = 0, refused_ = 0, wrong_ = 0;
};

}  // namespace
}  // namespace tavithumb::proof

int main(int argc, char** argv) {
  if (argc != 3) return 2;
  using namespace tavithumb::proof;
  EnterPrivateTmp();
  Proof proof(argv[2]);
  const bool isFull = std::strcmp(argv[1], "full") == 0;
  for (const Content& content : Contents(proof.Secret())) {
    for (const std::string& extension : isFull ? kExtensions : kQuickExtensions) proof.Try(content, extension);
  }
  if (!proof.Print()) return 1;
  if (proof.HasExtraCoders()) return 0;
  std::fprintf(stderr, "not shown for drawings: that needs ImageMagick's extra coders\n");
  return kCannotRunHere;
}
