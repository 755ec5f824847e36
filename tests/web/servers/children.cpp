// SPDX-License-Identifier: GPL-3.0-or-later
#include "children.h"

#include <pictures.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <iterator>
#include <sstream>
#include <string>

namespace fs = std::filesystem;

namespace tavithumb::test {
namespace {

// A worker without a request has nothing as its standard input.
bool IsIdle(pid_t worker) {
  std::error_code gone;
  return fs::read_symlink("/proc/" + std::to_string(worker) + "/fd/0", gone) == "/dev/null";
}

}  // namespace

std::vector<pid_t> ChildrenOf(const Site& site) {
  const std::string id = std::to_string(site.Program().Id());
  std::istringstream numbers(ReadFile("/proc/" + id + "/task/" + id + "/children"));
  return {std::istream_iterator<pid_t>(numbers), std::istream_iterator<pid_t>()};
}

std::vector<pid_t> BusyChildrenOf(const Site& site) {
  std::vector<pid_t> children = ChildrenOf(site);
  children.erase(std::remove_if(children.begin(), children.end(), IsIdle), children.end());
  return children;
}

void AwaitIdleWorkers(const Site& site) {
  for (int i = 0; i < 6000 && !BusyChildrenOf(site).empty(); ++i) usleep(10000);
}

}  // namespace tavithumb::test
