// SPDX-License-Identifier: GPL-3.0-or-later
#include "web/confinement.h"

#include <sys/resource.h>
#include <tavithumb/util.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <system_error>

#include "system/soft_limit.h"
#include "thumbs/imagemagick_policy.h"
#include "thumbs/store.h"
#include "thumbs/temporary_files.h"

namespace tavithumb::apps::web {
namespace {

FileRules MakeRules(const Roots& roots, const std::string& policyFolder) {
  FileRules rules;
  const FileRules::Access ofRoots = IsStoreForAll() ? FileRules::Access::kRead : FileRules::Access::kStore;
  for (const Root& root : roots.All()) rules.Allow(root.folder, ofRoots);
  if (!StoreFolder().empty()) rules.Allow(StoreFolder(), FileRules::Access::kStore);
  for (const char* folder : file::TEMPORARY_FOLDERS) rules.Allow(folder, FileRules::Access::kStore);
  rules.Allow(policyFolder, FileRules::Access::kRead);
  rules.AllowSystem();
  return rules;
}

void Limit(__rlimit_resource resource, rlim_t maximum) {
  rlimit limit = {};
  if (maximum == 0 || getrlimit(resource, &limit) != 0 || limit.rlim_max < maximum) return;
  limit.rlim_cur = limit.rlim_max = maximum;
  setrlimit(resource, &limit);
}

}  // namespace

Confinement::Confinement(const Roots& roots, const ToolLimits& limits, const std::string& policyFolder)
    : limits_(limits), policyFolder_(policyFolder), rules_(MakeRules(roots, policyFolder)) {}

void Confinement::Enter() const {
  constexpr rlim_t mebibyte = 1048576;
  const rlimit none = {0, 0};
  setrlimit(RLIMIT_CORE, &none);
  Limit(RLIMIT_AS, limits_.memoryMiB * mebibyte);
  Limit(RLIMIT_FSIZE, limits_.fileSizeMiB * mebibyte);
  Limit(RLIMIT_NOFILE, limits_.openFiles);
  static_cast<void>(std::signal(SIGXFSZ, SIG_IGN));  // writing beyond the limit fails instead
  rules_.Enter();
}

void Confinement::LimitProcessorTime() const {
  if (limits_.cpuSeconds != 0) Limit(RLIMIT_CPU, ProcessorSecondsUsed() + limits_.cpuSeconds);
}

void Confinement::SetEnvironment(const Variables& variables) const {
  clearenv();
  setenv("PATH", "/usr/bin:/bin", 1);
  UsePolicy(policyFolder_);
  // ImageMagick's own limit also counts time spent waiting.
  if (limits_.cpuSeconds != 0) setenv("MAGICK_TIME_LIMIT", std::to_string(limits_.cpuSeconds).c_str(), 1);
  setenv("GATEWAY_INTERFACE", "CGI/1.1", 1);
  for (const char* name : {"REQUEST_METHOD", "HTTP_IF_MATCH", "HTTP_IF_UNMODIFIED_SINCE", "HTTP_IF_NONE_MATCH",
                           "HTTP_IF_MODIFIED_SINCE", "HTTP_IF_RANGE", "HTTP_RANGE"}) {
    const auto variable = variables.find(name);
    if (variable != variables.end()) setenv(name, variable->second.c_str(), 1);
  }
}

ScratchFolder::ScratchFolder(RequestState* state) : state_(state) {
  const std::string path = MakeScratchFolder("/tmp/tavithumb-web.XXXXXX");
  state_->scratch[path.copy(state_->scratch.data(), state_->scratch.size() - 1)] = '\0';
  UseScratchFolder(path);
}

ScratchFolder::~ScratchFolder() {
  std::error_code ignored;
  std::filesystem::remove_all(state_->scratch.data(), ignored);
  state_->scratch.front() = '\0';
}

void RemoveLeftovers(pid_t worker, const RequestState& state) {
  std::error_code ignored;
  if (state.scratch.front() != '\0') std::filesystem::remove_all(state.scratch.data(), ignored);
  RemovePreviews(worker);
}

}  // namespace tavithumb::apps::web
