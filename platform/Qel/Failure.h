#pragma once

#include <functional>
#include <optional>
#include <string>

namespace Qel {

// Runs a step that the outside can make fail. What it then raises ends here, and its text is
// returned: an error of the framework (Qel::Exception and what derives from it), of the system
// (std::system_error), or want of memory (std::bad_alloc). Nothing when it went well.
//
// Anything else is a bug, and passes through.
std::optional<std::string> failureOf(const std::function<void()>& step);

}  // namespace Qel
