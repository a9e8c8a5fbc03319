// What happens to the redundancy status and to the agent itself.
#include "MiscSnmpAgent/RandomWorld.h"

namespace MiscSnmp::Agent {

namespace {

// The one that matters as often as all the others together.
constexpr std::array<expected::Number, 10> kProtocols{3, 3, 3, 3, 3, 0, 1, 2, 4, 4294967295};
constexpr std::array kCellTypes{"supervisor", "supervisor", "fixed", "Supervisor", ""};

}  // namespace

void RandomWorld::statusIs(PairedStatus& status, expected::Number protocol, bool capable) {
  both([&] { status.real->statusIs(Redundancy::RedundancyProtocol{protocol}, capable); },
       [&] {
         const expected::Redundancy before =
             std::exchange(*status.plain, expected::Redundancy{protocol, capable});
         if (before.protocol != protocol) device_.protocolChanged(*status.plain);
         if (before.switchoverCapable != capable) device_.switchoverCapableChanged(*status.plain);
       });
}

void RandomWorld::protocolFlipped() {
  PairedStatus& status = statuses_[chance(8) ? 1 - status_ : status_];
  statusIs(status, oneOf(kProtocols), status.plain->switchoverCapable);
}

void RandomWorld::switchoverFlipped() {
  PairedStatus& status = statuses_[chance(8) ? 1 - status_ : status_];
  statusIs(status, status.plain->protocol, !chance(3));
}

void RandomWorld::statusChanged() { statusIs(statuses_[below(2)], oneOf(kProtocols), chance(2)); }

Qel::Ptr<ResetHistorySm> RandomWorld::machine() const {
  return root_->agent() ? root_->agent()->resetHistorySm() : nullptr;
}

expected::Agent* RandomWorld::plainMachine() const {
  return plainAgent_ && plainAgent_->machine ? &plainAgent_->machine->agent : nullptr;
}

RandomWorld::Inputs RandomWorld::realInputs() const {
  return {statuses_[status_].real, mib_, histories_[ownHistory_].real, entityManager_, cellType_};
}

expected::Agent::Inputs RandomWorld::plainInputs() const {
  return {statuses_[status_].plain, histories_[ownHistory_].plain, cellType_};
}

// By hand: null, an entity of another type, or any of the histories, the own one included.
void RandomWorld::mountCompletedByHand() {
  const Qel::Ptr<ResetHistorySm> sm = machine();
  if (!sm) return;
  const auto mounter = sm->peerCellResetHistoryStatusDirMounter();
  if ((mounter != nullptr) != plainMachine()->hasMount()) return;  // difference() tells
  if (!mounter) return;
  const unsigned choice = below(8);
  Qel::Ptr<Qel::Entity> real;
  expected::HistoryPtr plain;
  if (choice == 0) {
    real = statuses_[0].real;
  } else if (choice > 1) {
    const PairedHistory& history = anyHistory();
    real = history.real;
    plain = history.plain;
  }
  both([&] { mounter->handleComplete(real); }, [&] { plainMachine()->mountCompletes(plain); });
}

void RandomWorld::peerHistorySet() {
  const Qel::Ptr<ResetHistorySm> sm = machine();
  if (!sm) return;
  const PairedHistory history = chance(3) ? PairedHistory() : anyHistory();
  both([&] { sm->peerCellResetHistoryIs(history.real); },
       [&] { plainMachine()->peerHistoryIs(history.plain); });
}

void RandomWorld::ownHistorySet() {
  const Qel::Ptr<ResetHistorySm> sm = machine();
  if (!sm) return;
  const PairedHistory history = anyHistory();
  both([&] { sm->curCellResetHistoryIs(history.real); },
       [&] { plainMachine()->ownHistoryIs(history.plain); });
}

void RandomWorld::statusSet() {
  const Qel::Ptr<ResetHistorySm> sm = machine();
  if (!sm) return;
  const PairedStatus status = statuses_[below(2)];
  both([&] { sm->redundancyStatusIs(status.real); },
       [&] { plainMachine()->redundancyIs(status.plain); });
}

void RandomWorld::inputChanges() {
  if (chance(2)) cellType_ = oneOf(kCellTypes);
  if (chance(3)) status_ = below(2);
  if (chance(3)) ownHistory_ = below(histories_.size());
}

void RandomWorld::agentIs() {
  const Inputs inputs = realInputs();
  root_->agentIs(inputs.redundancyStatus, inputs.generalMib, inputs.curCellResetHistory,
                 inputs.entityManager, inputs.cellType);
  if (plainAgent_ && plainAgent_->inputs == plainInputs()) return;
  plainAgent_ = std::make_shared<PlainAgent>(device_, plainInputs());
}

void RandomWorld::agentReplaced() {
  inputChanges();
  agentIs();
}

void RandomWorld::agentRenewed() {
  if (root_->agent()) agentIs();
}

void RandomWorld::agentDeleted() {
  root_->agentDel();
  plainAgent_.reset();
}

void RandomWorld::machineReplaced() {
  if (!root_->agent()) return;
  inputChanges();
  const Inputs inputs = realInputs();
  const Qel::Ptr<Agent> agent = root_->agent();
  agent->resetHistorySmIs(inputs.redundancyStatus, inputs.generalMib, inputs.curCellResetHistory,
                          inputs.entityManager, inputs.cellType);
  if (plainMachine() != nullptr && plainMachine()->inputs() == plainInputs()) return;
  plainAgent_->machine = std::make_shared<PlainMachine>(device_, plainInputs());
}

void RandomWorld::machineDeleted() {
  if (!root_->agent()) return;
  root_->agent()->resetHistorySmDel();
  plainAgent_->machineDel();
}

void RandomWorld::agentKept() {
  if (!root_->agent() || kept_.size() >= 2) return;
  kept_.emplace_back(root_->agent(), plainAgent_);
}

void RandomWorld::machineKept() {
  if (!machine() || kept_.size() >= 2) return;
  kept_.emplace_back(machine(), plainAgent_->machine);
}

void RandomWorld::keptLetGo() { kept_.clear(); }

void RandomWorld::listens(bool on) {
  // With several machines the order in which put-off mounts complete is nobody's promise.
  if (!machine() || device_.agents() != 1) return;
  const Qel::Ptr<ResetHistorySm> sm = machine();
  both([&] { sm->hasNotificationActiveIs(on); }, [&] { plainMachine()->listens(on); });
}

void RandomWorld::switchedOff() { listens(false); }

void RandomWorld::switchedOn() { listens(true); }

}  // namespace MiscSnmp::Agent
