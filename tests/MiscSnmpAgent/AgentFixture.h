#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <initializer_list>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "Cell/Cell.h"
#include "Kavra/EntityManager.h"
#include "Kavra/Feed.h"
#include "MiscSnmp/GeneralMib.h"
#include "MiscSnmpAgent/ResetHistorySm.h"
#include "Qel/Document.h"
#include "Qel/Ptr.h"
#include "Redundancy/RedundancyStatus.h"
#include "System/ResetCauseHistory.h"
#include "support/DocumentFeed.h"
#include "support/LiveObjects.h"
#include "support/TraceRecorder.h"

namespace MiscSnmp::Agent {

inline const System::ResetCause kPowerLoss{"Power loss", 1700000000.9};
inline const System::ResetCause kWatchdog{"Watchdog", 1700000001.5};
inline const System::ResetCause kPanic{"Panic", 1700000002.0};

// Reads "0.0.1".
std::string textOf(const ReloadCauseKey& key);

// A pointer as trace lines show it.
template <class T>
std::string shown(const Qel::Ptr<T>& pointer) {
  std::ostringstream text;
  text << pointer;
  return text.str();
}

// The switched-on reactor of that type on an entity, or null. A test that holds one sees what
// becomes of a reactor that outlives its place.
template <class SomeReactor, class Entity>
Qel::Ptr<SomeReactor> reactorOn(const Qel::Ptr<Entity>& entity) {
  Qel::Ptr<SomeReactor> found;
  entity->notifieeList()->template visitAs<SomeReactor>(
      [&found](SomeReactor& reactor) { found = Qel::Ptr<SomeReactor>(&reactor); });
  return found;
}

// Calls back on every change of the table. Does not keep the model.
class TableHook final : public GeneralMib::NotifieeConst {
 public:
  using Call = std::function<void(const ReloadCauseKey& key)>;
  using GeneralMib::NotifieeConst::onReloadCauseTable;
  TableHook(const Qel::Ptr<GeneralMib>& model, Call call);
  void onReloadCauseTable(const ReloadCauseKey& key) override { call_(key); }

 private:
  const Call call_;
};

// Calls back when the watched entity has lost its last reference.
class LastWords final : public Qel::Entity::NotifieeConst {
 public:
  LastWords(const Qel::Ptr<Qel::PtrInterface const>& entity, std::function<void()> call);
  void onZeroReferences() override { call_(); }

 private:
  const std::function<void()> call_;
};

// The own cell of a supervisor pair in the words of its platform: what is recorded of the two
// cells, the redundancy status, and what the table then shows. This process runs on cell 1, a
// supervisor, unless told otherwise. The own cell's history is an entity at hand; the peer's is a
// document of the state database, and is seen when the event loop gets its turn (settle()).
//
// Every trace line of the agent goes into log(), with "+ 0.0.1" and "- 0.0.1" for each row that
// came and went.
class AgentFixture : public support::LiveObjects, public testing::Test {
 protected:
  static constexpr auto kProtocolWithPeer = Redundancy::RedundancyProtocol{3};
  static constexpr auto kProtocolWithoutPeer = Redundancy::RedundancyProtocol{1};

  using Causes = std::vector<System::ResetCause>;

  // What is recorded of one cell.
  class RecordedCell {
   public:
    RecordedCell(AgentFixture& fixture, U32 id) : fixture_(fixture), id_(id) {}
    // The latest reload and its causes; what was the latest before is forgotten.
    void reloaded(std::initializer_list<System::ResetCause> causes) { reloadIs(0, causes); }
    void reloadIs(U32 index, std::initializer_list<System::ResetCause> causes);
    void reloadDel(U32 index);
    // One more cause of the latest reload.
    void causeIs(const System::ResetCause& cause);

   private:
    AgentFixture& fixture_;
    const U32 id_;
  };

  AgentFixture();
  ~AgentFixture() override;

  RecordedCell cell(U32 id) { return {*this, id}; }
  void protocolIs(Redundancy::RedundancyProtocol protocol) { status_->protocolIs(protocol); }
  void switchoverCapableIs(bool capable) { status_->switchoverCapableIs(capable); }
  // A capable peer under a protocol that reaches it; effective before or after the start.
  void peerIsReachable() { status_->statusIs(kProtocolWithPeer, true); }
  // What the event loop has put off happens.
  static void settle();

  // The state machine alone, switched off and on.
  Qel::Ptr<ResetHistorySm> made();
  Qel::Ptr<ResetHistorySm> started();

  // A document of another type than a history stands under the peer's path.
  void peerPublishesAnotherType();

  // Whether an object, or none, hears notifications.
  static bool isOn(const Qel::Ptr<Qel::PtrInterface const>& object);

  // "0.0.1 Power loss @1700000000" for each row.
  std::vector<std::string> rows() const;
  // Somebody else's row.
  void rowIs(const ReloadCauseKey& key);
  // The lines since the last call.
  std::vector<std::string> log() { return log_.takeLines(); }

  Qel::Ptr<Redundancy::RedundancyStatus> status_;
  Qel::Ptr<GeneralMib> model_;
  Qel::Ptr<System::ResetCauseHistory> history_;
  Qel::Ptr<support::DocumentFeed> feed_;
  Qel::Ptr<Kavra::EntityManager> entityManager_;
  Qel::String cellType_ = "supervisor";
  support::TraceRecorder log_{{"MiscSnmp", 8}};

 private:
  void publish(U32 id);

  std::map<U32, std::map<U32, Causes>> recorded_;  // by cell and reboot index
  Qel::Ptr<TableHook> tableWatch_;
};

// The same without trace lines: the log shows rows alone.
class QuietAgentFixture : public AgentFixture {
 protected:
  QuietAgentFixture() { log_.levelIs("MiscSnmp", 0); }
};

}  // namespace MiscSnmp::Agent
