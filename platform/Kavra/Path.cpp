#include "Kavra/Path.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstddef>
#include <string>

#include "Qel/Escape.h"
#include "Qel/Exception.h"
#include "Qel/Utf8.h"

namespace Kavra {

namespace {

constexpr std::size_t kMostBytes = 1024;
constexpr std::size_t kMostQuotedBytes = 100;

bool isControl(char c) noexcept {
  const auto octet = static_cast<unsigned char>(c);
  return octet < 0x20 || octet == 0x7f;
}

// Why the text, which is no path, is none.
std::string problemOf(std::string_view text) {
  if (text.size() > kMostBytes) {
    return fmt::format("it has {} octets, of which {} are the most", text.size(), kMostBytes);
  }
  if (std::any_of(text.begin(), text.end(), isControl)) return "it has a control character";
  if (!Qel::isUtf8(text)) return "it is not UTF-8";
  return "names joined by '/', none of them empty";
}

}  // namespace

bool isPath(std::string_view text) noexcept {
  if (text.empty() || text.size() > kMostBytes) return false;
  if (text.front() == '/' || text.back() == '/') return false;
  if (text.find("//") != std::string_view::npos) return false;
  return std::none_of(text.begin(), text.end(), isControl) && Qel::isUtf8(text);
}

void needPath(const Qel::String& text) {
  if (isPath(text.view())) return;
  const std::string_view shown = text.view().substr(0, kMostQuotedBytes);
  Qel::throwRangeException(Qel::quoted(shown) + (shown.size() < text.bytes() ? "..." : "") +
                           " is not a path: " + problemOf(text.view()));
}

}  // namespace Kavra
