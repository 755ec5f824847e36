// SPDX-License-Identifier: GPL-3.0-or-later
#include "command/cli/subcommand.h"

namespace tavithumb::apps::command {

// The parser would read "[a,b]" as a list and "{}" as none where it fills a vector by itself.
CLI::Option* AddNames(CLI::App* line, const std::string& label, const std::string& description,
                      std::vector<std::string>* names) {
  const auto take = [names](const CLI::results_t& texts) {
    *names = texts;
    return true;
  };
  return line->add_option(label, take, description)
      ->required()
      ->expected(CLI::detail::expected_max_vector_size, CLI::detail::expected_max_vector_size)
      ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll)
      ->option_text(" ");
}

}  // namespace tavithumb::apps::command
