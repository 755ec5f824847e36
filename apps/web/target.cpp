// SPDX-License-Identifier: GPL-3.0-or-later
#include "web/target.h"

#include <tavithumb/libtavithumb.h>

#include <algorithm>
#include <map>
#include <stdexcept>

#include "thumbs/sizes.h"
#include "web/http_error.h"

namespace tavithumb::apps::web {
namespace {

constexpr char hexDigits[] = "0123456789ABCDEF";

const std::map<std::string, Route> routes = {
    {"thumb", Route::kThumb}, {"original", Route::kOriginal}, {"list", Route::kList}};

std::vector<std::string_view> Split(std::string_view text, char separator) {
  std::vector<std::string_view> parts;
  for (std::size_t end = text.find(separator); end != std::string_view::npos; end = text.find(separator)) {
    parts.push_back(text.substr(0, end));
    text.remove_prefix(end + 1);
  }
  parts.push_back(text);
  return parts;
}

int HexValue(char digit) {
  const char upper = digit >= 'a' && digit <= 'f' ? static_cast<char>(digit - 'a' + 'A') : digit;
  const std::size_t value = std::string_view(hexDigits).find(upper);
  if (value == std::string_view::npos)
    throw HttpError(kBadRequest, "a '%' in the address is not followed by two hex digits");
  return static_cast<int>(value);
}

std::string PercentDecoded(std::string_view text) {
  std::string decoded;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] != '%') {
      decoded += text[i];
      continue;
    }
    const int high = HexValue(i + 1 < text.size() ? text[i + 1] : '\0');
    const int low = HexValue(i + 2 < text.size() ? text[i + 2] : '\0');
    decoded += static_cast<char>(high * 16 + low);
    i += 2;
  }
  return decoded;
}

// Names that lead elsewhere, and those that no file can have, give the error for a missing file.
std::string NameOf(std::string_view segment) {
  std::string name = PercentDecoded(segment);
  if (name.empty() || name == "." || name == ".." || name.find_first_of(std::string_view("/\0", 2)) != name.npos) {
    throw NotFound();
  }
  return name;
}

std::string PrefixOf(const Variables& variables) {
  std::string prefix = ValueOf(variables, "SCRIPT_NAME");
  while (!prefix.empty() && prefix.back() == '/') prefix.pop_back();
  return prefix;
}

// The segments of the address after the prefix; the first names the route.
std::vector<std::string_view> SegmentsOf(std::string_view path, std::string_view prefix) {
  if (path.substr(0, prefix.size()) != prefix) throw NotFound();
  path.remove_prefix(prefix.size());
  if (path.empty() || path.front() != '/') throw NotFound();
  return Split(path.substr(1), '/');
}

void ReadPath(std::vector<std::string_view> segments, Target* target) {
  const auto route = routes.find(std::string(segments.front()));
  if (route == routes.end()) throw NotFound();
  target->route = route->second;
  if (target->route == Route::kList && segments.size() > 1 && segments.back().empty()) segments.pop_back();
  for (std::size_t i = 1; i < segments.size(); ++i) target->path.push_back(NameOf(segments[i]));
}

// The parameters of the query, each of which can be consumed once.
class Parameters {
 public:
  explicit Parameters(std::string_view query) {
    if (query.empty()) return;
    for (const std::string_view part : Split(query, '&')) {
      const std::size_t equals = part.find('=');
      const std::string name = PercentDecoded(part.substr(0, equals));
      const std::string value = equals == part.npos ? "" : PercentDecoded(part.substr(equals + 1));
      if (!values_.emplace(name, value).second) throw HttpError(kBadRequest, "a parameter is given more than once");
    }
  }

  bool Has(const std::string& name) const { return values_.count(name) != 0; }

  std::string Consume(const std::string& name) {
    const auto entry = values_.find(name);
    std::string value = entry->second;
    values_.erase(entry);
    return value;
  }

  // A parameter that must be "1" if it is present.
  bool ConsumeFlag(const std::string& name) {
    if (!Has(name)) return false;
    if (Consume(name) != "1") throw HttpError(kBadRequest, "'" + name + "' must be 1");
    return true;
  }

  void RequireAllConsumed() const {
    if (!values_.empty()) throw HttpError(kBadRequest, "unknown parameter");
  }

 private:
  std::map<std::string, std::string> values_;
};

Size ConsumeSize(Parameters* parameters) {
  if (!parameters->Has("size")) throw HttpError(kBadRequest, "'size' is missing");
  try {
    return ParseSize(parameters->Consume("size"));
  } catch (const std::invalid_argument&) {
    throw HttpError(kBadRequest, "'size' must be " + SizeChoices() + ", with sides of 1 to 65535 pixels");
  }
}

