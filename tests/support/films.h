// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <string>
#include <vector>

namespace tavithumb::test {

// Whether films can be made, and stills of them taken.
bool HasFilmTools();

// Makes a film of the picture at `scene` with ffmpeg, the type of which is that of its name, and with these options for
// its coding. Throws std::runtime_error if ffmpeg fails, like the functions below.
void MakeFilm(const std::string& path, const std::string& scene, int seconds,
              const std::vector<std::string>& options = {});

// The first seconds of the film are black.
void MakeFilmThatStartsBlack(const std::string& path, const std::string& scene, int blackSeconds, int seconds);

// Marks an MP4 film to be shown turned clockwise by a quarter.
void TurnFilm(const std::string& path);

// Embeds a picture as the cover; `path` is the new file.
void AddCover(const std::string& film, const std::string& cover, const std::string& path);

// A film in HDR that shows the scene: in the given transfer, smpte2084 or arib-std-b67.
void MakeHdrFilm(const std::string& path, const std::string& scene, const std::string& transfer);

}  // namespace tavithumb::test
