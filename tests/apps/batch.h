// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <matching.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <fstream>
#include <map>
#include <string>
#include <vector>

#include "command_runner.h"
#include "system/text.h"

namespace tavithumb::test {

// Without the lines that report progress, which depend on timing.
class BatchRunner : public CommandRunner {
 public:
  Outcome operator()(const std::vector<std::string>& arguments, const Start& start = {}) const {
    return Await(Begin(arguments, start));
  }
  Outcome Await(pid_t child) const {
    Outcome outcome = CommandRunner::Await(child);
    outcome.err = Replaced(outcome.err, "tavithumb: [0-9]+/[0-9]+\\+?(  [^\n]*)?\n", "");
    return outcome;
  }
};

// Runs `tavithumb make` with tools that are watched, and misbehave for some names; see batch_probe.cpp.
class Batch : public testing::Test {
 protected:
  Start ProbedStart() const {
    Start start;
    start.environment = Preloading(BATCH_PROBE);
    start.environment.insert(start.environment.end(),
                             {"PROBE_FILE=" + noted, "PROBE_GATE=" + gate, "TMPDIR=" + temporary.Path()});
    return start;
  }

  Outcome Probed(const std::vector<std::string>& arguments) const { return run(arguments, ProbedStart()); }

  // How many lines written by the probe start like this.
  std::size_t Count(const std::string& begin) const {
    std::ifstream lines(noted);
    std::size_t count = 0;
    for (std::string line; std::getline(lines, line);) count += line.compare(0, begin.size(), begin) == 0 ? 1 : 0;
    return count;
  }

  void AwaitNoted(const std::string& begin, std::size_t count) const {
    while (Count(begin) < count) usleep(1000);
  }

  // In the folder for temporary files.
  std::vector<std::string> Leftovers() const { return Names(temporary.Path()); }

  // Nor the names in the summary.
  static std::string WithoutTime(const std::string& text) {
    const std::string unnamed = Replaced(text, "(\n {22,23}[0-9]+  [^:\n]*): [^\n]*", "$1");
    const std::string timeless = Replaced(unnamed, "in [0-9]+\\.[0-9] seconds", "in N seconds");
    return Replaced(timeless, "\n(slowest)? +[0-9.]+ s  [^\n]*(?=\n)", "");
  }

  // The summary: files, made, bytes, already there, not needed, failed.
  static std::string Table(const std::array<std::string, 6>& figures) {
    const auto right = [](const std::string& text) { return std::string(10 - text.size(), ' ') + text; };
    return "files         " + right(figures[0]) + "  in N seconds\n" +  //
           "made          " + right(figures[1]) + "  thumbnails, " + apps::ByteText(std::stoull(figures[2])) + "\n" +
           "already there " + right(figures[3]) + "  thumbnails\n" + "not needed    " + right(figures[4]) +
           "  thumbnails: the source is served unchanged\n" + "failed        " + right(figures[5]) + "  files\n";
  }

  const TempDir folder;
  const TempDir temporary;
  const TempDir notes;
  const std::string noted = notes / "noted";
  const std::string gate = notes / "gate";
  const BatchRunner run;
};

}  // namespace tavithumb::test
