#include "Kavra/Path.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstddef>
#include <string>

#include "Qel/Escape.h"
#include "Qel/Exception.h"
#include "Qel/Limits.h"
#include "Qel/Utf8.h"

namespace Kavra {

namespace {

constexpr std::size_t kMostQuotedBytes = 100;

bool isControl(char c) noexcept {
  const auto octet = static_cast<unsigned char>(c);
  return octet < 0x20 || octet == 0x7f;
}

enum class Problem { none, tooLong, emptyName, controlCharacter, notUtf8 };

Problem problemOf(std::string_view text) noexcept {
  if (text.size() > Qel::Limits::kMostPathOctets) return Problem::tooLong;
  if (std::any_of(text.begin(), text.end(), isControl)) return Problem::controlCharacter;
  if (!Qel::isUtf8(text)) return Problem::notUtf8;
  const bool hasEmptyName = text.empty() || text.front() == '/' || text.back() == '/' ||
                            text.find("//") != std::string_view::npos;
  return hasEmptyName ? Problem::emptyName : Problem::none;
}

std::string description(Problem problem, std::string_view text) {
  switch (problem) {
    case Problem::tooLong:
      return fmt::format("it has {} octets, of which {} are the most", text.size(),
                         Qel::Limits::kMostPathOctets);
    case Problem::controlCharacter:
      return "it has a control character";
    case Problem::notUtf8:
      return "it is not UTF-8";
    case Problem::emptyName:
    case Problem::none:
      break;
  }
  return "names joined by '/', none of them empty";
}

}  // namespace

bool isPath(std::string_view text) noexcept { return problemOf(text) == Problem::none; }

void needPath(const Qel::String& text) {
  const Problem problem = problemOf(text.view());
  if (problem == Problem::none) return;
  const std::string_view shown = text.view().substr(0, kMostQuotedBytes);
  Qel::throwRangeException(Qel::quoted(shown) + (shown.size() < text.bytes() ? "..." : "") +
                           " is not a path: " + description(problem, text.view()));
}

}  // namespace Kavra
