#pragma once

#include <optional>
#include <string>

#include "Qel/Clock.h"
#include "resetcause/Root.h"

namespace ResetCause {

// The last sign of life of a boot: who beats, and when it last did.
struct Beat {
  std::string boot;
  double time = 0;
};

// A file that is written again and again while the machine runs, so that the next boot knows until
// when it did: the boot and the time, in one sector, in place and synced. The first beat of a boot
// puts that of the boot before aside, so whoever reads it may come later.
class Heartbeat {
 public:
  explicit Heartbeat(const Root& root) : root_(root) {}

  // Raises std::system_error.
  void beat(const std::string& boot, const Qel::Clock& clock) const;
  // The last one of another boot than `boot`; nothing where there is none. Raises as readState()
  // does.
  std::optional<Beat> lastBefore(const std::string& boot) const;

 private:
  std::string path() const;
  std::string pathBefore() const;

  const Root root_;
};

}  // namespace ResetCause
