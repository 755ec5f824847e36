// SPDX-License-Identifier: GPL-3.0-or-later
#include "thumbs/facts_in_bounds.h"

#include <sys/resource.h>

#include <new>

#include "system/bounded_data.h"
#include "thumbs/error_codes.h"

namespace tavithumb::apps {
namespace {

constexpr rlim_t mostForFacts = rlim_t{48} * 1048576;

}  // namespace

void ReadInBounds(const std::function<void()>& read) {
  const BoundedData bounded(mostForFacts);
  try {
    read();
  } catch (const std::bad_alloc&) {
    throw FactsTooLarge();
  }
}

void ReadFactsOnly(Thumb* job) {
  ThumbInfo facts = job->GetInfo();
  try {
    ReadInBounds([&] { facts.ExtractImgInfo(false); });
  } catch (const Error& error) {
    if (error.Code() != kNoFacts) throw;
  }
  job->SetFacts(facts);
}

}  // namespace tavithumb::apps