int ConsumeQuarterTurns(Parameters* parameters) {
  if (!parameters->Has("rotate")) return 0;
  const std::string turns = parameters->Consume("rotate");
  if (turns.size() != 1 || turns[0] < '0' || turns[0] > '3') {
    throw HttpError(kBadRequest, "'rotate' must be a number of quarter turns, 0 to 3");
  }
  return turns[0] - '0';
}

Request ConsumeRequest(Parameters* parameters) {
  Request request;
  request.size = ConsumeSize(parameters);
  request.quarterTurns = ConsumeQuarterTurns(parameters);
  request.options = Thumb::OPT_BROVIX_EA;
  // Albumex stores only sizes with names.
  if (!request.size.IsBox()) request.options |= Thumb::OPT_ALBUMEX_EA;
  if (parameters->ConsumeFlag("avatar")) request.options |= Thumb::OPT_AVATAR;
  if (parameters->ConsumeFlag("animate")) request.options |= Thumb::OPT_ENABLE_GIF;
  if (parameters->ConsumeFlag("fallback")) {
    if (request.size.IsBox()) throw HttpError(kBadRequest, "'fallback' needs a named size");
    request.options |= Thumb::OPT_FALLBACK_SMALLER;
  }
  return request;
}

// A parameter may ask for something else of a file or folder than its content.
Route ConsumeVariant(Route route, Parameters* parameters) {
  if (route == Route::kOriginal && parameters->ConsumeFlag("download")) return Route::kDownload;
  if (route == Route::kOriginal && parameters->ConsumeFlag("facts")) return Route::kFacts;
  if (route == Route::kList && parameters->ConsumeFlag("dates")) return Route::kDates;
  return route;
}

std::string_view Trimmed(std::string_view text) {
  const std::size_t first = text.find_first_not_of(" \t");
  if (first == text.npos) return {};
  return text.substr(first, text.find_last_not_of(" \t") - first + 1);
}

std::string Lower(std::string_view text) {
  std::string lower(text);
  std::transform(lower.begin(), lower.end(), lower.begin(),
                 [](char letter) { return letter >= 'A' && letter <= 'Z' ? static_cast<char>(letter + 32) : letter; });
  return lower;
}

// Whether the parameter of a media range is "q=0", "q=0." or "q=0.000", which exclude it.
bool IsExclusion(std::string_view parameter) {
  const std::string lower = Lower(Trimmed(parameter));
  return lower.rfind("q=0", 0) == 0 && lower.find_first_not_of("0.", 2) == lower.npos;
}

// Whether an Accept header lists the media type itself; wildcards don't count.
bool Accepts(std::string_view header, std::string_view mediaType) {
  for (const std::string_view range : Split(header, ',')) {
    const std::vector<std::string_view> parts = Split(range, ';');
    if (Lower(Trimmed(parts.front())) == mediaType) return std::none_of(parts.begin() + 1, parts.end(), IsExclusion);
  }
  return false;
}

}  // namespace

Target ParseTarget(const Variables& variables) {
  const std::string method = ValueOf(variables, "REQUEST_METHOD");
  if (method != "GET" && method != "HEAD") throw HttpError(kMethodNotAllowed, "only GET and HEAD are supported");
  const std::string address = ValueOf(variables, "REQUEST_URI");
  const std::string_view uri = address;
  const std::size_t mark = uri.find('?');
  Parameters parameters(mark == uri.npos ? "" : uri.substr(mark + 1));

  Target target = {};
  target.isHead = method == "HEAD";
  target.prefix = PrefixOf(variables);
  ReadPath(SegmentsOf(uri.substr(0, mark), target.prefix), &target);
  const std::string accept = ValueOf(variables, "HTTP_ACCEPT");
  target.wantsHtml = Accepts(accept, "text/html");
  target.route = ConsumeVariant(target.route, &parameters);
  if (target.route == Route::kThumb) target.request = ConsumeRequest(&parameters);
  if (target.route == Route::kDates && parameters.Has("after")) target.after = parameters.Consume("after");
  target.request.acceptHeic = Accepts(accept, "image/heic") || Accepts(accept, "image/heif");
  parameters.RequireAllConsumed();
  return target;
}

std::string ValueOf(const Variables& variables, const std::string& name) {
  const auto variable = variables.find(name);
  return variable == variables.end() ? "" : variable->second;
}

}  // namespace tavithumb::apps::web
