#pragma once

#include <cstddef>
#include <string_view>

namespace Qel {

// How many octets the well-formed UTF-8 character at the start of the text has; 0 when there is
// none.
std::size_t utf8CharacterSize(std::string_view text) noexcept;

// Whether the octets are well-formed UTF-8 (RFC 3629: no surrogates, no overlong forms).
bool isUtf8(std::string_view text) noexcept;

}  // namespace Qel
