// SPDX-License-Identifier: GPL-3.0-or-later
// Making a thumbnail, compared to the bare tools with the same arguments and
// to another thumbnailer.
#include <benchmark/benchmark.h>
#include <tavithumb/libtavithumb.h>

#include <cstdlib>
#include <functional>
#include <iostream>

#include "environment.h"

namespace tavithumb::bench {
namespace {

void Make(benchmark::State& state, const std::string& photo, const std::string& size) {
  TimeEach(
      state, [&] { ForgetThumbnails(photo); },
      [&] {
        Thumb job(photo, Thumb::OPT_BROVIX_EA, false);
        if (job.CalcOutputFile(size).empty() || job.GetOutputType() != "Brovix") {
          std::cerr << "no " << size << " thumbnail of " << photo << "\n";
          std::exit(1);
        }
      });
}

void RunEach(benchmark::State& state, const std::vector<std::vector<std::string>>& commands) {
  TimeEach(
      state, [] {},
      [&] {
        for (const std::vector<std::string>& argv : commands) Run(argv);
      });
}

std::vector<std::string> DJpeg(const std::string& scale, const std::string& photo) {
  return {"/usr/bin/djpeg", "-scale", scale,      "-dct",         "fast", "-fast",
          "-onepass",       "-bmp",   "-outfile", photo + ".bmp", photo};
}

std::vector<std::string> Vips(const std::string& box, const std::string& photo) {
  return {"/usr/bin/vipsthumbnail", "-s", box, "-o", photo + ".vips.jpg", photo};
}

// The preview of 512 x 384 is too large for a box of 120 x 120.
void MakeUpright(benchmark::State& state) {
  Make(state, UprightPhoto(), "small");
}
void BareDJpeg(benchmark::State& state) {
  RunEach(state, {DJpeg("1/8", UprightPhoto())});
}
void VipsSmall(benchmark::State& state) {
  RunEach(state, {Vips("120x120", UprightPhoto())});
}

void MakeFromPreview(benchmark::State& state) {
  Make(state, UprightPhoto(), "medium");
}
void VipsMedium(benchmark::State& state) {
  RunEach(state, {Vips("360x360", UprightPhoto())});
}

void MakeRotated(benchmark::State& state) {
  Make(state, RotatedPhoto(), "big");
}
void BareRotated(benchmark::State& state) {
  const std::string& photo = RotatedPhoto();
  RunEach(state, {DJpeg("1/4", photo),
                  {"/usr/bin/convert", "-strip", "-colorspace", "sRGB", photo + ".bmp[0]", "-thumbnail", "640x640",
                   "-rotate", "90", "-rotate", "0", photo + ".out.jpg"}});
}

// The command as a whole process, as a script would run it.
void RunCommand(benchmark::State& state, const std::function<void()>& prepare) {
  TimeEach(state, prepare, [] { Run({TAVITHUMB_COMMAND, "get", "--size", "small", UprightPhoto()}); });
}
void CommandMakes(benchmark::State& state) {
  RunCommand(state, [] { ForgetThumbnails(UprightPhoto()); });
}
void CommandFinds(benchmark::State& state) {
  RunCommand(state, [] {});
}

// A size that the photo's preview is too small for.
void CommandRenders(benchmark::State& state) {
  const std::string& photo = UprightPhoto();
  RunEach(state, {{TAVITHUMB_COMMAND, "render", "--size", "big", photo, photo + ".out.jpg"}});
}
void VipsBig(benchmark::State& state) {
  RunEach(state, {Vips("640x640", UprightPhoto())});
}

BENCHMARK(CommandRenders)->UseManualTime();
BENCHMARK(VipsBig)->UseManualTime();
BENCHMARK(CommandMakes)->UseManualTime();
BENCHMARK(CommandFinds)->UseManualTime();
BENCHMARK(MakeUpright)->UseManualTime();
BENCHMARK(BareDJpeg)->UseManualTime();
BENCHMARK(VipsSmall)->UseManualTime();
BENCHMARK(MakeFromPreview)->UseManualTime();
BENCHMARK(VipsMedium)->UseManualTime();
BENCHMARK(MakeRotated)->UseManualTime();
BENCHMARK(BareRotated)->UseManualTime();

}  // namespace
}  // namespace tavithumb::bench
