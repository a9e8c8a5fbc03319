#pragma once

#include <string_view>

#include "resetcause/Findings.h"
#include "resetcause/Verdict.h"

namespace ResetCause {

// One place where a reload leaves traces. It knows no other source.
class Source {
 public:
  Source() = default;
  Source(const Source&) = delete;
  Source& operator=(const Source&) = delete;
  virtual ~Source() = default;

  virtual std::string_view name() const noexcept = 0;
  // Adds what it finds of the reload between the two boots, and of no other reload; what it cannot
  // read becomes a problem. Where the place is not there at all, there is nothing to tell. Raises
  // only what Qel::failureOf takes.
  virtual void look(const Boots& boots, Findings& findings) const = 0;
};

}  // namespace ResetCause
