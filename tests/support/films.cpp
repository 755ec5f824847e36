// SPDX-License-Identifier: GPL-3.0-or-later
#include "films.h"

#include <unistd.h>

#include <stdexcept>

#include "pictures.h"
#include "temp_dir.h"

namespace tavithumb::test {
namespace {

void RunFfmpeg(std::vector<std::string> arguments) {
  arguments.insert(arguments.begin(), {"/usr/bin/ffmpeg", "-v", "error", "-nostdin", "-y"});
  RunTool(arguments);
}

}  // namespace

bool HasFilmTools() {
  return access("/usr/bin/ffmpeg", X_OK) == 0 && access("/usr/bin/ffmpegthumbnailer", X_OK) == 0;
}

void MakeFilm(const std::string& path, const std::string& scene, int seconds, const std::vector<std::string>& options) {
  std::vector<std::string> arguments = {"-loop", "1", "-framerate", "5", "-i", scene, "-t", std::to_string(seconds)};
  const std::vector<std::string> coding = {"-c:v", "mpeg4", "-q:v", "2", "-g", "5", "-pix_fmt", "yuv420p"};
  arguments.insert(arguments.end(), coding.begin(), coding.end());
  arguments.insert(arguments.end(), options.begin(), options.end());
  arguments.push_back("file:" + path);
  RunFfmpeg(arguments);
}

void MakeFilmThatStartsBlack(const std::string& path, const std::string& scene, int blackSeconds, int seconds) {
  const std::string black = std::to_string(5 * blackSeconds);
  MakeFilm(path, scene, seconds, {"-vf", "format=yuv420p,drawbox=color=black:t=fill:enable='lt(n," + black + ")'"});
}

// The matrix is in the first track's header: 36 bytes, 40 behind the name of its box.
void TurnFilm(const std::string& path) {
  std::string film = ReadFile(path);
  const std::size_t header = film.find("tkhd");
  if (header == std::string::npos) throw std::runtime_error(path + " has no track");
  const std::string one("\0\1\0\0", 4), minusOne("\xff\xff\0\0", 4), zero(4, '\0'), last("\x40\0\0\0", 4);
  film.replace(header + 44, 36, zero + one + zero + minusOne + zero + zero + zero + zero + last);
  WriteFile(path, film);
}

void AddCover(const std::string& film, const std::string& cover, const std::string& path) {
  const bool isMatroska = path.substr(path.size() - 4) == ".mkv";
  if (isMatroska) {
    return RunFfmpeg({"-i", film, "-attach", cover, "-metadata:s:t", "mimetype=image/jpeg", "-metadata:s:t",
                      "filename=cover.jpg", "-c", "copy", path});
  }
  RunFfmpeg(
      {"-i", film, "-i", cover, "-map", "0", "-map", "1", "-c", "copy", "-disposition:v:1", "attached_pic", path});
}

void MakeHdrFilm(const std::string& path, const std::string& scene, const std::string& transfer) {
  const std::string filter =
      "scale=out_color_matrix=bt709:out_range=tv,format=yuv420p,"
      "setparams=color_primaries=bt709:color_trc=bt709:colorspace=bt709:range=tv,zscale=transfer=linear:npl=203,"
      "format=gbrpf32le,zscale=primaries=bt2020:transfer=" +
      transfer + ":matrix=bt2020nc:npl=203:range=limited,format=yuv420p10le";
  MakeFilm(path, scene, 2,
           {"-vf",
            filter,
            "-c:v",
            "libx265",
            "-preset",
            "ultrafast",
            "-crf",
            "12",
            "-pix_fmt",
            "yuv420p10le",
            "-x265-params",
            "log-level=none:colorprim=bt2020:transfer=" + transfer + ":colormatrix=bt2020nc",
            "-color_primaries",
            "bt2020",
            "-color_trc",
            transfer,
            "-colorspace",
            "bt2020nc",
            "-color_range",
            "tv"});
}

}  // namespace tavithumb::test
