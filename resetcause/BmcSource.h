#pragma once

#include <string_view>

#include "resetcause/Root.h"
#include "resetcause/Source.h"

namespace ResetCause {

// The management controller, through the kernel's driver; without its device there is none.
// A device on the disk of another machine is that of the machine that this runs on.
class BmcSource : public Source {
 public:
  explicit BmcSource(const Root& root) : root_(root) {}

  std::string_view name() const noexcept override { return "bmc"; }
  void look(const Boots& boots, Findings& findings) const override;

 private:
  const Root root_;
};

}  // namespace ResetCause
