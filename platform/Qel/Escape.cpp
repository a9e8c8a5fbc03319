#include "Qel/Escape.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstddef>
#include <iterator>

#include "Qel/Utf8.h"

namespace Qel {

namespace {

void appendEscaped(std::string& line, std::string_view octets) {
  for (const char octet : octets) {
    line += fmt::format("\\x{:02x}", static_cast<unsigned char>(octet));
  }
}

struct Range {
  char32_t first, last;
};

constexpr Range kControls[] = {
    {0x00, 0x1f},     {0x7f, 0x9f},      // C0, DEL and C1
    {0x61c, 0x61c},   {0x200e, 0x200f},  // marks of a direction
    {0x2028, 0x2029},                    // ends of lines and paragraphs
    {0x202a, 0x202e}, {0x2066, 0x2069},  // embeddings, overrides and isolates
};

}  // namespace

bool isControl(char32_t character) noexcept {
  return std::any_of(std::begin(kControls), std::end(kControls), [=](const Range& range) {
    return character >= range.first && character <= range.last;
  });
}

std::string printableLine(std::string_view text) {
  std::string line;
  while (!text.empty()) {
    const std::size_t size = utf8CharacterSize(text);
    const std::string_view character = text.substr(0, size == 0 ? 1 : size);
    if (character == "\n") {
      line += "\\n";
    } else if (character == "\t") {
      line += "\\t";
    } else if (size == 0 || isControl(utf8CodePoint(character))) {
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
