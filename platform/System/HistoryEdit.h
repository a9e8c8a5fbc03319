#pragma once

#include <vector>

#include "Qel/Document.h"
#include "Qel/String.h"

// New versions of a cell's reset-cause history document. `present` is the one that is published
// now, or null; it fits its type.
namespace System {

struct RecordedCause {
  Qel::String description;
  double time;                         // seconds since 1970 UTC
  Qel::String recommendedAction = {};  // this and the next are left out where they are empty
  Qel::String detail = {};
};

// The oldest reload index that a history keeps.
constexpr unsigned kOldestReload = 9;

// A new reload under index 0; those that are present move up by one, and what would move beyond
// kOldestReload is dropped.
Qel::Document withReload(const Qel::Document* present, const std::vector<RecordedCause>& causes);

// One more cause at the end of reload 0. Raises Qel::RangeException when there is no such reload.
Qel::Document withCause(const Qel::Document* present, const RecordedCause& cause);

}  // namespace System
