#pragma once

#include <cstddef>
#include <string>

#include "Qel/Document.h"

namespace Kavra {

// What a document holds, added up value by value, against what one may hold (see Qel/Limits.h).
class DocumentSize {
 public:
  // One more value; in `octets` those of a text, and of its name where it is a member. False when
  // that is too much.
  [[nodiscard]] bool add(std::size_t octets) noexcept;
  std::size_t values() const noexcept { return values_; }
  // What is too much; only after add() said so.
  std::string problem() const;

 private:
  std::size_t values_ = 0;
  std::size_t octets_ = 0;
};

// The octets of a text; of no other value any.
std::size_t octetsOf(const Qel::Document& value) noexcept;

// The number of values of a document. Raises DocumentException with the place of the first value
// that is too much.
std::size_t valuesOf(const Qel::Document& document);

}  // namespace Kavra
