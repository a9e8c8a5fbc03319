#include "Qel/Strep.h"

#include <fmt/format.h>

#include <charconv>
#include <cstddef>
#include <string>
#include <system_error>

#include "Qel/Escape.h"
#include "Qel/Exception.h"

namespace Qel {

namespace {

// What stands at `pos`, short enough for a message.
std::string excerpt(String::IteratorConst pos, String::IteratorConst end) {
  constexpr std::ptrdiff_t kMost = 24;
  if (pos == end) return "the end of the text";
  const bool cut = end - pos > kMost;
  return fmt::format("'{}{}'", std::string_view(pos, cut ? pos + kMost : end), cut ? "..." : "");
}

}  // namespace

String valueToStrep(unsigned long long value) { return String(fmt::format("{}", value)); }

String valueToStrep(U32 value) { return valueToStrep(static_cast<unsigned long long>(value)); }

String valueToStrep(bool value) { return value ? "True" : "False"; }

String valueToStrep(double value) { return String(fmt::format("{}", value)); }

String valueToStrep(const String& value) { return String(quoted(value.view())); }

String valueToStrepOfRawPtr(const void* pointer, std::string_view type) {
  if (pointer == nullptr) return String(fmt::format("Ptr('{}', null)", type));
  return String(fmt::format("Ptr('{}', {})", type, pointer));
}

void needString(String::IteratorConst& pos, const String::IteratorConst& end,
                std::string_view literal) {
  const std::string_view rest(pos, end);
  if (!rest.starts_with(literal)) {
    throwParseException(
        String(fmt::format("expected '{}' but found {}", literal, excerpt(pos, end))));
  }
  pos += literal.size();
}

template <>
U32 deserializeAttr<U32>(String::IteratorConst& pos, const String::IteratorConst& end,
                         std::string_view name) {
  U32 value = 0;
  const auto [stop, error] = std::from_chars(pos, end, value);
  if (error != std::errc()) {
    throwParseException(String(
        fmt::format("attribute {}: {} is not an unsigned 32-bit number", name, excerpt(pos, end))));
  }
  pos = stop;
  return value;
}

void strepToValueEnd(const String& text, const String::IteratorConst& pos) {
  if (pos == text.end()) return;
  throwParseException(
      String(fmt::format("expected the end of the text but found {}", excerpt(pos, text.end()))));
}

}  // namespace Qel
