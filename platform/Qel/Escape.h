#pragma once

#include <string>
#include <string_view>

// Texts of unknown origin, made fit to be shown.
namespace Qel {

// Whether a terminal, or whoever reads a log, may take the character for more than text: the
// control characters (C0, DEL, C1), the separators of lines, and what turns the direction of the
// text around it, so that it reads otherwise than it stands there.
bool isControl(char32_t character) noexcept;

// The text as one line that a terminal or a log takes as nothing but text: line ends and tabs
// become \n and \t, all other control characters and what is not UTF-8 become \xNN, an octet each.
// Characters of other scripts stay.
std::string printableLine(std::string_view text);

// The text in single quotes, in printable ASCII: quotes and backslashes behind a backslash, all
// other octets as \xNN. No two texts look alike.
std::string quoted(std::string_view text);

}  // namespace Qel
