// SPDX-License-Identifier: GPL-3.0-or-later
// Started by a web server for one request, or listening for many.
#include <poll.h>
#include <syslog.h>
#include <systemd/sd-daemon.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <exception>
#include <functional>
#include <iostream>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>

#include "system/descriptors.h"
#include "system/text.h"
#include "thumbs/file_memory.h"
#include "web/answer.h"
#include "web/confinement.h"
#include "web/connection.h"
#include "web/http_error.h"
#include "web/scgi_server.h"
#include "web/settings.h"
#include "web/workers.h"

namespace tavithumb::apps::web {
namespace {

enum ExitCode { kDone = 0, kFailed = 1, kBadUsage = 2 };

Workers MakeWorkers(const WorkerLimits& limits, const Confinement& confinement,
                    std::function<void(const Turn&)> answer) {
  return {limits, WorkerCallbacks{[&] { confinement.Enter(); }, std::move(answer), RemoveLeftovers}};
}

// Answers the one request in the environment, in a worker like any other.
void AnswerOne(const Settings& settings, const Service& service) {
  Workers workers = MakeWorkers({1, 0, std::chrono::seconds(settings.deadlineSeconds)}, service.confinement,
                                [&](const Turn& turn) { Answer(ReadEnvironment(), service, turn); });
  AnswerConnection(FileDescriptor(dup(STDOUT_FILENO)), &workers);
}

void AnswerMany(const Settings& settings, const Service& service, const Listener& listener) {
  const std::chrono::seconds timeout(settings.deadlineSeconds);
  const WorkerLimits limits = {settings.children, settings.senders, timeout};
  Workers workers = MakeWorkers(limits, service.confinement, [&](const Turn& turn) {
    try {
      if (const auto variables = ReadScgi(STDIN_FILENO)) Answer(*variables, service, turn);
    } catch (const HttpError& error) {
      Refuse({}, error, turn.state);
    }
  });
  sd_notify(0, "READY=1");
  Serve(listener, &workers, {settings.waiting, timeout});
}

std::unique_ptr<Listener> OpenListener(const Settings& settings) {
  if (!settings.scgiAddress.empty()) return std::make_unique<Listener>(settings.scgiAddress);
  if (sd_listen_fds(1) > 0) return std::make_unique<Listener>(FileDescriptor(SD_LISTEN_FDS_START));
  return nullptr;
}

// A web server may pass a query without "=" as the program's arguments: no address of this program has one.
bool IsQueryAsArguments() {
  const char* const query = std::getenv("QUERY_STRING");
  return query != nullptr && *query != '\0' && std::string(query).find('=') == std::string::npos;
}

int Run(int argc, char** argv) {
  const bool isCgi = std::getenv("GATEWAY_INTERFACE") != nullptr;
  if (isCgi && IsQueryAsArguments()) {
    std::cout << ErrorResponse({kBadRequest, "unknown parameter"}, true) << std::flush;
    return kDone;
  }
  const std::optional<Settings> settings = ReadSettings(argc, argv);
  if (!settings) return kDone;
  const std::unique_ptr<Listener> listener = isCgi ? nullptr : OpenListener(*settings);
  if (!isCgi && !listener) {
    throw std::invalid_argument("there is no request to answer: start it from a web server, or use --scgi to listen");
  }
  UseStore(settings->store);  // by which root may become its owner
  if (!StoreFolder().empty()) LimitStore(settings->storeSize);
  const Roots roots(settings->roots, settings->showsHidden);
  const Confinement confinement(roots, settings->limits, settings->policyFolder);
  FileMemory memory;
  const Service service = {roots, confinement, &memory, settings->sendfile, settings->byLibrary, settings->quality};
  if (isCgi) {
    AnswerOne(*settings, service);
  } else {
    AnswerMany(*settings, service, *listener);
  }
  return kDone;
}

int Fail(int code, const std::exception& error, const std::string& remedy) {
  std::cerr << "tavithumb-web: " + Printable(error.what()) + remedy + "\n";
  return code;
}

}  // namespace
}  // namespace tavithumb::apps::web

int main(int argc, char** argv) {
  using namespace tavithumb::apps;  // NOLINT(google-build-using-namespace)
  OpenStandardDescriptors();
  static_cast<void>(std::signal(SIGPIPE, SIG_IGN));
  openlog("tavithumb-web", LOG_PID, LOG_DAEMON);
  try {
    return web::Run(argc, argv);
  } catch (const std::invalid_argument& error) {
    return web::Fail(web::kBadUsage, error, "; see 'tavithumb-web --help'");
  } catch (const std::exception& error) {
    return web::Fail(web::kFailed, error, "");
  }
}
