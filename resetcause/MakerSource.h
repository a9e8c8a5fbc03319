#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "resetcause/Root.h"
#include "resetcause/Source.h"

namespace ResetCause {

// What the maker of a device knows of its own hardware: the reset register that only a driver or a
// program of the maker's can read. Either a program prints it, or a service of each boot leaves it
// in /run: so it is of this boot.
class MakerSource : public Source {
 public:
  static constexpr char kProgram[] = "/usr/lib/norvek/reset-register";
  static constexpr char kFile[] = "/run/norvek/reset-register.json";

  explicit MakerSource(const Root& root) : root_(root) {}

  std::string_view name() const noexcept override { return "maker"; }
  // The program is run on the machine itself alone.
  void look(const Boots& boots, Findings& findings) const override;

 private:
  const Root root_;
};

// {"cause": TEXT, "time": SECONDS, "detail": TEXT}: of these "cause" alone must be there; where it
// is null, the register tells nothing, and so does this. Raises Qel::Exception for any other text.
std::optional<Evidence> readMaker(std::string_view json, const std::string& place);

// The evidence of the maker's program. Raises SourceException, also for one that others than root
// and whoever runs this could have changed.
std::optional<Evidence> askMaker(const std::string& program, double seconds);

}  // namespace ResetCause
