// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <string>

#include "system/clock.h"

namespace tavithumb::apps {

// The service manager that has started this process, if it wants to hear of it: the socket that $NOTIFY_SOCKET names
// gets datagrams, as sd_notify(3) describes. Its library is not used: with the libraries that come with it, every short
// command would take twice as long to start.
class ServiceManager {
 public:
  ServiceManager();

  void SayReady() const { Say("READY=1"); }
  void SayStopping() const { Say("STOPPING=1"); }
  // Call it whenever the process has proved that it is alive, and at NextEvent(): the service manager ends one of which
  // it has not heard for long.
  void SayAlive();
  Clock::time_point NextEvent() const { return next_; }

 private:
  void Say(const std::string& message) const;

  std::string socket_;  // "" for none
  Clock::duration interval_ = {};
  Clock::time_point next_ = noDeadline;
};

}  // namespace tavithumb::apps
