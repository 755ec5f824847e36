// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <string>
#include <vector>

#include "system/clock.h"
#include "web/roots.h"

namespace tavithumb::apps::web {

// When the photos of a folder were taken, as JSON: {"taken": {URL: "YYYY-MM-DDThh:mm:ss", ...}, "next": URL}. URLs are
// encoded names. Photos whose time is not known are left out. It starts after the name `after` and stops with the first
// photo that is read past the deadline; "next" then says after which name to continue, else it is null. Throws like
// ListFolder().
std::string DatesAsJson(const Roots& roots, const std::vector<std::string>& path, const std::string& after,
                        Clock::time_point deadline);

}  // namespace tavithumb::apps::web
