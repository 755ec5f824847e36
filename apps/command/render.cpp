// SPDX-License-Identifier: GPL-3.0-or-later
#include "command/render.h"

#include <sys/stat.h>
#include <tavithumb/libtavithumb.h>

#include <cerrno>
#include <exception>
#include <string_view>
#include <system_error>

#include "command/as_owner.h"
#include "command/output.h"
#include "system/become.h"
#include "system/descriptors.h"
#include "system/file_rules.h"
#include "system/paths.h"
#include "system/replace_file.h"
#include "system/shared_buffer.h"
#include "thumbs/decoder_process.h"
#include "thumbs/facts_in_bounds.h"
#include "thumbs/known_facts.h"
#include "thumbs/rendering.h"

namespace tavithumb::apps::command {
namespace {

// The keys by which file managers recognise the thumbnails of a file.
maker::PngTexts TextsFor(const ThumbInfo& source, const std::string& uri) {
  struct stat record = {};
  if (stat(source.GetPath().c_str(), &record) != 0) return {};
  maker::PngTexts texts = {{"Thumb::URI", uri},
                           {"Thumb::MTime", std::to_string(record.st_mtim.tv_sec)},
                           {"Thumb::Size", std::to_string(record.st_size)},
                           {"Thumb::Mimetype", source.GetMimeType()},
                           {"Software", "tavithumb"}};
  if (source.GetWidth() == 0 || source.GetHeight() == 0) return texts;
  texts.emplace_back("Thumb::Image::Width", std::to_string(source.GetWidth()));
  texts.emplace_back("Thumb::Image::Height", std::to_string(source.GetHeight()));
  return texts;
}

maker::Options OptionsOf(const RenderStyle& style, const ThumbInfo& source) {
  maker::Options options;
  options.quality = style.request.quality;
  options.type = style.type;
  if (style.uri) options.pngTexts = TextsFor(source, *style.uri);
  return options;
}

// A decoder that an attacker has taken over can access no other file.
void KeepTo(const std::string& source) {
  FileRules rules;
  rules.Allow(source, FileRules::Access::kRead);
  rules.AllowSystem();
  rules.Enter();
}

// Returns why there is no picture, in a word.
std::string RenderInto(const SharedBuffer& picture, const ThumbInfo& source, const PictureDetails& details,
                       const RenderStyle& style) {
  const maker::Options options = OptionsOf(style, source);
  return RunInDecoderProcess([&] {
    KeepTo(source.GetPath());
    std::vector<std::uint8_t> bytes;
    if (auto refusal = RenderBytes(source, details, style.request, options, &bytes)) return *refusal;
    return std::string(picture.Write(bytes) ? "" : "too large");
  });
}

std::optional<Problem> RenderFile(const std::string& path, const RenderStyle& style, const SharedBuffer& picture) {
  if (std::optional<Problem> problem = CheckFile(path)) return problem;
  const QuietErrors quiet;
  try {
    Thumb job(path, style.request.options, false);
    const PictureDetails details = ReadFactsAndDetails(&job);
    job.SetFacts(KnownFacts(job.GetInfo()));
    if (!CanRender(style.request, job.GetInfo())) return UnknownContent();
    const std::string refusal = RenderInto(picture, job.GetInfo(), details, style);
    return refusal.empty() ? std::nullopt : std::optional<Problem>(ProblemOfRefusal(refusal));
  } catch (const std::exception&) {
    return ProblemOfException();
  }
}

bool IsSameFile(const std::string& a, const std::string& b) {
  struct stat first = {}, second = {};
  return stat(a.c_str(), &first) == 0 && stat(b.c_str(), &second) == 0 && first.st_dev == second.st_dev &&
         first.st_ino == second.st_ino;
}

std::optional<Problem> WriteTo(const std::string& path, std::string_view picture) {
  try {
    ReplaceFile(path, picture);
    return std::nullopt;
  } catch (const std::system_error& error) {
    return NotWritten(error.code().value());
  }
}

bool WriteAsOwner(const std::string& out, std::string_view picture) {
  return RunAsOwner(AbsolutePath(out), [&](const std::string& inside, std::optional<Problem> problem) {
    if (!problem) problem = WriteTo(inside, picture);
    if (problem) ReportProblem(out, *problem);
    return !problem;
  });
}

}  // namespace

bool Render(const std::string& file, const std::string& out, const RenderStyle& style) {
  if (out != "-" && IsSameFile(file, out)) {
    ReportProblem(out, {Problem::Kind::kNoPlace, "it is the source itself", "name another file to write"});
    return false;
  }
  const SharedBuffer picture(mostDecodedBytes);
  const bool isMade = RunAsOwner(AbsolutePath(file), [&](const std::string& inside, std::optional<Problem> problem) {
    if (!problem) problem = RenderFile(inside, style, picture);
    if (problem) ReportProblem(file, *problem);
    return !problem;
  });
  if (!isMade) return false;
  if (out != "-") return WriteAsOwner(out, picture.Content());
  WriteOut(std::string(picture.Content()));
  return true;
}

}  // namespace tavithumb::apps::command
