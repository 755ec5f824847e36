// SPDX-License-Identifier: GPL-3.0-or-later
#include "thumbs/store_size.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

namespace tavithumb::apps {
namespace {

std::string ReadSize(const std::string& text) {
  try {
    const StoreSize size = ParseStoreSize(text);
    if (size.isPercent) return std::to_string(size.number) + "%";
    return std::to_string(BytesOf(size));
  } catch (const std::invalid_argument& error) {
    return error.what();
  }
}

TEST(StoreSizes, AreWrittenAsPeopleWriteThem) {
  const std::pair<const char*, const char*> rows[] = {
      {"0", "0"},
      {"65536", "65536"},
      {"4096B", "4096"},
      {"500M", "524288000"},
      {"500m", "524288000"},
      {"500MB", "524288000"},
      {"500MiB", "524288000"},
      {"64K", "65536"},
      {"2G", "2147483648"},
      {"1.5g", "1610612736"},
      {"3TiB", "3298534883328"},
      {"10%", "10.000000%"},
      {"0.5%", "0.500000%"},
      {"100%", "100.000000%"},
      {"100.1%", "'100.1%' is more than the whole volume: use at most 100%"},
  };
  for (const auto& [text, expected] : rows) EXPECT_EQ(ReadSize(text), expected) << text;
}

TEST(StoreSizes, AreRejectedInAnyOtherForm) {
  for (const std::string text : {"", "%", "M", "-1", "1 G", "1,5G", ".5G", "1.G", "10%M", "5P", "1e3", "0x10", "1GG",
                                 "1iB2", "9999999999999999", "10 %", "1G\n"}) {
    EXPECT_EQ(ReadSize(text), "'" + text + "' is not a valid size: use one such as 500M, 2G or 10%");
  }
}

}  // namespace
}  // namespace tavithumb::apps
