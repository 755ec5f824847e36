// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <functional>
#include <string>
#include <vector>

namespace benchmark {
class State;
}

namespace tavithumb::bench {

// A camera JPEG in a temporary folder: a copy of a sample, or one of the same
// size generated with the real tools. samsung-s7-edge: 4032 x 3024, upright, with
// a preview of 512 x 384. canon-1000d-rotated: 3888 x 2592, orientation 6.
const std::string& UprightPhoto();
const std::string& RotatedPhoto();

// Removes everything that is stored for a photo.
void ForgetThumbnails(const std::string& photo);

// Runs a program through the platform's runner; exits the benchmark program if
// it fails.
void Run(const std::vector<std::string>& argv);

// Times only `work`, not the `prepare` before each run.
void TimeEach(benchmark::State& state, const std::function<void()>& prepare, const std::function<void()>& work);

}  // namespace tavithumb::bench
