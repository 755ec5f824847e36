// SPDX-License-Identifier: GPL-3.0-or-later
// The maker in one process and one thread, compared to other programs, by processor time. The photos are in the folder
// $TAVITHUMB_BENCH_PHOTOS, which bench/maker prepares.
#include <benchmark/benchmark.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <system_error>
#include <vector>

#include "maker/declined.h"
#include "maker/maker.h"
#include "processor_time.h"

namespace tavithumb::bench {
namespace {

void TimeEach(benchmark::State& state, int who, const std::function<void()>& work) {
  for ([[maybe_unused]] auto round : state) {
    const double before = ProcessorSeconds(who);
    work();
    state.SetIterationTime(ProcessorSeconds(who) - before);
  }
}

struct Photo {
  std::string name;
  std::string path;
  int quarterTurns;
};

std::vector<maker::Thumbnail> Make(const Photo& photo, const std::vector<int>& sides, bool usesPreviews) {
  std::vector<maker::Target> targets;
  for (const int side : sides) targets.push_back({{side, side}, false});
  maker::Source source;
  source.path = photo.path;
  source.orientation = maker::Orientation{photo.quarterTurns, false};
  maker::Options options;
  options.usesPreviews = usesPreviews;
  return maker::Make(source, targets, options);
}

// Quality is measured on the files that were timed.
void Write(const Photo& photo, const std::vector<int>& sides, const std::vector<maker::Thumbnail>& made) {
  for (std::size_t i = 0; i < sides.size(); ++i) {
    std::ofstream file(photo.path + ".made-" + std::to_string(sides[i]), std::ios::binary);
    file.write(reinterpret_cast<const char*>(made[i].bytes.data()), static_cast<std::streamsize>(made[i].bytes.size()));
  }
}

void Render(benchmark::State& state, const Photo& photo, const std::vector<int>& sides, bool usesPreviews) {
  std::vector<maker::Thumbnail> made;
  TimeEach(state, RUSAGE_SELF, [&] { made = Make(photo, sides, usesPreviews); });
  Write(photo, sides, made);
}

void RenderAll(benchmark::State& state, const std::vector<Photo>& photos, const std::vector<int>& sides,
               bool usesPreviews) {
  for ([[maybe_unused]] auto round : state) {
    double seconds = 0;
    for (const Photo& photo : photos) {
      const double before = ProcessorSeconds(RUSAGE_SELF);
      const std::vector<maker::Thumbnail> made = Make(photo, sides, usesPreviews);
      seconds += ProcessorSeconds(RUSAGE_SELF) - before;
      Write(photo, sides, made);
    }
    state.SetIterationTime(seconds);
  }
}

void RunEach(benchmark::State& state, const std::vector<std::string>& words) {
  TimeEach(state, RUSAGE_CHILDREN, [&] { RunProgram(words); });
}

template <typename... Arguments>
void Register(const std::string& name, const Arguments&... arguments) {
  benchmark::RegisterBenchmark(name.c_str(), arguments...)->UseManualTime()->Unit(benchmark::kMillisecond);
}

void RegisterPhoto(const Photo& photo) {
  Register(photo.name + "/three", Render, photo, std::vector<int>{120, 360, 640}, false);
  Register(photo.name + "/four", Render, photo, std::vector<int>{120, 360, 640, 1280}, false);
  Register(photo.name + "/small", Render, photo, std::vector<int>{120}, true);
  for (const int side : {640, 1280}) {
    const std::string box = std::to_string(side) + "x" + std::to_string(side);
    const std::string output = photo.path + ".vips-" + std::to_string(side) + ".jpg[Q=80,strip]";
    Register(photo.name + "/vips" + std::to_string(side), RunEach,
             std::vector<std::string>{"/usr/bin/vipsthumbnail", "-s", box, "-o", output, photo.path});
  }
  if (photo.path.find(".jpg") == std::string::npos) return;
  Register(photo.name + "/floor", RunEach,
           std::vector<std::string>{"/usr/bin/djpeg", "-scale", "1/8", "-dct", "fast", "-onepass", "-outfile",
                                    "/dev/null", photo.path});
}

// Of each camera raw file in the folder, from the preview that the camera has embedded. Some samples are only headers.
void RegisterRaw(const std::string& folder) {
  std::error_code missing;
  for (const auto& entry : std::filesystem::directory_iterator(folder, missing)) {
    const Photo photo = {"", entry.path(), 0};
    const std::vector<int> small = {120};
    try {
      Make(photo, small, true);
      Register("raw/" + entry.path().filename().string(), Render, photo, small, true);
    } catch (const maker::Declined&) {
    }
  }
}

// Many photos, as they are stored.
void RegisterAll(const std::string& folder) {
  std::vector<Photo> photos;
  std::error_code missing;
  for (const auto& entry : std::filesystem::directory_iterator(folder, missing)) {
    if (entry.path().extension() == ".jpg") photos.push_back({"", entry.path(), 0});
  }
  if (photos.empty()) return;
  Register("all/three", RenderAll, photos, std::vector<int>{120, 360, 640}, true);
  Register("all/four", RenderAll, photos, std::vector<int>{120, 360, 640, 1280}, false);
}

}  // namespace
}  // namespace tavithumb::bench

int main(int argc, char** argv) {
  const char* const folder = std::getenv("TAVITHUMB_BENCH_PHOTOS");  // NOLINT(concurrency-mt-unsafe): one thread
  if (folder == nullptr) return 2;
  benchmark::Initialize(&argc, argv);
  const std::vector<tavithumb::bench::Photo> photos = {
      {"upright", "upright.jpg", 0}, {"rotated", "rotated.jpg", 1},
      {"large", "large.jpg", 0},     {"progressive", "progressive.jpg", 0},
      {"p3", "p3.jpg", 0},           {"rgb", "rgb.png", 0},
      {"rgba", "rgba.png", 0},       {"heic", "phone.heic", 0},
      {"item", "item.heic", 0},      {"tiff", "scan.tif", 0},
      {"webp", "photo.webp", 0}};
  for (tavithumb::bench::Photo photo : photos) {
    photo.path = std::string(folder) + "/" + photo.path;
    if (access(photo.path.c_str(), R_OK) == 0) RegisterPhoto(photo);
  }
  tavithumb::bench::RegisterRaw(std::string(folder) + "/raw");
  tavithumb::bench::RegisterAll(std::string(folder) + "/photos");
  benchmark::RunSpecifiedBenchmarks();
}
