// SPDX-License-Identifier: GPL-3.0-or-later
#include <memory>
#include <optional>
#include <stdexcept>
#include <utility>

#include "command/cli/subcommand.h"
#include "system/suggestion.h"
#include "thumbs/request.h"
#include "thumbs/sizes.h"

namespace tavithumb::apps::command {
namespace {

constexpr char description[] = "Store existing thumbnails for their sources";

constexpr char footer[] =
    "Moves each THUMBNAIL to where 'tavithumb get' looks for a thumbnail of its SOURCE at that size, replaces what\n"
    "was stored there, and prints the new path. A THUMBNAIL that cannot be stored stays where it was.\n"
    "\n"
    "NAME is small, medium, big, large or xlarge; large and xlarge share a thumbnail. The picture is stored\n"
    "unchanged: it is neither resized nor rotated. With a time earlier than that of SOURCE, it is stale at once.\n"
    "With 'all', the thumbnails of all sizes are made from it, as from a picture for a video.\n"
    "\n"
    "Examples:\n"
    "  tavithumb add --size medium photo.jpg photo-360.jpg\n"
    "  tavithumb add --size all film.mp4 poster.jpg\n"
    "  tavithumb add --size small --check-type a.jpg a-120.jpg b.jpg b-120.jpg\n"
    "\n"
    "Exit codes: 0 every THUMBNAIL was moved, 1 some were not, 2 bad usage.";

constexpr char everySize[] = "all";

struct Arguments {
  std::vector<std::string> names;
  std::string size;
  std::optional<std::string> time;
  bool checkType = false;
  StoreArguments store;
};

void Declare(const Options& options, Arguments* arguments) {
  options.SetUsageOfNames("SOURCE THUMBNAIL [SOURCE THUMBNAIL...]");
  options.AddNames("SOURCE", &arguments->names,
                   "Photos and videos, each followed by its THUMBNAIL; after '--', names may start with '-'");
  options.AddRequired("-s,--size", "NAME", &arguments->size, "The size to store it as, or all");
  options.AddFlag("--check-type", &arguments->checkType, "Accept only the type that would be made for SOURCE");
  options.AddOptional("--mtime", "SECONDS", &arguments->time,
                      "Its modification time in seconds since 1970; default: that of SOURCE");
  options.AddStore(&arguments->store);
}

// Throws std::invalid_argument with a message for people.
AddStyle StyleOf(const Arguments& arguments) {
  if (arguments.size == everySize) {
    if (arguments.time) throw std::invalid_argument("--mtime needs the name of one size");
    return {"", 0, true};
  }
  if (!IsStoredSize(arguments.size)) {
    throw std::invalid_argument("'" + arguments.size + "' is not a size to store a thumbnail as" +
                                Suggestion(arguments.size, StoredSizes()) + ": use " + StoredSizeChoices() +
                                ", or all");
  }
  return {arguments.size, arguments.time ? ParseTime(*arguments.time) : 0, arguments.checkType};
}

// Throws std::invalid_argument with a message for people.
std::vector<Pair> PairsOf(const std::vector<std::string>& names) {
  if (names.size() % 2 != 0) throw std::invalid_argument("'" + names.back() + "' is not followed by a THUMBNAIL");
  std::vector<Pair> pairs;
  for (std::size_t i = 0; i < names.size(); i += 2) pairs.emplace_back(names[i], names[i + 1]);
  return pairs;
}

}  // namespace

Subcommand AddSubcommand(std::function<decltype(Add)> add) {
  const auto arguments = std::make_shared<Arguments>();
  const auto run = [arguments, add = std::move(add)] {
    UseStoreOf(arguments->store);
    return add(PairsOf(arguments->names), StyleOf(*arguments)) ? kDone : kSomeFailed;
  };
  return {"add", description, footer, [arguments](const Options& options) { Declare(options, arguments.get()); }, run};
}

}  // namespace tavithumb::apps::command
