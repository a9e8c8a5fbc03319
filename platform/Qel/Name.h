#pragma once

#include <iosfwd>

#include "Qel/String.h"

namespace Qel {

// The name of an entity under its parent: text that takes part in paths.
class Name {
 public:
  Name() = default;
  Name(const char* text) : text_(text) {}
  Name(const String& text) : text_(text) {}

  const String& string() const noexcept { return text_; }

  friend auto operator<=>(const Name& a, const Name& b) noexcept = default;
  friend std::ostream& operator<<(std::ostream& out, const Name& name) { return out << name.text_; }

 private:
  String text_;
};

}  // namespace Qel
