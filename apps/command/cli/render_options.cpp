// SPDX-License-Identifier: GPL-3.0-or-later
#include <tavithumb/libtavithumb.h>
#include <tavithumb/util.h>

#include <algorithm>
#include <map>
#include <memory>
#include <optional>
#include <stdexcept>
#include <utility>

#include "command/cli/subcommand.h"
#include "system/paths.h"
#include "system/suggestion.h"
#include "system/text.h"
#include "thumbs/request.h"

namespace tavithumb::apps::command {
namespace {

constexpr char description[] = "Write one picture of FILE to OUT";

constexpr char footer[] =
    "Makes one picture of FILE: upright, in sRGB, within the size, never enlarged. Stores nothing else and looks for\n"
    "no stored thumbnail. A photo is recognised by its content. OUT is a file, which is replaced, or - for standard\n"
    "output. Its format is that of its name (.jpg, .jpeg, .png, .webp), and JPEG if its name has none.\n"
    "\n"
    "SIZE is small, medium, big, large, xlarge, WIDTHxHEIGHT, SIDE, or original for all pixels of FILE.\n"
    "\n"
    "With --uri, a PNG says which file it shows, by the keys of the file managers of freedesktop.org: its URI, time,\n"
    "size and type. An absolute path stands for its file: URI.\n"
    "\n"
    "Examples:\n"
    "  tavithumb render --size 1024 photo.jpg photo-for-mail.jpg\n"
    "  tavithumb render --size 320x240 --avatar photo.jpg face.webp\n"
    "  tavithumb render photo.jpg - --format png | wc -c\n"
    "\n"
    "Exit codes: 0 OUT was written, 1 it was not, 2 bad usage.";

struct Arguments {
  std::vector<std::string> names;
  std::string size = "medium";
  std::optional<std::string> quarterTurns;
  bool avatar = false;
  std::optional<std::string> format;
  std::string quality = std::to_string(Request().quality);
  std::optional<std::string> uri;
};

void Declare(const Options& options, Arguments* arguments) {
  options.SetUsageOfNames("FILE OUT");
  options.AddNames("FILE", &arguments->names,
                   "A photo or video, and the file OUT to write; after '--', names may start with '-'");
  options.AddDefaulted("-s,--size", "SIZE", &arguments->size, "The largest width and height; see below");
  options.AddOptional("--rotate", "QUARTERS", &arguments->quarterTurns,
                      "Rotate clockwise by this number of quarter turns, on top of the orientation");
  options.AddFlag("--avatar", &arguments->avatar, "Crop to fill the box");
  options.AddOptional("--format", "FORMAT", &arguments->format, "jpeg, png or webp, whatever the name of OUT");
  options.AddDefaulted("--quality", "N", &arguments->quality, "Quality of a JPEG or WebP picture, 1 to 100");
  options.AddOptional("--uri", "URI", &arguments->uri, "Name FILE by this URI in a PNG, for file managers");
}

const std::map<std::string, maker::Type>& Formats() {
  using maker::Type;
  static const std::map<std::string, Type> formats = {
      {"jpeg", Type::kJpeg}, {"jpg", Type::kJpeg}, {"png", Type::kPng}, {"webp", Type::kWebp}};
  return formats;
}

maker::Type ParseFormat(const std::string& text) {
  const auto format = Formats().find(text);
  if (format != Formats().end()) return format->second;
  throw std::invalid_argument("'" + text + "' is not a format that can be written" +
                              Suggestion(text, {"jpeg", "png", "webp"}) + ": use jpeg, png or webp");
}

maker::Type TypeFor(const std::string& out) {
  const std::string name = BaseName(out);
  if (name.find('.') == std::string::npos) return maker::Type::kJpeg;
  const auto format = Formats().find(file::GetFileExt(name));
  if (format != Formats().end()) return format->second;
  throw std::invalid_argument("'" + out + "' does not name a format that can be written: use .jpg, .png or .webp, " +
                              "or add --format");
}

// All pixels of the source, which no box enlarges.
Size SizeOf(const Arguments& arguments) {
  Size size = ParseSize(arguments.size);
  if (size.name != "original") return size;
  if (arguments.avatar) throw std::invalid_argument("--avatar needs a box to fill: use another size than original");
  return {"", {65535, 65535}};
}

// KDE's file manager passes a path instead.
std::string CheckedUri(const std::string& uri, maker::Type type) {
  if (type != maker::Type::kPng)
    throw std::invalid_argument("--uri needs a PNG: name a .png file, or add --format png");
  if (uri.rfind('/', 0) == 0) return "file://" + UrlEncodedPath(uri);
  const bool isPlain = std::all_of(uri.begin(), uri.end(), [](char byte) { return byte > ' ' && byte < '\x7f'; });
  if (isPlain && uri.find(':') != std::string::npos) return uri;
  throw std::invalid_argument("'" + uri + "' is not a URI: use one such as file:///photos/a%20b.jpg");
}

// Throws std::invalid_argument with a message for people.
RenderStyle StyleOf(const Arguments& arguments, const std::string& out) {
  RenderStyle style;
  style.request.size = SizeOf(arguments);
  style.request.quarterTurns = arguments.quarterTurns ? ParseQuarterTurns(*arguments.quarterTurns) : 0;
  style.request.options = arguments.avatar ? Thumb::OPT_AVATAR : 0;
  style.request.quality = ParseQuality(arguments.quality);
  style.type = arguments.format ? ParseFormat(*arguments.format) : TypeFor(out);
  if (arguments.uri) style.uri = CheckedUri(*arguments.uri, style.type);
  return style;
}

}  // namespace

Subcommand RenderSubcommand(std::function<decltype(Render)> render) {
  const auto arguments = std::make_shared<Arguments>();
  const auto run = [arguments, render = std::move(render)] {
    const std::vector<std::string>& names = arguments->names;
    if (names.size() != 2) throw std::invalid_argument("render needs two names: FILE, and OUT to write");
    return render(names[0], names[1], StyleOf(*arguments, names[1])) ? kDone : kSomeFailed;
  };
  return {"render", description, footer, [arguments](const Options& options) { Declare(options, arguments.get()); },
          run};
}

}  // namespace tavithumb::apps::command
