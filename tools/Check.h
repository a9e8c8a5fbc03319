#pragma once

#include <string>

#include "tools/Report.h"

// Whether supervisors reloaded lately, for whoever calls plug-ins as Nagios does.
namespace Tools {

// The exit statuses of such a plug-in.
enum class CheckState { ok = 0, warning = 1, critical = 2, unknown = 3 };

struct CheckOptions {
  double since = 3600;         // how many seconds back a reload counts
  bool isRequestedOk = false;  // whether one by request is no more than ok
};

struct CheckResult {
  CheckState state;
  // "RELOAD STATE - SUMMARY | PERFORMANCE DATA", then what further lines tell of each supervisor.
  // Nothing that a database or an agent says stands in it as a line end, '|' or control character.
  std::string text;
};

// Of the supervisors in the report the worst: critical where one reloaded within that time and not
// by request, warning where it was by request, unknown where it cannot be told, else ok.
CheckResult check(const Report& report, double now, const CheckOptions& options);

// Where nothing could be looked at.
CheckResult uncheckable(const std::string& problem);

}  // namespace Tools
