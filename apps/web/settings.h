// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "thumbs/store.h"
#include "thumbs/store_size.h"
#include "web/confinement.h"
#include "web/roots.h"

namespace tavithumb::apps::web {

// The options and the configuration of the program.
struct Settings {
  std::vector<Root> roots;
  std::string scgiAddress;  // "" if a web server starts the program or passes a socket
  std::string sendfile;     // the header by which the web server is asked to send files; "": it is not
  StoreChoice store;
  StoreSize storeSize;  // its limit
  bool showsHidden = false;
  bool byLibrary = false;
  int quality = 80;
  unsigned children = 0;
  unsigned senders = 256;
  unsigned waiting = 64;
  unsigned deadlineSeconds = 30;
  std::string policyFolder;
  ToolLimits limits;
};

// Reads the command line and the configuration file that it or $TAVITHUMB_WEB_CONFIG names. Nothing if only help or the
// version was asked for, which has been printed. Throws std::invalid_argument with a message for people.
std::optional<Settings> ReadSettings(int argc, char** argv);

}  // namespace tavithumb::apps::web
