#pragma once

#include <string_view>

#include "resetcause/Request.h"
#include "resetcause/Source.h"

namespace ResetCause {

// Our own record of who asked for the reload in the boot before.
class RequestSource : public Source {
 public:
  explicit RequestSource(const Root& root) : requests_(root) {}

  std::string_view name() const noexcept override { return "request"; }
  void look(const Boots& boots, Findings& findings) const override;

 private:
  const Requests requests_;
};

}  // namespace ResetCause
