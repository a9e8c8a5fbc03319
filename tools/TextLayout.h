#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

// Texts that are fit to be shown (see Qel/Escape.h), laid out for a terminal.
namespace Tools {

// How many columns a terminal takes for it: none for what combines with the character before, two
// for the wide characters of East Asia.
std::size_t widthOf(std::string_view text);

// The text in lines of at most `most` columns, at least 2, broken at blanks and, in a word that is
// wider than a line, between characters. No line ends in blanks; an empty text is one empty line.
std::vector<std::string> wrapped(std::string_view text, std::size_t most);

// The text or, where it takes more columns than that, as many of its words and "...".
std::string shortened(std::string_view text, std::size_t most);

}  // namespace Tools
