// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "command/add.h"
#include "command/batch/filter.h"
#include "command/clean.h"
#include "command/get.h"
#include "command/info.h"
#include "command/list.h"
#include "command/make.h"
#include "command/render.h"
#include "command/watch.h"

namespace CLI {
class App;
}  // namespace CLI

namespace tavithumb::apps::command {

// Help of the options that `get` and `make` share.
inline constexpr char qualityHelp[] = "Quality of the JPEG thumbnails, 1 to 100";
inline constexpr char libraryHelp[] = "Make thumbnails with the library's tools only";

struct StoreArguments {
  std::optional<std::string> folder;
  bool isForAll = false;
};

// Uses the store of these arguments, or that of the environment. Throws std::invalid_argument with a message for
// people.
void UseStoreOf(const StoreArguments& arguments);
void UseStoreToRead(const StoreArguments& arguments);

enum ExitCode { kDone = 0, kSomeFailed = 1, kBadUsage = 2, kInterrupted = 130 };

// Declares the options and names that a subcommand accepts, in the order in which its help lists them. Each is stored
// in `value` when the command line is parsed. Hides the parser, because its headers take seconds to compile.
class Options {
 public:
  explicit Options(CLI::App* parser) : parser_(parser) {}

  void AddFlag(const std::string& name, bool* value, const std::string& help) const;
  // The help shows the current `value` as the default.
  void AddDefaulted(const std::string& name, const std::string& type, std::string* value,
                    const std::string& help) const;
  void AddOptional(const std::string& name, const std::string& type, std::optional<std::string>* value,
                   const std::string& help) const;
  // May be given several times; each text is taken as it is.
  void AddRepeated(const std::string& name, const std::string& type, std::vector<std::string>* value,
                   const std::string& help) const;
  void AddRequired(const std::string& name, const std::string& type, std::string* value, const std::string& help) const;
  // At least one name.
  void AddNames(const std::string& label, std::vector<std::string>* value, const std::string& help) const;
  void AddOptionalNames(const std::string& label, std::vector<std::string>* value, const std::string& help) const;
  // Where thumbnails are stored if not next to their source: `--store`, and `--store-all` for those that store.
  void AddStore(StoreArguments* value) const;
  void AddStoreToRead(StoreArguments* value) const;
  // What is left out: `--exclude` and `--one-file-system`.
  void AddFilter(Filter* value) const;
  // The placeholder for the names in the usage line.
  void SetUsageOfNames(const std::string& usage) const;

 private:
  CLI::App* parser_;
};

struct Subcommand {
  std::string name;
  std::string description;
  std::string footer;  // of its help
  std::function<void(const Options&)> declare;
  // Called after the command line has been parsed. Throws std::invalid_argument with a message for people if the
  // options conflict.
  std::function<ExitCode()> run;
};

// Each subcommand, with the function that it calls.
Subcommand GetSubcommand(std::function<decltype(Get)> get = Get);
Subcommand InfoSubcommand(std::function<decltype(Info)> info = Info);
Subcommand MakeSubcommand(std::function<decltype(Make)> make = Make);
Subcommand WatchSubcommand(std::function<decltype(Watch)> watch = Watch);
Subcommand RenderSubcommand(std::function<decltype(Render)> render = Render);
Subcommand AddSubcommand(std::function<decltype(Add)> add = Add);
Subcommand ListSubcommand(std::function<decltype(List)> list = List);
Subcommand CleanSubcommand(std::function<decltype(Clean)> clean = Clean);

}  // namespace tavithumb::apps::command
