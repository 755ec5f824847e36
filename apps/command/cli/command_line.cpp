// SPDX-License-Identifier: GPL-3.0-or-later
#include "command/cli/command_line.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <memory>
#include <utility>

#include "command/output.h"
#include "command/table.h"
#include "system/suggestion.h"
#include "thumbs/store.h"
#include "thumbs/tool_versions.h"

namespace tavithumb::apps::command {
namespace {

constexpr char description[] =
    "Finds, makes and stores thumbnails of photos, camera raw files, GIFs, HEIF images and videos.";

constexpr char footer[] =
    "Exit codes:\n"
    "  0    success\n"
    "  1    some files failed; a line on standard error says which, why, and what to do\n"
    "  2    bad usage\n"
    "  130  interrupted\n"
    "\n"
    "See 'tavithumb SUBCOMMAND --help' for the details.";

class FormatterWithUsageOfNames : public CLI::Formatter {
 public:
  explicit FormatterWithUsageOfNames(std::string usage) : usage_(std::move(usage)) {}

 private:
  std::string make_option_usage(const CLI::Option* /*names*/) const override { return usage_; }

  std::string usage_;
};

// Accepts any number of names unchanged. The parser would read "[a,b]" as a list and "{}" as an empty one if it filled
// a vector itself.
CLI::Option* AddNamesTo(CLI::App* parser, const std::string& label, std::vector<std::string>* value,
                        const std::string& help) {
  const auto take = [value](const CLI::results_t& texts) {
    *value = texts;
    return true;
  };
  return parser->add_option(label, take, help)
      ->expected(CLI::detail::expected_max_vector_size, CLI::detail::expected_max_vector_size)
      ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll)
      ->option_text(" ");
}

std::vector<std::string> NamesOf(const std::vector<Subcommand>& subcommands) {
  std::vector<std::string> names;
  names.reserve(subcommands.size());
  for (const Subcommand& subcommand : subcommands) names.push_back(subcommand.name);
  return names;
}

std::vector<std::string> LongOptionsOf(const CLI::App& subcommand) {
  std::vector<std::string> names;
  for (const CLI::Option* option : subcommand.get_options()) {
    if (!option->get_lnames().empty()) names.push_back("--" + option->get_lnames().front());
  }
  return names;
}

// What the parser says, or a better word for one that it does not know.
std::string MessageOf(const CLI::ParseError& error, const CLI::App& parser, const std::vector<std::string>& arguments,
                      const std::vector<Subcommand>& subcommands) {
  const auto parsed = parser.get_subcommands();
  if (parsed.empty()) {
    if (arguments.empty() || arguments.front().substr(0, 1) == "-") return error.what();
    return "'" + arguments.front() + "' is not a subcommand" + Suggestion(arguments.front(), NamesOf(subcommands));
  }
  const std::vector<std::string> options = LongOptionsOf(*parsed.front()), unknown = parsed.front()->remaining();
  const auto suggest = [&options](const std::string& word) {
    return word.substr(0, 2) == "--" ? Suggestion(word.substr(0, word.find('=')), options) : "";
  };
  const auto mistyped = std::find_if(unknown.begin(), unknown.end(),
                                     [&suggest](const std::string& word) { return !suggest(word).empty(); });
  return mistyped == unknown.end() ? error.what() : "'" + *mistyped + "' is not an option" + suggest(*mistyped);
}

UsageError ErrorWithHint(const std::string& message, const CLI::App& parser) {
  const auto parsed = parser.get_subcommands();
  const std::string subcommand = parsed.empty() ? "" : parsed.front()->get_name() + " ";
  return UsageError(message + "; see 'tavithumb " + subcommand + "--help'");
}

std::string VersionText() {
  std::vector<Row> rows;
  for (const maker::Version& version : ToolVersions()) rows.push_back({"  " + version.name, version.number});
  return "tavithumb " TAVITHUMB_VERSION "\n" + Aligned(rows);
}

void Declare(const std::vector<Subcommand>& subcommands, CLI::App* parser) {
  parser->footer(footer)->require_subcommand(1);
  parser->set_help_flag("-h,--help", "Print this help and exit");
  parser->set_version_flag("--version", VersionText,
                           "Print the versions of this program, the codecs and tools, and exit");
  for (const Subcommand& subcommand : subcommands) {
    subcommand.declare(Options(parser->add_subcommand(subcommand.name, subcommand.description)));
    parser->get_subcommand(subcommand.name)->footer(subcommand.footer);
  }
}

}  // namespace

