// SPDX-License-Identifier: GPL-3.0-or-later
#include "web/settings.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <set>
#include <stdexcept>
#include <thread>

#include "system/numbers.h"
#include "thumbs/imagemagick_policy.h"
#include "thumbs/sizes.h"
#include "web/sendfile.h"

namespace tavithumb::apps::web {
namespace {

constexpr char description[] =
    "Answers a web server's requests for thumbnails, lists and originals of photos and videos.\n"
    "A web server starts it for each request (CGI), or sends it requests over a socket (SCGI).";

constexpr char footerStart[] =
    "Addresses, below the prefix given by the web server:\n"
    "  thumb/PATH?size=SIZE   a thumbnail; SIZE: ";

constexpr char footerEnd[] =
    ";\n"
    "                         with &rotate=0..3 &avatar=1 &animate=1 &fallback=1\n"
    "  original/PATH          the file itself, if browsers can show it\n"
    "  list/PATH              the folder as JSON, or as a page for clients that accept text/html\n"
    "\n"
    "The configuration file has a line NAME = VALUE for each option: root = [\"photos=/srv/photos\"].\n"
    "\n"
    "Examples:\n"
    "  tavithumb-web --scgi /run/tavithumb-web/socket --root photos=/srv/photos --root films=/srv/films\n"
    "  tavithumb-web --scgi 127.0.0.1:4000 --root /srv/photos";

// Throws std::invalid_argument if the environment names a file that can't be read.
std::string DefaultConfig() {
  const char* const file = std::getenv("TAVITHUMB_WEB_CONFIG");
  if (file == nullptr) return "";
  if (!std::ifstream(file)) {
    throw std::invalid_argument("cannot read '" + std::string(file) + "', named by $TAVITHUMB_WEB_CONFIG");
  }
  return file;
}

// The error message, or "" if `text` is valid. The wording of CLI11's own range check differs between releases.
std::string CheckDeadline(const std::string& text) {
  const std::optional<int> seconds = ParseNumber<int>(text);
  if (seconds && *seconds >= 1 && *seconds <= 86400) return "";
  return "Value " + text + " not in range 1 to 86400";
}

std::string CheckSendfile(const std::string& text) {
  if (text == kAccelRedirect || text == kSendfile) return "";
  return "'" + text + "' is neither " + kAccelRedirect + " nor " + kSendfile;
}

// Options that are parsed once all are known.
struct Texts {
  std::vector<std::string> roots;
  std::string storeSize = "10%";
};

void AddOptions(CLI::App* app, Settings* settings, Texts* texts) {
  app->set_help_flag("-h,--help", "Print this help and exit");
  app->set_version_flag("--version", "tavithumb-web " TAVITHUMB_VERSION, "Print the version and exit");
  app->set_config("--config", DefaultConfig(), "Read options from this file; default: $TAVITHUMB_WEB_CONFIG");
  app->allow_config_extras(CLI::config_extras_mode::error);
  app->add_option("--root", texts->roots, "A folder to serve; several need names, which start their addresses")
      ->type_name("[NAME=]DIR")
      ->required();
  app->option_defaults()->take_last();
  app->add_option("--scgi", settings->scgiAddress, "Listen on the path of a Unix socket or a loopback HOST:PORT");
  app->add_option("--sendfile", settings->sendfile,
                  "The header by which the web server, which must announce it, is asked to send files")
      ->check(CheckSendfile, "X-Accel-Redirect or X-Sendfile");
  app->add_option("--store", settings->store.folder,
                  "Store thumbnails there if not possible next to the source; default: $TAVITHUMB_STORE")
      ->type_name("DIR");
  app->add_flag("--store-all", settings->store.isForAll, "Store all new thumbnails in the store");
  app->add_option("--store-size", texts->storeSize, "Limit of the store, such as 500M, 2G, or 10% of its volume")
      ->type_name("SIZE")
      ->capture_default_str();
  app->add_flag("--hidden", settings->showsHidden, "Show names that begin with a dot");
  app->add_option("--quality", settings->quality, "Quality of the JPEG thumbnails")
      ->check(CLI::Range(1, 100), "INT in [1 - 100]")
      ->capture_default_str();
  app->add_flag("--library", settings->byLibrary, "Make thumbnails with the library's tools only");
  app->add_option("--children", settings->children, "Answers made in parallel; 0: twice the number of processor cores")
      ->capture_default_str();
  app->add_option("--senders", settings->senders, "Answers that may be on their way to slow clients besides")
      ->capture_default_str();
  app->add_option("--waiting", settings->waiting, "Requests that may wait; further ones get status 503")
      ->capture_default_str();
  app->add_option("--deadline", settings->deadlineSeconds,
                  "Timeout in seconds for making an answer (504) and for its wait before that (503)")
      ->check(CheckDeadline, "INT in [1 - 86400]")
      ->capture_default_str();
  app->add_option("--policy", settings->policyFolder, "Folder with the policy.xml for ImageMagick")
      ->capture_default_str();
  ToolLimits& limits = settings->limits;
  app->add_option("--tool-cpu", limits.cpuSeconds, "CPU seconds for one tool; 0 means no limit, here and below")
      ->capture_default_str();
  app->add_option("--tool-memory", limits.memoryMiB, "MiB of address space for one tool")->capture_default_str();
  app->add_option("--tool-file-size", limits.fileSizeMiB, "MiB for each file that a tool writes")
      ->capture_default_str();
  app->add_option("--tool-files", limits.openFiles, "Files that one tool may have open")->capture_default_str();
}

std::invalid_argument NeedsName(const std::string& root) {
  return std::invalid_argument("'" + root + "' needs a name: NAME=" + root);
}

void SetRoots(const std::vector<std::string>& texts, Settings* settings) {
  std::set<std::string> names;
  for (const std::string& text : texts) {
    settings->roots.push_back(ParseRoot(text));
    const std::string& name = settings->roots.back().name;
    if (texts.size() > 1 && name.empty()) throw NeedsName(text);
    if (!names.insert(name).second) throw std::invalid_argument("'" + name + "' names two roots; rename one");
  }
}

void CheckPolicy(Settings* settings) {
  const std::string folder = FindPolicy(settings->policyFolder);
  if (folder.empty()) {
    throw std::invalid_argument("'" + settings->policyFolder +
                                "' contains no policy.xml; use --policy to name a folder that does");
  }
  settings->policyFolder = folder;
}

}  // namespace

std::optional<Settings> ReadSettings(int argc, char** argv) {
  Settings settings;
  settings.policyFolder = DefaultPolicyFolder();
  Texts texts;
  CLI::App app(description, "tavithumb-web");
  app.footer(footerStart + SizeChoices() + footerEnd);
  AddOptions(&app, &settings, &texts);
  try {
    app.parse(argc, argv);
  } catch (const CLI::CallForHelp&) {
    std::cout << app.help();
    return std::nullopt;
  } catch (const CLI::CallForVersion& version) {
    std::cout << version.what() << "\n";
    return std::nullopt;
  } catch (const CLI::ParseError& error) {
    throw std::invalid_argument(error.what());
  }
  SetRoots(texts.roots, &settings);
  settings.store.isOwners = true;
  settings.storeSize = ParseStoreSize(texts.storeSize);
  if (settings.children == 0) settings.children = 2 * std::max(1U, std::thread::hardware_concurrency());
  CheckPolicy(&settings);
  return settings;
}

}  // namespace tavithumb::apps::web
