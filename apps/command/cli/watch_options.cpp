// SPDX-License-Identifier: GPL-3.0-or-later
#include <memory>
#include <utility>

#include "command/cli/batch_options.h"

namespace tavithumb::apps::command {
namespace {

constexpr char description[] = "Make thumbnails of what is in folders, and of what comes";

constexpr char footer[] =
    "Makes the missing and stale thumbnails in the FOLDERs and all folders below them, as 'make' does, and then "
    "follows\n"
    "them: those of a file that is written or moved there are made when nobody has changed it for 2 seconds, those of "
    "a\n"
    "file that is removed or moved away are removed. It works on one file at a time while other programs use the\n"
    "processor. It starts anew where it was stopped.\n"
    "\n"
    "Thumbnails next to files that went while it did not run are removed when it starts; those in a store, by "
    "'clean'.\n"
    "If the system loses events or allows too few watches, it says so and looks through the folders once more. A "
    "folder\n"
    "that is no longer there is reported, and the others are followed; without any, it ends.\n"
    "\n"
    "Ctrl-C finishes the running files; a second Ctrl-C stops them at once. Under systemd:\n"
    "tavithumb-watch@FOLDER.service, where FOLDER is a path as systemd-escape --path prints it.\n"
    "\n"
    "A GLOB, the sizes and the JSON objects are those of 'make'.\n"
    "\n"
    "Examples:\n"
    "  tavithumb watch /volume/photos\n"
    "  tavithumb watch --quiet --exclude '*.gif' ~/Pictures ~/Videos\n"
    "\n"
    "Exit codes: 0 stopped by a signal, 1 no folder is left, 2 bad usage.";

struct Arguments {
  std::vector<std::string> folders;
  BatchArguments batch;
};

void Declare(const Options& options, Arguments* arguments) {
  options.AddNames("FOLDER", &arguments->folders, "Folders; after '--', names may start with '-'");
  DeclareBatch(options, &arguments->batch);
}

// Throws std::invalid_argument with a message for people.
WatchRequest RequestOf(const Arguments& arguments) {
  return {arguments.folders,       FilterOf(arguments.batch), OrderOf(arguments.batch),
          JobsOf(arguments.batch), OutputOf(arguments.batch), arguments.batch.triesFailed};
}

}  // namespace

Subcommand WatchSubcommand(std::function<decltype(Watch)> watch) {
  const auto arguments = std::make_shared<Arguments>();
  const auto run = [arguments, watch = std::move(watch)] {
    UseStoreOf(arguments->batch.store);
    return watch(RequestOf(*arguments)) == RunOutcome::kInterrupted ? kDone : kSomeFailed;
  };
  return {"watch", description, footer, [arguments](const Options& options) { Declare(options, arguments.get()); },
          run};
}

}  // namespace tavithumb::apps::command
