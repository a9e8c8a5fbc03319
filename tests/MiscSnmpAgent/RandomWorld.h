#pragma once

#include <array>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Kavra/EntityManager.h"
#include "Kavra/Feed.h"
#include "MiscSnmp/GeneralMib.h"
#include "MiscSnmpAgent/AgentArguments.h"
#include "MiscSnmpAgent/RandomPair.h"
#include "MiscSnmpAgent/RandomTableRecorder.h"
#include "MiscSnmpAgent/Root.h"
#include "support/DocumentFeed.h"
#include "support/Random.h"

namespace MiscSnmp::Agent {

// A supervisor cell with everything that its agent sees, beside its plain twin. step() lets one
// random thing happen to both; afterwards difference() compares them.
class RandomWorld {
 public:
  // The cell's id, and whether it is a supervisor at first, are random too.
  explicit RandomWorld(support::Random& random);
  RandomWorld(const RandomWorld&) = delete;
  RandomWorld& operator=(const RandomWorld&) = delete;

  // Returns what happened.
  const char* step();
  // What is not as it must be; empty when everything is.
  std::string difference();

  const GeneralMib& mib() const noexcept { return *mib_; }
  RandomTableRecorder& recorder() noexcept { return *recorder_; }

 private:
  using Inputs = AgentArguments<Redundancy::RedundancyStatus>;
  struct Happening;
  static const std::vector<Happening>& happenings();

  unsigned below(std::size_t limit) { return random_.below(static_cast<unsigned>(limit)); }
  bool chance(unsigned oneIn) { return below(oneIn) == 0; }
  template <class Element, std::size_t size>
  Element oneOf(const std::array<Element, size>& elements) {
    return elements[below(size)];
  }
  // Runs both sides; each may refuse with its name-in-use error, but only both together.
  void both(const std::function<void()>& real, const std::function<void()>& plain);

  // A history, a reload of it (null when it has none there), any reload that can be changed.
  PairedHistory& anyHistory() { return histories_[below(histories_.size())]; }
  PairedReload anyReload();
  expected::Cause anyCause();
  std::vector<expected::Cause> anyCauses();
  void orphanIs(const PairedReload& reload);
  void identityIs(const PairedReload& reload);
  void reloadIs(PairedHistory& history, expected::Number index,
                const std::vector<expected::Cause>& causes);
  void reloadIsDeleted(PairedHistory& history, expected::Number index);

  void causePushed();
  void causeDeleted();
  void causesReplaced();
  void causesEmptied();
  void reloadRecorded();
  void reloadAdded();
  void reloadDeleted();
  void reloadReplaced();
  void olderReloadChanged();

  void protocolFlipped();
  void switchoverFlipped();
  void statusChanged();
  void statusIs(PairedStatus& status, expected::Number protocol, bool capable);

  void loopSettled();
  void peerPublished();
  void reloadPublished();
  void otherTypePublished();
  void misfitPublished();
  void unpublished();
  void publish(const std::string& path, const Qel::Document& real, const expected::Document& plain);
  std::string anyPath();
  void peerHistoryPublished(const std::string& path);

  void mountCompletedByHand();
  void peerHistorySet();
  void ownHistorySet();
  void statusSet();

  void agentReplaced();
  void agentRenewed();
  void agentDeleted();
  void machineReplaced();
  void machineDeleted();
  void agentKept();
  void machineKept();
  void keptLetGo();
  void switchedOff();
  void switchedOn();
  void listens(bool on);
  void agentIs();
  void inputChanges();
  Qel::Ptr<ResetHistorySm> machine() const;
  expected::Agent* plainMachine() const;
  Inputs realInputs() const;
  expected::Agent::Inputs plainInputs() const;

  void strangerAdded();
  void strangerDeleted();

  std::string rowsDifference();
  std::string rowDifference(const expected::Key& key, const ReloadCauseEntry& row,
                            const expected::ReloadPtr& reload);
  std::string changesDifference();
  std::string objectsDifference() const;

  support::Random& random_;
  const expected::Number cell_;
  Qel::Ptr<support::DocumentFeed> feed_;
  Qel::Ptr<Kavra::EntityManager> entityManager_;
  Qel::Ptr<GeneralMib> mib_;
  Qel::Ptr<RandomTableRecorder> recorder_;
  expected::Device device_;

  std::array<PairedStatus, 2> statuses_;
  std::array<PairedHistory, 4> histories_;
  std::vector<PairedReload> orphans_;
  std::map<std::string, std::map<expected::Number, std::vector<expected::Cause>>> published_;
  std::string cellType_;
  std::size_t status_ = 0;
  std::size_t ownHistory_ = 0;

  Qel::Ptr<Root> root_;
  std::shared_ptr<PlainAgent> plainAgent_;
  std::vector<std::pair<Qel::Ptr<Qel::PtrInterface>, std::shared_ptr<void>>> kept_;

  // Which object is which plain reload. Held, so that no address comes back for another one.
  std::map<expected::ReloadPtr, Qel::Ptr<System::ResetInstance const>> identities_;
  std::map<const System::ResetInstance*, expected::ReloadPtr> plainOf_;
  std::string problem_;
};

}  // namespace MiscSnmp::Agent
