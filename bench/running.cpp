// SPDX-License-Identifier: GPL-3.0-or-later
// Running a tool from callers of different sizes.
#include <benchmark/benchmark.h>

#include <cstddef>
#include <vector>

#include "environment.h"

namespace tavithumb::bench {
namespace {

void RunTool(benchmark::State& state) {
  const auto bytes = static_cast<std::size_t>(state.range(0)) * 1024 * 1024;
  std::vector<char> resident(bytes, 1);
  benchmark::DoNotOptimize(resident.data());
  for (auto iteration : state) {
    (void)iteration;
    Run({"/bin/true"});
  }
}
BENCHMARK(RunTool)->ArgName("MiB")->Arg(10)->Arg(2048)->Iterations(300)->UseRealTime();

}  // namespace
}  // namespace tavithumb::bench
