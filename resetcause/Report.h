#pragma once

#include <ostream>
#include <string>
#include <vector>

#include "resetcause/Judgement.h"

// A judgement as people read it, a thing a line; texts of unknown origin are escaped.
namespace ResetCause {

void print(const Judgement& judgement, std::ostream& out);
void print(const std::vector<Explanation>& lines, std::ostream& out);

// When it was: a time, or the window that it lies in, in UTC.
std::string whenText(const Cause& cause, const Boots& boots);
// The cause's evidence, and all else that is known of it: what a record keeps as the detail, and
// `find` shows below the cause.
std::string detailText(const Cause& cause, const Boots& boots);

}  // namespace ResetCause
