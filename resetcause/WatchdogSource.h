#pragma once

#include <string_view>

#include "resetcause/Root.h"
#include "resetcause/Source.h"

namespace ResetCause {

// What the drivers of hardware watchdogs say of the reset before this boot, in sysfs: to open the
// device itself would start it.
class WatchdogSource : public Source {
 public:
  explicit WatchdogSource(const Root& root) : root_(root) {}

  std::string_view name() const noexcept override { return "watchdog"; }
  void look(const Boots& boots, Findings& findings) const override;

 private:
  const Root root_;
};

}  // namespace ResetCause
