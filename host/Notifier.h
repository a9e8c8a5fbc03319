#pragma once

#include <functional>
#include <set>
#include <string>

#include "Qel/EventLoop.h"
#include "Qel/Ptr.h"
#include "Qel/Types.h"
#include "System/ResetInstance.h"
#include "host/NotificationChannel.h"
#include "host/ReloadNews.h"
#include "host/ToldCauses.h"

namespace Host {

// Tells managers what became of the table: sends news of a unit, as ReloadNews decides. Of a change
// it hears while the table changes, and looks at what stands from the loop.
//
// What was told is kept on disk, from when the first of those to be told has it. While nobody is to
// be told, nothing is looked at and nothing is kept.
class Notifier {
 public:
  // The reload whose causes the table shows of a unit; null where it shows none.
  using ReloadOf = std::function<Qel::Ptr<System::ResetInstance const>(U32 unit)>;
  using Clock = std::function<double()>;  // seconds, from any beginning, which never go back

  // Channel and loop must outlive the object. `file` keeps what was told; "" for nowhere.
  Notifier(ReloadOf reloadOf, NotificationChannel& channel, const std::string& file,
           Qel::EventLoop& loop, Clock clock);
  Notifier(const Notifier&) = delete;
  Notifier& operator=(const Notifier&) = delete;
  ~Notifier();

  // Tells that the agent started. To be called once, by an agent that managers ask.
  void agentStarted();
  // A row of the unit came or went; may be called while the table changes.
  void changed(U32 unit);
  // Whether anybody is to be told may have changed: looks at all units.
  void lookAtAll();

 private:
  void look();
  void tellNews();
  void handleDelivered(const Notification& notification);

  const ReloadOf reloadOf_;
  NotificationChannel& channel_;
  Qel::EventLoop& loop_;
  const Clock clock_;
  ToldCauses told_;
  ReloadNews news_;
  std::set<U32> changed_;
  Qel::Ptr<Qel::EventWatch> look_;
  Qel::Ptr<Qel::EventWatch> next_;
};

}  // namespace Host
