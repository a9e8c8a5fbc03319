#pragma once

#include <cstddef>
#include <string_view>

namespace Qel {

// How many octets the well-formed UTF-8 character at the start of the text has; 0 when there is
// none.
std::size_t utf8CharacterSize(std::string_view text) noexcept;

// The code point of a character of that size.
char32_t utf8CodePoint(std::string_view character) noexcept;

// Whether the octets are well-formed UTF-8 (RFC 3629: no surrogates, no overlong forms).
bool isUtf8(std::string_view text) noexcept;

}  // namespace Qel
