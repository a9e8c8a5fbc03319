#pragma once

#include <string>
#include <string_view>

#include "resetcause/Journal.h"
#include "resetcause/Source.h"

namespace ResetCause {

// Why the kernel of this boot says that the machine was reset, as newer kernels read it from the
// hardware: from the journal, or where there is none from the log of the kernel that runs.
class KernelSource : public Source {
 public:
  // `journal` must outlive it.
  KernelSource(const Root& root, const Journal& journal) : root_(root), journal_(journal) {}

  std::string_view name() const noexcept override { return "kernel"; }
  void look(const Boots& boots, Findings& findings) const override;

 private:
  const Root root_;
  const Journal& journal_;
};

// The reason in a line of the kernel; empty in any other line.
std::string resetReasonIn(std::string_view line);

}  // namespace ResetCause
