#pragma once

#include <string_view>

#include "Qel/String.h"

namespace Kavra {

// A path is a sequence of names joined by '/', without a leading or trailing one: "cell/1/sys".
// Names are not empty and hold no control characters; the whole is UTF-8 of at most 1024 bytes.
bool isPath(std::string_view text) noexcept;
// Raises RangeException for anything else, with the reason and the first 100 bytes of the text.
void needPath(const Qel::String& text);

}  // namespace Kavra