void Options::AddFlag(const std::string& name, bool* value, const std::string& help) const {
  parser_->add_flag(name, *value, help);
}

// Versions of CLI11 would print the default differently.
void Options::AddDefaulted(const std::string& name, const std::string& type, std::string* value,
                           const std::string& help) const {
  parser_->add_option(name, *value, help)->type_name(type)->option_text(type + "=" + *value);
}

void Options::AddOptional(const std::string& name, const std::string& type, std::optional<std::string>* value,
                          const std::string& help) const {
  parser_->add_option(name, *value, help)->type_name(type);
}

void Options::AddRepeated(const std::string& name, const std::string& type, std::vector<std::string>* value,
                          const std::string& help) const {
  const auto take = [value](const CLI::results_t& texts) {
    *value = texts;
    return true;
  };
  parser_->add_option(name, take, help)
      ->expected(1)
      ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll)
      ->allow_extra_args(false)
      ->type_name(type);
}

void Options::AddRequired(const std::string& name, const std::string& type, std::string* value,
                          const std::string& help) const {
  parser_->add_option(name, *value, help)->type_name(type)->required();
}

void Options::AddNames(const std::string& label, std::vector<std::string>* value, const std::string& help) const {
  AddNamesTo(parser_, label, value, help)->required();
}

void Options::AddOptionalNames(const std::string& label, std::vector<std::string>* value,
                               const std::string& help) const {
  AddNamesTo(parser_, label, value, help);
}

void Options::AddStore(StoreArguments* value) const {
  AddOptional("--store", "DIR", &value->folder,
              "Store thumbnails there if not possible next to the source; default: $TAVITHUMB_STORE");
  AddFlag("--store-all", &value->isForAll, "Store all new thumbnails in the store");
}

void Options::AddStoreToRead(StoreArguments* value) const {
  AddOptional("--store", "DIR", &value->folder, "Read this store too; default: $TAVITHUMB_STORE");
}

void UseStoreOf(const StoreArguments& arguments) {
  UseStore({arguments.folder.value_or(""), arguments.isForAll, true, true});
}

void UseStoreToRead(const StoreArguments& arguments) {
  UseStore({arguments.folder.value_or(""), false, false, true});
}

void Options::AddFilter(Filter* value) const {
  AddRepeated("--exclude", "GLOB", &value->excluded, "Leave out files and folders that GLOB matches; may be repeated");
  AddFlag("--one-file-system", &value->staysOnFileSystem, "Leave out volumes that are mounted below a PATH");
}

void Options::SetUsageOfNames(const std::string& usage) const {
  parser_->formatter(std::make_shared<FormatterWithUsageOfNames>(usage));
}

ExitCode RunCommandLine(const std::vector<std::string>& arguments, const std::vector<Subcommand>& subcommands) {
  CLI::App parser(description, "tavithumb");
  Declare(subcommands, &parser);
  std::vector<std::string> reversed(arguments.rbegin(), arguments.rend());  // the order that the parser expects
  try {
    parser.parse(std::move(reversed));
    return std::find_if(subcommands.begin(), subcommands.end(),
                        [&](const Subcommand& subcommand) { return parser.got_subcommand(subcommand.name); })
        ->run();
  } catch (const CLI::CallForHelp&) {
    WriteOut(parser.help());
    return kDone;
  } catch (const CLI::CallForVersion& version) {
    WriteOut(version.what());
    return kDone;
  } catch (const CLI::ParseError& error) {
    throw ErrorWithHint(MessageOf(error, parser, arguments, subcommands), parser);
  } catch (const std::invalid_argument& error) {
    throw ErrorWithHint(error.what(), parser);
  }
}

}  // namespace tavithumb::apps::command
