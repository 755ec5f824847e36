// SPDX-License-Identifier: GPL-3.0-or-later
#include "pictures.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <exiv2/exiv2.hpp>
#include <filesystem>
#include <stdexcept>

#include "temp_dir.h"

namespace fs = std::filesystem;

namespace tavithumb::test {
namespace {

const char kConvert[] = "/usr/bin/convert";
const char kIdentify[] = "/usr/bin/identify";
const char kHeifEnc[] = "/usr/bin/heif-enc";

std::string Box(int width, int height) {
  return std::to_string(width) + "x" + std::to_string(height);
}

// Arguments of convert that draw the scene: a block of a different colour in each corner and a black triangle at the
// upper left.
std::vector<std::string> Scene(int width, int height) {
  return {"-size",
          "300x200",
          "xc:red",
          "-fill",
          "lime",
          "-draw",
          "rectangle 150,0 299,99",
          "-fill",
          "blue",
          "-draw",
          "rectangle 0,100 149,199",
          "-fill",
          "yellow",
          "-draw",
          "rectangle 150,100 299,199",
          "-fill",
          "black",
          "-draw",
          "polygon 20,20 130,20 20,170",
          "-resize",
          Box(width, height) + "!"};
}

void Append(std::vector<std::string>& argv, const std::vector<std::string>& more) {
  argv.insert(argv.end(), more.begin(), more.end());
}

void MakeStill(const std::string& format, const std::string& path, int width, int height,
               const std::vector<std::string>& options) {
  DrawOnce(format + " " + Box(width, height), path, [&](const std::string& target) {
    std::vector<std::string> argv = {kConvert};
    Append(argv, Scene(width, height));
    Append(argv, options);
    argv.push_back(format + ":" + target);
    RunTool(argv);
  });
}

std::string BigEndian(std::size_t number) {
  std::string bytes;
  for (int shift = 24; shift >= 0; shift -= 8) bytes.push_back(static_cast<char>(number >> shift & 0xFF));
  return bytes;
}

std::string Padded(std::string text, std::size_t size) {
  text.resize(size, '\0');
  return text;
}

// A JPEG that starts with its Exif block, as written by cameras: without the JFIF block before it.
std::string WithoutJfif(std::string jpeg) {
  if (jpeg.compare(2, 2, "\xFF\xE0") != 0) return jpeg;
  const std::size_t length = static_cast<unsigned char>(jpeg[4]) * 256u + static_cast<unsigned char>(jpeg[5]);
  return jpeg.erase(2, 2 + length);
}

std::string ReadAll(int descriptor) {
  std::string content;
  char buffer[4096];
  for (;;) {
    const ssize_t got = read(descriptor, buffer, sizeof buffer);
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) return content;
    content.append(buffer, static_cast<std::size_t>(got));
  }
}

// The child's standard output is the write end of `pipeEnds`.
pid_t Spawn(const std::vector<std::string>& argv, const int (&pipeEnds)[2]) {
  std::vector<char*> words;
  for (const std::string& word : argv) words.push_back(const_cast<char*>(word.c_str()));
  words.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, pipeEnds[1], STDOUT_FILENO);
  pid_t child = -1;
  const int failure = posix_spawn(&child, argv.front().c_str(), &actions, nullptr, words.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  close(pipeEnds[1]);
  if (failure == 0) return child;
  close(pipeEnds[0]);
  throw std::runtime_error("cannot start " + argv.front());
}

int WaitFor(pid_t child) {
  int status = 0;
  while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
  }
  return status;
}

std::string Thumbnail(const std::string& path) {
  return RunTool({kConvert, path + "[0]", "-background", "white", "-alpha", "remove", "-colorspace", "sRGB", "-type",
                  "TrueColor", "-resize", "32x32!", "-depth", "8", "rgb:-"});
}

template <typename Change>
void ChangeExif(const std::string& path, Change change) {
  auto image = Exiv2::ImageFactory::open(path);
  image->readMetadata();
  change(image->exifData());
  image->writeMetadata();
}

}  // namespace

void DrawOnce(const std::string& name, const std::string& path, const std::function<void(const std::string&)>& draw) {
  const std::string folder = DRAWN_PICTURES;
  if (access(folder.c_str(), W_OK) != 0) return draw(path);
  const std::string drawn = folder + "/" + name;
  if (!Exists(drawn)) {
    const std::string unfinished = drawn + " " + std::to_string(getpid());
    draw(unfinished);
    fs::rename(unfinished, drawn);
  }
  fs::copy_file(drawn, path, fs::copy_options::overwrite_existing);
}

void MakeJpeg(const std::string& path, int width, int height) {
  MakeStill("jpg", path, width, height, {"-quality", "90"});
}

void MakePng(const std::string& path, int width, int height) {
  MakeStill("png", path, width, height, {});
}

void MakeBmp(const std::string& path, int width, int height) {
  MakeStill("bmp3", path, width, height, {});
}

void MakeTiff(const std::string& path, int width, int height) {
  MakeStill("tiff", path, width, height, {});
}

