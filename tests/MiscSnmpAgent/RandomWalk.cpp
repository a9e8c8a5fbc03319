#include "MiscSnmpAgent/RandomWalk.h"

namespace MiscSnmp::Agent {

RandomWalk::RandomWalk(const GeneralMib& mib, const RandomTableRecorder& recorder)
    : mib_(mib), recorder_(recorder) {}

void RandomWalk::begin(const std::optional<ReloadCauseKey>& from) {
  const auto& table = mib_.reloadCauseTable();
  const auto& rows = recorder_.rows();
  iterator_ = from ? table.startAt(*from) : table.iteratorConst();
  const auto first = from ? rows.lower_bound(plainKey(*from)) : rows.begin();
  place_.reset();
  unseen_.clear();
  for (auto row = first; row != rows.end(); ++row) unseen_.insert(row->first);
  arrive(first);
}

void RandomWalk::advance() {
  if (!place_) return;
  // The row may have left the table long ago; whoever stands on it still reads it.
  if (plainKey(iterator_->key()) != *place_) fail("the walk's row changed under it");
  iterator_.advance();
  arrive(recorder_.rows().upper_bound(*place_));
}

void RandomWalk::arrive(RandomTableRecorder::Rows::const_iterator wanted) {
  const bool isEnd = wanted == recorder_.rows().end();
  if (static_cast<bool>(iterator_) == isEnd) {
    fail(isEnd ? "the walk found a row behind the last" : "the walk ended early");
  } else if (!isEnd && iterator_.ptr() != wanted->second) {
    fail("the walk stands at " + expected::text(plainKey(iterator_.key())) +
         " instead of the row at " + expected::text(wanted->first));
  }
  const auto came = iterator_ ? std::optional(plainKey(iterator_.key())) : std::nullopt;
  if (came && place_ && !(*place_ < *came))
    fail("the walk did not go up at " + expected::text(*came));
  place_ = came;
  if (place_) unseen_.erase(*place_);
  if (isEnd && !unseen_.empty()) fail("the walk never visited " + expected::text(*unseen_.begin()));
}

void RandomWalk::fail(const std::string& problem) {
  if (problem_.empty()) problem_ = problem;
}

}  // namespace MiscSnmp::Agent
