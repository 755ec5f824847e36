// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <gtest/gtest.h>
#include <hwy/targets.h>

#include <cstdint>
#include <functional>

namespace tavithumb::maker {

// Runs a check with each kind of vector instructions that the processor has, and with none.
inline void WithAllInstructions(const std::function<void()>& check) {
  const std::int64_t all = hwy::SupportedTargets();
  for (const std::int64_t target : hwy::SupportedAndGeneratedTargets()) {
    SCOPED_TRACE(hwy::TargetName(target));
    hwy::SetSupportedTargetsForTest(target);
    hwy::GetChosenTarget().DeInit();
    check();
  }
  hwy::SetSupportedTargetsForTest(all);
  hwy::GetChosenTarget().DeInit();
}

}  // namespace tavithumb::maker