void MakeGif(const std::string& path, int width, int height, int frames) {
  DrawOnce("gif " + Box(width, height) + " " + std::to_string(frames), path, [&](const std::string& target) {
    std::vector<std::string> argv = {kConvert, "-delay", "10", "-loop", "0"};
    for (int frame = 0; frame < frames; ++frame) {
      const std::string left = std::to_string(160 + 10 * frame);
      const std::string right = std::to_string(168 + 10 * frame);
      argv.push_back("(");
      Append(argv, Scene(300, 200));
      Append(argv, {"-fill", "white", "-draw", "rectangle " + left + ",160 " + right + ",180", "-resize",
                    Box(width, height) + "!", ")"});
    }
    Append(argv, {"-layers", "optimize", "gif:" + target});
    RunTool(argv);
  });
}

void MakeHeic(const std::string& path, int width, int height, bool withExif) {
  DrawOnce((withExif ? "heic with Exif " : "heic ") + Box(width, height), path, [&](const std::string& target) {
    const TempDir directory;
    const std::string jpeg = directory / "scene.jpg";
    MakeJpeg(jpeg, width, height);
    if (withExif) SetExif(jpeg, {{"Exif.Image.Make", "Test"}});
    RunTool({kHeifEnc, "-q", "80", jpeg, "-o", target});
  });
}

void MakeRaf(const std::string& path, const std::string& jpegPath) {
  const TempDir directory;
  const std::string preview = directory / "preview.jpg";
  fs::copy_file(jpegPath, preview);
  SetExif(preview, {{"Exif.Image.Make", "FUJIFILM"}, {"Exif.Image.Model", "FinePix S5Pro"}});
  const std::string jpeg = WithoutJfif(ReadFile(preview));

  const std::size_t headerSize = 148;
  const std::string cfaHeader = Padded("", 4);
  const std::string cfaData = Padded("", 64);
  const std::size_t cfaHeaderOffset = headerSize + jpeg.size();
  const std::size_t cfaDataOffset = cfaHeaderOffset + cfaHeader.size();
  std::string file = Padded("FUJIFILMCCD-RAW 0201FF392201FinePix S5Pro", 60) + Padded("0106", 24);
  file += BigEndian(headerSize) + BigEndian(jpeg.size());
  file += BigEndian(cfaHeaderOffset) + BigEndian(cfaHeader.size());
  file += BigEndian(cfaDataOffset) + BigEndian(cfaData.size());
  WriteFile(path, Padded(file, headerSize) + jpeg + cfaHeader + cfaData);
}

void SetExif(const std::string& path, const std::vector<std::pair<std::string, std::string>>& values) {
  ChangeExif(path, [&](Exiv2::ExifData& exif) {
    for (const auto& [key, value] : values) exif[key] = value;
  });
}

void SetPreview(const std::string& path, const std::string& previewPath) {
  ChangeExif(path, [&](Exiv2::ExifData& exif) { Exiv2::ExifThumb(exif).setJpegThumbnail(previewPath); });
}

PictureFacts Identify(const std::string& path) {
  const std::string answer = RunTool({kIdentify, "-format", "%m %w %h %n %W %H\n", path});
  char format[32] = "";
  PictureFacts facts{"", 0, 0, 0};
  int canvasWidth = 0;
  int canvasHeight = 0;
  if (std::sscanf(answer.c_str(), "%31s %d %d %d %d %d", format, &facts.width, &facts.height, &facts.frames,
                  &canvasWidth, &canvasHeight) != 6) {
    throw std::runtime_error("no picture: " + path);
  }
  facts.format = format;
  // A frame of an animation may cover only a part of it.
  if (facts.format == "GIF") return {facts.format, canvasWidth, canvasHeight, facts.frames};
  return facts;
}

double Difference(const std::string& a, const std::string& b) {
  const std::string left = Thumbnail(a);
  const std::string right = Thumbnail(b);
  if (left.empty() || left.size() != right.size()) throw std::runtime_error("cannot compare " + a + " with " + b);
  double sum = 0;
  for (std::size_t i = 0; i < left.size(); ++i) {
    sum += std::abs(static_cast<unsigned char>(left[i]) - static_cast<unsigned char>(right[i]));
  }
  return sum / 255 / static_cast<double>(left.size());
}

std::string RunTool(const std::vector<std::string>& argv) {
  int pipeEnds[2];
  if (pipe2(pipeEnds, O_CLOEXEC) != 0) throw std::runtime_error("pipe");
  const pid_t child = Spawn(argv, pipeEnds);
  const std::string output = ReadAll(pipeEnds[0]);
  close(pipeEnds[0]);
  const int status = WaitFor(child);
  if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) throw std::runtime_error("failed: " + argv.front());
  return output;
}

std::string SamplesFolder() {
  const char* chosen = std::getenv("TAVITHUMB_SAMPLES");
  const std::string folder = chosen != nullptr ? chosen : TAVITHUMB_SAMPLES;
  return fs::is_directory(folder) ? folder : "";
}

}  // namespace tavithumb::test
