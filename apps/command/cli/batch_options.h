// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstddef>
#include <optional>
#include <string>

#include "command/batch/run.h"
#include "command/cli/subcommand.h"
#include "system/text.h"
#include "thumbs/request.h"
#include "thumbs/sizes.h"

namespace tavithumb::apps::command {

// The options that `make` and `watch` share.
struct BatchArguments {
  std::string sizes = Join(StoredSizes(), ",");
  std::optional<std::string> jobs;
  std::string quality = std::to_string(Request().quality);
  bool byLibrary = false;
  StoreArguments store;
  Filter filter;
  bool leavesVideos = false;
  bool triesFailed = false;
  bool isEager = false;
  bool isQuiet = false;
  bool isVerbose = false;
  bool json = false;
};

void DeclareBatch(const Options& options, BatchArguments* arguments);

// These throw std::invalid_argument with a message for people.
std::size_t ParseCount(const std::string& option, const std::string& text, std::size_t maximum);
Order OrderOf(const BatchArguments& arguments);
std::size_t JobsOf(const BatchArguments& arguments);
Filter FilterOf(const BatchArguments& arguments);
RunOutput OutputOf(const BatchArguments& arguments);

}  // namespace tavithumb::apps::command
