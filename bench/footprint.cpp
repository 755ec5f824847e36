// SPDX-License-Identifier: GPL-3.0-or-later
// What 10,000 jobs that find a stored thumbnail leave behind in the process.
#include <benchmark/benchmark.h>
#include <tavithumb/libtavithumb.h>
#include <unistd.h>

#include <cstddef>
#include <filesystem>
#include <fstream>

#include "environment.h"

namespace tavithumb::bench {
namespace {

double ResidentBytes() {
  std::size_t total = 0, resident = 0;
  std::ifstream("/proc/self/statm") >> total >> resident;
  return static_cast<double>(resident) * static_cast<double>(sysconf(_SC_PAGESIZE));
}

double Descriptors() {
  std::size_t count = 0;
  for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
    (void)entry;
    ++count;
  }
  return static_cast<double>(count);
}

void FindMany(int jobs) {
  for (int i = 0; i < jobs; ++i) {
    benchmark::DoNotOptimize(Thumb(UprightPhoto(), Thumb::OPT_BROVIX_EA, false).CalcOutputFile("medium"));
  }
}

void TenThousandJobs(benchmark::State& state) {
  for (auto iteration : state) {
    (void)iteration;
    FindMany(500);
    const double resident = ResidentBytes();
    const double descriptors = Descriptors();
    FindMany(10000);
    state.counters["resident_growth"] = ResidentBytes() - resident;
    state.counters["more_descriptors"] = Descriptors() - descriptors;
  }
}
BENCHMARK(TenThousandJobs)->Iterations(1)->Repetitions(1);

}  // namespace
}  // namespace tavithumb::bench
