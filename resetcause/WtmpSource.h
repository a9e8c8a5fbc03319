#pragma once

#include <string_view>

#include "resetcause/Root.h"
#include "resetcause/Source.h"

namespace ResetCause {

// Whether the boot before was shut down in order, by the record of it in wtmp: never why.
class WtmpSource : public Source {
 public:
  explicit WtmpSource(const Root& root) : root_(root) {}

  std::string_view name() const noexcept override { return "wtmp"; }
  void look(const Boots& boots, Findings& findings) const override;

 private:
  const Root root_;
};

}  // namespace ResetCause
