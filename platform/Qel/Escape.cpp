#include "Qel/Escape.h"

#include <fmt/format.h>
#include <cstddef>

#include "Qel/Utf8.h"

namespace Qel {

namespace {

void appendEscaped(std::string& line, std::string_view octets) {
  for (const char octet : octets) {
    line += fmt::format("\\x{:02x}", static_cast<unsigned char>(octet));
  }
}

bool isControl(std::string_view character) noexcept {
  const auto first = static_cast<unsigned char>(character[0]);
  if (character.size() == 1) return first < 0x20 || first == 0x7f;
  // U+0080 to U+009F, which terminals obey as well.
  return first == 0xc2 && static_cast<unsigned char>(character[1]) < 0xa0;
}

}  // namespace

std::string printableLine(std::string_view text) {
  std::string line;
  while (!text.empty()) {
    const std::size_t size = utf8CharacterSize(text);
    const std::string_view character = text.substr(0, size == 0 ? 1 : size);
    if (character == "\n") {
      line += "\\n";
    } else if (character == "\t") {
      line += "\\t";
    } else if (size == 0 || isControl(character)) {
      appendEscaped(line, character);
    } else {
      line += character;
    }
    text.remove_prefix(character.size());
  }
  return line;
}

std::string quoted(std::string_view text) {
  std::string line = "'";
  for (const char& c : text) {
    if (c == '\'' || c == '\\') {
      line.append({'\\', c});
    } else if (c >= ' ' && c <= '~') {
      line.push_back(c);
    } else {
      appendEscaped(line, {&c, 1});
    }
  }
  return line + "'";
}

}  // namespace Qel
