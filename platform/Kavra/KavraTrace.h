#pragma once

#include <functional>
#include <string_view>

#include "Qel/String.h"

namespace Kavra {

// Writes a line to the trace facility "Kavra".
void trace(int level, std::string_view text, const char* file = __builtin_FILE(),
           int line = __builtin_LINE(), const char* function = __builtin_FUNCTION());

// Error traces that the document at `path` is refused, and that it is no longer: mended, or not
// published any more.
void traceRefused(const Qel::String& path, const Qel::String& why);
void traceNoLongerRefused(const Qel::String& path, bool isPublished);

// Runs code of somebody else that a document at `path` set off. Whatever it raises ends here, as an
// error trace that names the path: one follower's fault must not cost the others their documents.
void traceFailure(const Qel::String& path, const std::function<void()>& work);

}  // namespace Kavra
