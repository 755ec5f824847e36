// SPDX-License-Identifier: GPL-3.0-or-later
#include "thumbs/facts_in_bounds.h"

#include <sys/resource.h>

#include <new>

#include "system/soft_limit.h"
#include "thumbs/error_codes.h"

namespace tavithumb::apps {
namespace {

constexpr rlim_t mostForFacts = rlim_t{48} * 1048576;

void ReadInto(Thumb* job, const std::function<void(ThumbInfo*)>& read) {
  ThumbInfo facts = job->GetInfo();
  try {
    ReadInBounds([&] { read(&facts); });
  } catch (const Error& error) {
    if (error.Code() != kNoFacts) throw;
  }
  job->SetFacts(facts);
}

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
  ReadInto(job, [](ThumbInfo* facts) { facts->ExtractImgInfo(false); });
}

PictureDetails ReadFactsAndDetails(Thumb* job) {
  PictureDetails details;
  ReadInto(job, [&details](ThumbInfo* facts) { details = facts->ExtractImgInfoAndDetails(); });
  return details;
}

}  // namespace tavithumb::apps
