// SPDX-License-Identifier: GPL-3.0-or-later
// Finding a stored thumbnail, compared to the minimum cost of reading the same
// facts.
#include <benchmark/benchmark.h>
#include <tavithumb/libtavithumb.h>
#include <unistd.h>

#include <exiv2/exiv2.hpp>

#include "environment.h"

namespace tavithumb::bench {
namespace {

void FindStored(benchmark::State& state) {
  const std::string& photo = UprightPhoto();
  Thumb(photo, Thumb::OPT_BROVIX_EA, false).CalcOutputFile("medium");
  for (auto iteration : state) {
    (void)iteration;
    Thumb job(photo, Thumb::OPT_BROVIX_EA, false);
    benchmark::DoNotOptimize(job.CalcOutputFile("medium"));
  }
}
BENCHMARK(FindStored)->UseRealTime();

// Open, read, list the previews, write the largest; and remove it, as the job
// does.
void BareExiv2(benchmark::State& state) {
  const std::string& photo = UprightPhoto();
  for (auto iteration : state) {
    (void)iteration;
    const auto image = Exiv2::ImageFactory::open(photo);
    image->readMetadata();
    const Exiv2::PreviewManager manager(*image);
    const Exiv2::PreviewImage preview = manager.getPreviewImage(manager.getPreviewProperties().back());
    const std::string path = "/tmp/tavithumb-bench." + std::to_string(getpid());
    benchmark::DoNotOptimize(preview.writeFile(path));
    unlink((path + preview.extension()).c_str());
  }
}
BENCHMARK(BareExiv2)->UseRealTime();

}  // namespace
}  // namespace tavithumb::bench
