#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "resetcause/Journal.h"
#include "resetcause/Source.h"

namespace ResetCause {

// What the journal of the boot before tells of its end.
class JournalSource : public Source {
 public:
  // `journal` must outlive it.
  explicit JournalSource(const Journal& journal) : journal_(journal) {}

  std::string_view name() const noexcept override { return "journal"; }
  void look(const Boots& boots, Findings& findings) const override;

 private:
  const Journal& journal_;
};

// What init said, for whoever reads the end of a boot.
struct InitLine {
  double time = 0;
  double monotonic = 0;
  std::string message;
  std::string failedUnit = {};  // where it is the failure of a unit

  friend bool operator==(const InitLine&, const InitLine&) = default;
};

// The evidence in the last lines of init, in their order.
std::vector<Evidence> readInitLines(const std::vector<InitLine>& lines, const std::string& place);

}  // namespace ResetCause
