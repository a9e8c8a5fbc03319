#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "Qel/Document.h"
#include "Qel/Types.h"

// What is known of the reloads of supervisors: what `kavra show` shows. Texts are any octets.
namespace Tools {

struct ReportedCause {
  std::string description;
  std::optional<double> time;     // seconds since 1970 UTC, where it is known
  std::string recommendedAction;  // empty for none, or where the source does not carry it
  std::string detail;             // the same
};

struct ReportedReload {
  U32 index;  // 0 is the latest one
  std::vector<ReportedCause> causes;
};

struct ReportedCell {
  std::optional<U32> cell;              // nothing for a unit that gives itself no number
  bool hasAnswered;                     // whether its own agent told all this
  std::vector<ReportedReload> reloads;  // the latest first
};

// When something was, in seconds since 1970 UTC: not before `since`, where anybody knows, and not
// after `until`. Both are the same where the moment is known, and absent where nothing is. Where
// the clock was set back over it there is no `until`: the two ends are of different clocks.
struct ReportedTime {
  std::optional<double> since;
  std::optional<double> until;

  bool isKnown() const noexcept { return since || until; }
  bool isMoment() const noexcept { return since && since == until; }
};

ReportedTime timeOf(const ReportedCause& cause);
// That of its first cause.
ReportedTime timeOf(const ReportedReload& reload);

// For how many seconds the machine ran until the reload at that place in the list: since the reload
// before it, from the end of its window on, as far as to the begin of this one's. What it was off
// in between is counted in, where nothing was recorded but the moment when it went down. Nothing
// where not all is known, or a clock went back.
std::optional<double> upBefore(const std::vector<ReportedReload>& reloads, std::size_t place);

// "Supervisor 1", "Cell 7", "The unit that answered".
std::string nameOf(const ReportedCell& cell);

struct Report {
  std::string source;
  std::vector<ReportedCell> cells;
  std::vector<std::string> problems;  // what of the source could not be read, a line each
};

// The reloads of a history document, which fits its type.
std::vector<ReportedReload> reloadsOf(const Qel::Document& history);

// How a report is shown to a person.
struct ReportStyle {
  std::size_t columns = 80;  // of a line, at least 40
  bool isColoured = false;
  bool isUtc = false;  // rather than local time
  bool hasEvidence = false;
};

// The report as a person reads it at the time `now`, in whole lines: of each supervisor the last
// reload, and the last ten as a timeline where there are several. What its texts hold is shown as
// nothing but text.
std::string textOf(const Report& report, double now, const ReportStyle& style);

// {"source": "...", "now": 1700000003.0, "cells": [{"cell": 1, "answered": true, "reloads":
// [{"reload": 0, "requested": false, "upBefore": 86400.0, "causes": [{"description": "...", "time":
// 1700000000.9, "recommendedAction": "...", "detail": "...", "verdict": {"boot": "...", "since":
// 1700000000.0, "until": 1700000060.0, "confidence": "possible", "rule": "11", "orElse": "...",
// "evidence": ["..."]}}]}]}]} with null for a cell or time that is not known, "answered" where it
// is true, "upBefore" where it is known, and of the texts besides the description those that are
// not empty. A cause has the verdict that its detail holds, "since" and "until" of a window alone,
// "until" only where no clock was set back.
Qel::Document documentOf(const Report& report, double now);

}  // namespace Tools
