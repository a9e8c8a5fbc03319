#pragma once

#include <string_view>

#include "Qel/EventLoop.h"
#include "Qel/Ptr.h"

namespace Qel {

// The service manager (systemd) that started this process, told how the process fares. Where there
// is none, or this was built without libsystemd, nothing is told.
//
// Where the manager wants signs of life, they come from the loop, twice in the time that it allows:
// a process whose loop hangs gives none, and is started anew.
class ServiceManager {
 public:
  // `loop` must outlive it.
  explicit ServiceManager(EventLoop& loop);
  ServiceManager(const ServiceManager&) = delete;
  ServiceManager& operator=(const ServiceManager&) = delete;
  // Says that the process is about to end.
  ~ServiceManager();

  // Says that the process serves, and what: `status` is shown to whoever asks the manager.
  void readyIs(std::string_view status);

 private:
  void giveSigns();

  EventLoop& loop_;
  const double interval_;  // between two signs, in seconds; 0 where none are wanted
  Ptr<EventWatch> timer_;
};

}  // namespace Qel
