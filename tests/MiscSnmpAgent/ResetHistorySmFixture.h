#pragma once

#include <string>

#include "MiscSnmpAgent/AgentFixture.h"
#include "Qel/Strep.h"
#include "support/ProblemOf.h"

namespace MiscSnmp::Agent {

inline Qel::Ptr<System::ResetCauseHistory> historyWith(const System::ResetCause& cause) {
  auto history = Qel::make<System::ResetCauseHistory>("another");
  history->rebootHistoryIs(0)->causeQPush(cause);
  return history;
}

inline std::string inUseText(const char* attribute, const void* wanted, const void* present,
                             const char* type) {
  return std::string(
             "Reinstantiating the pointer interface where constructor parameter attribute ") +
         attribute + " has a different value of " +
         Qel::valueToStrepOfRawPtr(wanted, type).stdString() + " than the current value of " +
         Qel::valueToStrepOfRawPtr(present, type).stdString() + " not allowed";
}

// Notes when the watched entity loses its last reference.
class Obituary final : public Qel::Entity::NotifieeConst {
 public:
  Obituary(const Qel::Ptr<Qel::PtrInterface const>& entity, support::TraceRecorder& log,
           const char* line)
      : Qel::Entity::NotifieeConst(Qel::NotifierReference::plain), log_(log), line_(line) {
    notifierIs(entity);
    isRegisteredNotifieeIs(true);
    hasNotificationActiveIs(true);
  }
  void onZeroReferences() override { log_.note(line_); }

 private:
  support::TraceRecorder& log_;
  const char* const line_;
};

// A machine over trace-less logs: only rows show.
class ResetHistorySmTest : public QuietAgentFixture {
 protected:
  // Running, with the peer mounted, one cause in each cell; the log begins after that.
  Qel::Ptr<ResetHistorySm> mounted() {
    cell(1).reloaded({kPowerLoss});
    cell(2).reloaded({kWatchdog});
    peerIsReachable();
    auto machine = started();
    log();
    return machine;
  }
};

}  // namespace MiscSnmp::Agent
