#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace Kavra::Json {

// RFC 4648, section 4, with padding.
std::string toBase64(std::string_view octets);
// Nothing unless the text is exactly what toBase64 makes of some octets.
std::optional<std::string> ofBase64(std::string_view text);

}  // namespace Kavra::Json
