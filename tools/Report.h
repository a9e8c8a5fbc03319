#pragma once

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
};

// The report as a person reads it at the time `now`, in whole lines. What its texts hold is shown
// as nothing but text.
std::string textOf(const Report& report, double now, const ReportStyle& style);

// {"source": "...", "now": 1700000003.0, "cells": [{"cell": 1, "answered": true, "reloads":
// [{"reload": 0, "causes": [{"description": "...", "time": 1700000000.9, "recommendedAction":
// "...", "detail": "..."}]}]}]} with null for a cell or time that is not known, "answered" where it
// is true, and of the texts besides the description those that are not empty.
Qel::Document documentOf(const Report& report, double now);

}  // namespace Tools
