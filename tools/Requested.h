#pragma once

#include <string_view>

#include "tools/Report.h"

namespace Tools {

// Whether the description of a cause says that somebody asked for the reload. It begins with one of
// the texts that norvek-reset-cause has for that; docs/monitoring.md has the same as an expression.
bool isRequested(std::string_view description) noexcept;
// Whether its first cause says so.
bool isRequested(const ReportedReload& reload) noexcept;

}  // namespace Tools
