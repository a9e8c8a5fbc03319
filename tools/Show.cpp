#include "tools/Show.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include "Kavra/Json/Text.h"
#include "tools/Errors.h"

namespace Tools {

Report reportOf(const SnmpOptions& options, const std::optional<U32>& cell) {
  SnmpAgent agent(options);
  Report report{options.agent, cellsOf(reloadRowsOf(agent)), {}};
  if (!cell) return report;
  std::erase_if(report.cells, [&](const ReportedCell& each) {
    return *cell == 0 ? !each.hasAnswered : each.cell != cell;
  });
  if (report.cells.empty()) {
    throw CommandError(
        fmt::format("{}: the agent shows no cause of cell {}", options.agent, *cell));
  }
  return report;
}

void show(const Report& report, const std::optional<ReportStyle>& style, const Qel::Clock& clock,
          std::ostream& out) {
  const double now = clock.now();
  if (style) {
    out << textOf(report, now, *style);
  } else {
    out << Kavra::Json::writePrintable(documentOf(report, now), Kavra::Json::Form::pretty);
  }
  if (!report.problems.empty()) {
    throw CommandError(fmt::format("{}", fmt::join(report.problems, "; ")));
  }
}

}  // namespace Tools
