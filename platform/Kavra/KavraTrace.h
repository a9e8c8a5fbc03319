#pragma once

#include <functional>
#include <string_view>

#include "Qel/String.h"

namespace Kavra {

// Writes a line to the trace facility "Kavra".
void trace(int level, std::string_view text, const char* file = __builtin_FILE(),
           int line = __builtin_LINE(), const char* function = __builtin_FUNCTION());

// Runs code of somebody else that a document at `path` set off. Whatever it raises ends here, as an
// error trace that names the path: one follower's fault must not cost the others their documents.
void traceFailure(const Qel::String& path, const std::function<void()>& work);

}  // namespace Kavra
