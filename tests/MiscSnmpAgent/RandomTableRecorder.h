#pragma once

#include <functional>
#include <map>
#include <string>
#include <vector>

#include "MiscSnmp/GeneralMib.h"
#include "Qel/Ptr.h"
#include "support/ExpectedTable.h"

namespace MiscSnmp::Agent {

expected::Key plainKey(const ReloadCauseKey& key);

// Hears every change of a table and keeps a second one from nothing but what it hears, so that a
// notification without a change, and a change without one, both show.
class RandomTableRecorder final : public GeneralMib::NotifieeConst {
 public:
  using Rows = std::map<expected::Key, Qel::Ptr<ReloadCauseEntry>>;

  explicit RandomTableRecorder(const Qel::Ptr<GeneralMib>& mib);

  using GeneralMib::NotifieeConst::onReloadCauseTable;
  void onReloadCauseTable(const ReloadCauseKey& key) override;

  const Rows& rows() const noexcept { return rows_; }
  std::vector<expected::Change> takeChanges();
  // What was wrong with a notification first; empty while nothing was.
  const std::string& problem() const noexcept { return problem_; }
  // Called inside each notification, after it was taken in.
  void duringIs(std::function<void(const expected::Change&)> during) {
    during_ = std::move(during);
  }

 private:
  Rows rows_;
  std::vector<expected::Change> changes_;
  std::string problem_;
  std::function<void(const expected::Change&)> during_;
};

}  // namespace MiscSnmp::Agent
