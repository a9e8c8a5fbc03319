#pragma once

#include <functional>
#include <string_view>

#include "Qel/String.h"

namespace Kavra {

// Writes a line to the trace facility "Kavra".
void trace(int level, std::string_view text, const char* file = __builtin_FILE(),
           int line = __builtin_LINE(), const char* function = __builtin_FUNCTION());

// Runs code of somebody else that a document at `path` set off. What it raises ends here, as an
// error trace that names the path; true when it raised nothing.
bool runGuarded(const Qel::String& path, const std::function<void()>& work);

}  // namespace Kavra
