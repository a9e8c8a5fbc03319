#include "Qel/String.h"

namespace Qel {

const char String::kEmpty[1] = "";

String::String(std::string_view text)
    : text_(text.empty() ? nullptr : std::make_shared<const std::string>(text)) {}

String operator+(const String& a, const String& b) {
  if (a.empty()) return b;
  if (b.empty()) return a;
  return String(a.stdString().append(b.view()));
}

std::ostream& operator<<(std::ostream& out, const String& text) { return out << text.view(); }

}  // namespace Qel
