// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "web/confinement.h"
#include "web/roots.h"

namespace tavithumb::apps::web {

// How the program was started.
struct Settings {
  std::vector<Root> roots;
  std::string scgiAddress;  // "" when a web server starts it, or hands over a socket
  bool showsHidden = false;
  unsigned children = 0;
  unsigned waiting = 64;
  unsigned deadlineSeconds = 30;
  std::string policyFolder;
  ToolLimits limits;
};

// From the command line and the configuration file that it or $TAVITHUMB_WEB_CONFIG names. Nothing when the program
// only had to tell about itself, which it has done. Throws std::invalid_argument with a sentence for people.
std::optional<Settings> ReadSettings(int argc, char** argv);

}  // namespace tavithumb::apps::web
