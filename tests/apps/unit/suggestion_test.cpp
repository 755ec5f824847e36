// SPDX-License-Identifier: GPL-3.0-or-later
#include "system/suggestion.h"

#include <gtest/gtest.h>

namespace tavithumb::apps {
namespace {

const std::vector<std::string> words = {"get", "make", "list", "clean"};

TEST(Suggestion, IsTheWordThatDiffersLeast) {
  const std::pair<std::string, std::string> rows[] = {
      {"gte", "get"},   {"ge", "get"},       {"gett", "get"},    {"mak", "make"},   {"amke", "make"},  {"mkae", "make"},
      {"lisp", "list"}, {"cleean", "clean"}, {"claen", "clean"}, {"clan", "clean"}, {"clear", "clean"}};
  for (const auto& [word, meant] : rows) {
    EXPECT_EQ(Suggestion(word, words), " (did you mean '" + meant + "'?)") << word;
  }
}

TEST(Suggestion, IsMissingIfNoneIsSimilar) {
  for (const std::string word : {"", "g", "photo.jpg", "m", "lost+found", "MAKE"}) {
    EXPECT_EQ(Suggestion(word, words), "") << word;
  }
  EXPECT_EQ(Suggestion("make", {}), "");
  EXPECT_EQ(Suggestion(std::string(65, 'a'), {std::string(65, 'a')}), "") << "nobody mistypes that much";
}

}  // namespace
}  // namespace tavithumb::apps
