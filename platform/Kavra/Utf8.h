#pragma once

#include <string_view>

namespace Kavra {

// Whether the octets are well-formed UTF-8 (RFC 3629: no surrogates, no overlong forms).
bool isUtf8(std::string_view text) noexcept;

}  // namespace Kavra
