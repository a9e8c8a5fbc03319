#include "tools/TextLayout.h"

#include <algorithm>
#include <clocale>
#include <cwchar>

#include "Qel/Utf8.h"

namespace Tools {

namespace {

// The C library knows the widths, in a locale of UTF-8 alone: whatever the user's is, what is
// printed is UTF-8.
class WidthLocale {
 public:
  WidthLocale()
      : own_(::newlocale(LC_CTYPE_MASK, "C.UTF-8", nullptr)), before_(::uselocale(own_)) {}
  WidthLocale(const WidthLocale&) = delete;
  WidthLocale& operator=(const WidthLocale&) = delete;
  ~WidthLocale() {
    ::uselocale(before_);
    if (own_ != nullptr) ::freelocale(own_);
  }

 private:
  const locale_t own_;
  const locale_t before_;
};

std::string_view firstCharacter(std::string_view text) {
  return text.substr(0, std::max<std::size_t>(Qel::utf8CharacterSize(text), 1));
}

std::size_t columnsOf(std::string_view character) {
  const int columns = ::wcwidth(static_cast<wchar_t>(Qel::utf8CodePoint(character)));
  return columns < 0 ? 1 : static_cast<std::size_t>(columns);
}

// Where the first line of the text ends.
std::size_t endOfLine(std::string_view text, std::size_t most) {
  std::size_t blank = 0;  // the last one behind a word
  std::size_t columns = 0;
  for (std::size_t at = 0; at < text.size();) {
    const std::string_view character = firstCharacter(text.substr(at));
    const bool isBehindAWord = at > 0 && text[at - 1] != ' ';
    if (character == " " && isBehindAWord) blank = at;
    columns += columnsOf(character);
    if (columns > most) return blank > 0 ? blank : at;
    at += character.size();
  }
  return text.size();
}

std::string_view withoutBlanksAtEnd(std::string_view text) {
  return text.substr(0, text.find_last_not_of(' ') + 1);
}

}  // namespace

std::size_t widthOf(std::string_view text) {
  const WidthLocale locale;
  std::size_t columns = 0;
  while (!text.empty()) {
    const std::string_view character = firstCharacter(text);
    columns += columnsOf(character);
    text.remove_prefix(character.size());
  }
  return columns;
}

std::vector<std::string> wrapped(std::string_view text, std::size_t most) {
  const WidthLocale locale;
  std::vector<std::string> lines;
  do {
    const std::size_t end = endOfLine(text, most);
    lines.emplace_back(withoutBlanksAtEnd(text.substr(0, end)));
    text.remove_prefix(std::min(text.find_first_not_of(' ', end), text.size()));
  } while (!text.empty());
  return lines;
}

std::string shortened(std::string_view text, std::size_t most) {
  const auto lines = wrapped(text, most);
  return lines.front() + (lines.size() > 1 ? " ..." : "");
}

}  // namespace Tools
