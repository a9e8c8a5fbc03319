#include "Kavra/Path.h"

#include <algorithm>
#include <cstddef>

#include "Qel/Exception.h"
#include "Qel/Strep.h"
#include "Qel/Utf8.h"

namespace Kavra {

namespace {

constexpr std::size_t kMostBytes = 1024;

bool isControl(char c) noexcept {
  const auto octet = static_cast<unsigned char>(c);
  return octet < 0x20 || octet == 0x7f;
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
  Qel::throwRangeException(Qel::valueToStrep(text) +
                           " is not a path: names joined by '/', none of them empty");
}

}  // namespace Kavra
