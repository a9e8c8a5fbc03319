#pragma once

#include <string>
#include <vector>

#include "Kavra/EntityManager.h"
#include "Kavra/Feed.h"
#include "Qel/EventLoop.h"
#include "Qel/Ptr.h"
#include "Redundancy/RedundancyStatus.h"
#include "System/ResetCauseHistory.h"
#include "host/Options.h"

namespace Host {

// The process's connection to the state database, and the two entities of its own cell that follow
// it. Both are there, empty, before anything is published.
class StateDatabase {
 public:
  // A database that is followed: the own one and, where it is another one, the peer's.
  struct Database {
    std::string url;
    std::string credentialsFile;  // empty for none
    Qel::Ptr<Kavra::Feed> feed;
  };

  // `loop` must outlive the object. Raises UsageError for an address of no known form, StartError
  // for one that cannot be followed.
  StateDatabase(const Options& options, Qel::EventLoop& loop);

  const std::vector<Database>& databases() const noexcept { return databases_; }
  const Qel::Ptr<Kavra::EntityManager>& entityManager() const noexcept { return entityManager_; }
  const Qel::Ptr<System::ResetCauseHistory>& resetHistory() const noexcept { return resetHistory_; }
  const Qel::Ptr<Redundancy::RedundancyStatus>& redundancyStatus() const noexcept {
    return redundancyStatus_;
  }

 private:
  std::vector<Database> databases_;
  Qel::Ptr<Kavra::EntityManager> entityManager_;
  Qel::Ptr<System::ResetCauseHistory> resetHistory_;
  Qel::Ptr<Redundancy::RedundancyStatus> redundancyStatus_;
};

}  // namespace Host
