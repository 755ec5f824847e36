// SPDX-License-Identifier: GPL-3.0-or-later
#include "web/dates.h"

#include <algorithm>
#include <exception>
#include <nlohmann/json.hpp>

#include "system/json_text.h"
#include "system/text.h"
#include "thumbs/exif_details.h"
#include "thumbs/facts_in_bounds.h"
#include "thumbs/kinds.h"
#include "web/http_error.h"
#include "web/listing.h"

namespace tavithumb::apps::web {
namespace {

// "" if the file has no date.
std::string TimeTaken(const Roots& roots, const std::vector<std::string>& path) {
  try {
    const Found found = roots.Find(path);
    if (!S_ISREG(found.record.st_mode)) return "";
    Thumb job(found.path, Thumb::OPT_NO_CONVERT, false);
    const std::string taken = ReadFactsAndDetails(&job).timeTaken;
    return taken.empty() && job.GetInfo().IsHeic() ? ReadExifDetails(found.path).timeTaken : taken;
  } catch (const std::exception&) {  // damaged, or removed meanwhile
    return "";
  }
}

}  // namespace

std::string DatesAsJson(const Roots& roots, const std::vector<std::string>& path, const std::string& after,
                        Clock::time_point deadline) {
  nlohmann::ordered_json dates = {{"taken", nlohmann::ordered_json::object()}, {"next", nullptr}};
  const std::vector<std::string> names = ShownNamesIn(roots.Find(path), roots);
  std::vector<std::string> photo = path;
  for (auto name = std::upper_bound(names.begin(), names.end(), after); name != names.end(); ++name) {
    if (!IsPhoto(*name)) continue;
    photo.push_back(*name);
    const std::string taken = TimeTaken(roots, photo);
    photo.pop_back();
    if (!taken.empty()) dates["taken"][UrlEncoded(*name)] = taken;
    if (Clock::now() < deadline) continue;
    dates["next"] = UrlEncoded(*name);
    break;
  }
  return JsonLine(dates);
}

}  // namespace tavithumb::apps::web
