#pragma once

#include <optional>
#include <ostream>

#include "Qel/Clock.h"
#include "Qel/Types.h"
#include "tools/Report.h"
#include "tools/SnmpAgent.h"

namespace Tools {

// What an agent shows of all supervisors, or of one (0 is the unit that answers). Raises
// CommandError, also where it shows no cause of that one.
Report reportOf(const SnmpOptions& options, const std::optional<U32>& cell);

// Prints a report as JSON or, where there is a style, for people. Then raises CommandError where
// not all could be read.
void show(const Report& report, const std::optional<ReportStyle>& style, const Qel::Clock& clock,
          std::ostream& out);

}  // namespace Tools
