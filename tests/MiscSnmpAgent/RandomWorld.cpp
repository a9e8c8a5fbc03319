#include "MiscSnmpAgent/RandomWorld.h"

#include "Cell/Cell.h"
#include "Qel/Exception.h"
#include "Qel/Format.h"

namespace MiscSnmp::Agent {

struct RandomWorld::Happening {
  const char* name;
  unsigned weight;
  void (RandomWorld::*happens)();
};

const std::vector<RandomWorld::Happening>& RandomWorld::happenings() {
  static const std::vector<Happening> all{
      {"a cause is pushed", 60, &RandomWorld::causePushed},
      {"a cause is deleted", 30, &RandomWorld::causeDeleted},
      {"causes are replaced", 40, &RandomWorld::causesReplaced},
      {"causes are emptied", 15, &RandomWorld::causesEmptied},
      {"a reload is recorded", 40, &RandomWorld::reloadRecorded},
      {"a reload is added", 20, &RandomWorld::reloadAdded},
      {"a reload is deleted", 30, &RandomWorld::reloadDeleted},
      {"a reload is replaced in place", 8, &RandomWorld::reloadReplaced},
      {"an older reload changes", 15, &RandomWorld::olderReloadChanged},
      {"the protocol flips", 25, &RandomWorld::protocolFlipped},
      {"switchover-capable flips", 30, &RandomWorld::switchoverFlipped},
      {"the whole status changes", 10, &RandomWorld::statusChanged},
      {"the event loop settles", 120, &RandomWorld::loopSettled},
      {"the peer's history is published", 60, &RandomWorld::peerPublished},
      {"some history is published", 15, &RandomWorld::reloadPublished},
      {"a document of another type is published", 10, &RandomWorld::otherTypePublished},
      {"a document that does not fit is published", 25, &RandomWorld::misfitPublished},
      {"a path is unpublished", 30, &RandomWorld::unpublished},
      {"a mount completes by hand", 20, &RandomWorld::mountCompletedByHand},
      {"a peer history is set", 6, &RandomWorld::peerHistorySet},
      {"another own history is set", 4, &RandomWorld::ownHistorySet},
      {"another status is set", 4, &RandomWorld::statusSet},
      {"the agent is replaced", 12, &RandomWorld::agentReplaced},
      {"the agent is set to what it is", 6, &RandomWorld::agentRenewed},
      {"the agent is deleted", 3, &RandomWorld::agentDeleted},
      {"the state machine is replaced", 6, &RandomWorld::machineReplaced},
      {"the state machine is deleted", 3, &RandomWorld::machineDeleted},
      {"somebody keeps the agent", 3, &RandomWorld::agentKept},
      {"somebody keeps the state machine", 3, &RandomWorld::machineKept},
      {"what was kept is let go", 8, &RandomWorld::keptLetGo},
      {"the state machine is switched off", 6, &RandomWorld::switchedOff},
      {"the state machine is switched on", 14, &RandomWorld::switchedOn},
      {"a stranger adds a row", 8, &RandomWorld::strangerAdded},
      {"a stranger deletes a row", 6, &RandomWorld::strangerDeleted},
  };
  return all;
}

RandomWorld::RandomWorld(support::Random& random)
    : random_(random),
      cell_(1 + random.below(2)),
      feed_(Qel::make<support::DocumentFeed>()),
      entityManager_(Qel::make<Kavra::EntityManager>(feed_)),
      mib_(generalMibFactory("generalMib")),
      recorder_(Qel::make<RandomTableRecorder>(mib_)),
      device_(cell_),
      cellType_(random.below(3) == 0 ? "fixed" : "supervisor"),
      root_(rootFactory("root")) {
  Cell::cellIdIs(cell_);
  for (PairedStatus& status : statuses_) {
    status = {Qel::make<Redundancy::RedundancyStatus>("status"),
              std::make_shared<expected::Redundancy>()};
  }
  for (PairedHistory& history : histories_) {
    history = {Qel::make<System::ResetCauseHistory>("history"),
               std::make_shared<expected::History>()};
  }
}

const char* RandomWorld::step() {
  unsigned weights = 0;
  for (const Happening& happening : happenings()) weights += happening.weight;
  // The agent is rarely away: most of what happens is meant for it.
  if (!root_->agent() && chance(5)) {
    agentIs();
    return "an agent is set";
  }
  unsigned choice = below(weights);
  for (const Happening& happening : happenings()) {
    if (choice < happening.weight) {
      (this->*happening.happens)();
      return happening.name;
    }
    choice -= happening.weight;
  }
  return "nothing";
}

void RandomWorld::both(const std::function<void()>& real, const std::function<void()>& plain) {
  bool realRefuses = false;
  bool plainRefuses = false;
  try {
    real();
  } catch (const Qel::NameInUseException&) {
    realRefuses = true;
  }
  try {
    plain();
  } catch (const expected::NameInUse&) {
    plainRefuses = true;
  }
  if (realRefuses == plainRefuses) return;
  problem_ = realRefuses ? "a name-in-use error was raised where none belongs"
                         : "no name-in-use error was raised";
}

}  // namespace MiscSnmp::Agent
