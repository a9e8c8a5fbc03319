#include "Qel/String.h"

#include <cstring>
#include <new>

namespace Qel {

const char String::kEmpty[1] = "";

String::String(std::string_view text) : text_(text.empty() ? nullptr : newText(text)) {}

String::Text* String::newText(std::string_view octets) {
  void* const block = ::operator new(sizeof(Text) + octets.size() + 1);
  Text* const text = new (block) Text{1, octets.size()};
  std::memcpy(text->octets(), octets.data(), octets.size());
  text->octets()[octets.size()] = '\0';
  return text;
}

void String::release(Text& text) noexcept {
  if (text.references.fetch_sub(1, std::memory_order_acq_rel) == 1) ::operator delete(&text);
}

String operator+(const String& a, const String& b) {
  if (a.empty()) return b;
  if (b.empty()) return a;
  return String(a.stdString().append(b.view()));
}

std::ostream& operator<<(std::ostream& out, const String& text) { return out << text.view(); }

}  // namespace Qel
