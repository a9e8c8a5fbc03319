#include "MiscSnmpAgent/ResetInstanceSm.h"

#include "MiscSnmpAgent/ModuleTrace.h"
#include "MiscSnmpAgent/ResetHistorySm.h"
#include "Qel/GenericValue.h"
#include "Qel/OwnerInterface.h"

namespace MiscSnmp::Agent {

namespace {

ResetInstanceSm& smOf(Qel::PtrInterface& object) { return dynamic_cast<ResetInstanceSm&>(object); }

const ResetInstanceSm& smOf(const Qel::PtrInterface& object) {
  return dynamic_cast<const ResetInstanceSm&>(object);
}

}  // namespace

void ResetInstanceSm::QelResetInstance::notifierIs(Qel::Ptr<Qel::PtrInterface const> notifier) {
  const auto instance = Qel::ptrCast<System::ResetInstance const>(notifier);
  if (instance == resetInstance()) return;
  const Qel::Ptr<QelResetInstance> alive(this);
  Reactor::notifierIs(instance);
  if (instance) react();
  isRegisteredNotifieeIs(true);
}

void ResetInstanceSm::QelResetInstance::onCauseQ(U32 /*key*/) { react(); }

void ResetInstanceSm::QelResetInstance::onCauseQqelImmediate() { react(); }

void ResetInstanceSm::QelResetInstance::react() {
  if (const auto owner = live()) owner->handleUpdate();
}

ResetInstanceSm::ResetInstanceSm(U32 key,
                                 const Qel::Ptr<System::ResetInstance const>& resetInstance,
                                 const Qel::Ptr<ResetHistorySm>& resetHistorySm, const Twin& twin)
    : key_(key), twin_(twin), resetHistorySm_(resetHistorySm) {
  if (resetInstance) resetInstance_ = Qel::make<QelResetInstance>(resetInstance, this);
  try {
    handleInitialized();
  } catch (...) {
    silence();
    throw;
  }
}

ResetInstanceSm::~ResetInstanceSm() { silence(); }

void ResetInstanceSm::silence() {
  ResetInstanceSm::qelDoZombieReactors(true);
  if (resetInstance_) resetInstance_->ownerIs(nullptr);
}

Qel::Ptr<System::ResetInstance const> ResetInstanceSm::resetInstance() const {
  return resetInstance_ ? resetInstance_->resetInstance() : nullptr;
}

void ResetInstanceSm::resetInstanceIs(const Qel::Ptr<System::ResetInstance const>& instance) {
  const Qel::Ptr<ResetInstanceSm> alive(this);
  if (resetInstance_ && resetInstance_->resetInstance() == instance) return;
  if (!instance) {
    reactorDel(resetInstance_);
    return;
  }
  if (!resetInstance_) resetInstance_ = Qel::make<QelResetInstance>(instance, this);
  // A new reactor finds itself bound already and does nothing: only a replacement rebuilds.
  const Qel::Ptr<QelResetInstance> reactor = resetInstance_;
  reactor->notifierIs(instance);
  if (resetInstance_) resetInstance_->qelDoZombieReactors(isMarkedForDeletion());
}

Qel::Ptr<System::ResetInstance const> ResetInstanceSm::resetInstanceDel() {
  Qel::Ptr<System::ResetInstance const> watched = resetInstance();
  reactorDel(resetInstance_);
  return watched;
}

void ResetInstanceSm::handleInitialized() {
  if (auto trace = agentTrace(8)) *trace << twin_.initializedText << key_;
  handleUpdate();
}

void ResetInstanceSm::handleUpdate() {
  const Qel::Ptr<ResetInstanceSm> alive(this);
  if (auto trace = agentTrace({8, twin_.updateFunction})) *trace << twin_.updateText;
  const Qel::Ptr<ResetHistorySm> owner = resetHistorySm_;
  ((*owner).*twin_.deleteRows)();
  ((*owner).*twin_.writeRows)();
}

void ResetInstanceSm::hasNotificationActiveIs(bool active) {
  if (active == hasNotificationActive()) return;
  notificationActiveFlagIs(active);
  if (resetInstance_) resetInstance_->hasNotificationActiveIs(active);
}

void ResetInstanceSm::qelDoZombieReactors(bool zombie) {
  if (zombie == isMarkedForDeletion()) return;
  if (resetInstance_) resetInstance_->qelDoZombieReactors(zombie);
  markedForDeletionFlagIs(zombie);
}

Qel::OwnerInterface* ResetInstanceSm::qelOwner() const { return resetHistorySm_.get(); }

Qel::TypeDescription ResetInstanceSm::twinDescription(const char* typeName,
                                                      const char* updateFunction) {
  return {
      .name = typeName,
      .attributes = {{"key", [](const auto& object) { return smOf(object).key(); }},
                     {"resetInstance",
                      [](const auto& object) { return smOf(object).resetInstance(); }},
                     {"resetHistorySm",
                      [](const auto& object) { return smOf(object).resetHistorySm(); }}},
      .operations = {{"handleInitialized",
                      [](Qel::PtrInterface& object, const Qel::GenericArgs&) {
                        smOf(object).handleInitialized();
                        return Qel::GenericValue();
                      }},
                     {updateFunction,
                      [](Qel::PtrInterface& object, const Qel::GenericArgs&) {
                        smOf(object).handleUpdate();
                        return Qel::GenericValue();
                      }}},
  };
}

}  // namespace MiscSnmp::Agent
