#pragma once

#include <optional>
#include <set>
#include <string>

#include "MiscSnmp/GeneralMib.h"
#include "MiscSnmpAgent/RandomTableRecorder.h"

namespace MiscSnmp::Agent {

// A walk over the table that stands while the table changes, held against a plain ordered map of
// the same rows: each move must lead to the smallest greater key that is there, on the row that is
// there now; and what was there from the walk's start to its end must have been visited.
class RandomWalk {
 public:
  RandomWalk(const GeneralMib& mib, const RandomTableRecorder& recorder);

  // Starts over at `from`, or at the first row without it.
  void begin(const std::optional<ReloadCauseKey>& from);
  void advance();
  void rowWent(const expected::Key& key) { unseen_.erase(key); }

  bool isAtEnd() const noexcept { return !place_; }
  // What went wrong first; empty while nothing did.
  const std::string& problem() const noexcept { return problem_; }

 private:
  using Iterator = GeneralMib::ReloadCauseTable::IteratorConst;

  void arrive(RandomTableRecorder::Rows::const_iterator wanted);
  void fail(const std::string& problem);

  const GeneralMib& mib_;
  const RandomTableRecorder& recorder_;
  Iterator iterator_;
  std::optional<expected::Key> place_;  // where the iterator stands; none at the end
  std::set<expected::Key> unseen_;      // there since the start and still to come
  std::string problem_;
};

}  // namespace MiscSnmp::Agent
