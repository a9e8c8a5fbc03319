#pragma once

#include <string>
#include <vector>

#include "Qel/Ptr.h"
#include "System/ResetCauseHistory.h"
#include "System/ResetInstance.h"

// Watchers that log what they are told of, registered and active.
namespace systemtest {

using Log = std::vector<std::string>;

class HistoryWatcher final : public System::ResetCauseHistory::NotifieeConst {
 public:
  HistoryWatcher(const Qel::Ptr<System::ResetCauseHistory>& history, Log& log) : log_(log) {
    notifierIs(history);
    isRegisteredNotifieeIs(true);
    hasNotificationActiveIs(true);
  }
  void onRebootHistory(U32 key) override {
    const auto reload = resetCauseHistory()->rebootHistory(key);
    log_.push_back("onRebootHistory " + std::to_string(key) +
                   (reload ? " of " + std::to_string(reload->causeQ().members()) : " gone"));
  }
  void onRebootHistoryqelImmediate() override { log_.push_back("onRebootHistoryqelImmediate"); }
  void onRebootHistory() override { log_.push_back("onRebootHistory"); }

 private:
  Log& log_;
};

class InstanceWatcher final : public System::ResetInstance::NotifieeConst {
 public:
  InstanceWatcher(const Qel::Ptr<System::ResetInstance>& instance, Log& log) : log_(log) {
    notifierIs(instance);
    isRegisteredNotifieeIs(true);
    hasNotificationActiveIs(true);
  }
  void onCauseQ(U32 key) override { log_.push_back("onCauseQ " + std::to_string(key)); }
  void onCauseQqelImmediate() override { log_.push_back("onCauseQqelImmediate"); }
  void onCauseQMetadata() override { log_.push_back("onCauseQMetadata"); }
  void onCauseQ() override { log_.push_back("onCauseQ"); }

 private:
  Log& log_;
};

// Keys and descriptions of the causes, as "0 Power loss".
inline std::vector<std::string> causesOf(const System::ResetInstance& instance) {
  std::vector<std::string> causes;
  for (auto it = instance.causeQ().iteratorConst(); it; ++it) {
    causes.push_back(std::to_string(it.key()) + " " + it.value().description().stdString());
  }
  return causes;
}

}  // namespace systemtest
