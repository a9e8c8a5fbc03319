#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <string>

#include "Qel/EventLoop.h"
#include "Qel/Ptr.h"
#include "Qel/PtrInterface.h"
#include "Qel/Types.h"
#include "System/ResetInstance.h"
#include "host/NotificationChannel.h"
#include "host/ReloadNews.h"
#include "host/StateTree.h"
#include "host/ToldCauses.h"

namespace Host {

// Tells managers what became of the table: follows it, and sends news of a unit, as ReloadNews
// decides. Of a change it hears while the table changes, and looks at what stands from the loop.
//
// What was told is kept on disk, from when the first of those to be told has it. While nobody is to
// be told, nothing is followed and nothing is kept.
class Notifier {
 public:
  using Clock = std::function<double()>;  // seconds, from any beginning, which never go back
  using Reload = Qel::Ptr<System::ResetInstance const>;
  // The table, as StateTree has it.
  struct Table {
    std::function<Reload(U32 unit)> reloadOf;
    std::function<Qel::Ptr<Qel::PtrInterface>(std::function<void()>)> follow;
  };

  // Of a tree that outlives the notifier, as its plug-in does.
  static Table tableOf(const StateTree& tree);

  // Channel and loop must outlive the object. `file` keeps what was told; "" for nowhere.
  Notifier(Table table, NotificationChannel& channel, const std::string& file, Qel::EventLoop& loop,
           Clock clock);
  Notifier(const Notifier&) = delete;
  Notifier& operator=(const Notifier&) = delete;
  ~Notifier();

  // Tells that the agent started. To be called once, by an agent that managers ask.
  void agentStarted();
  // To be called when it may be another answer whether anybody is to be told.
  void handleWanted();

 private:
  // What a unit had when it was looked at last.
  struct Seen {
    Reload reload;
    std::uint64_t version = 0;
  };

  void changed();
  void look();
  void lookAt(U32 unit);
  void tellNews();
  void handleDelivered(const Notification& notification);

  const Table table_;
  NotificationChannel& channel_;
  Qel::EventLoop& loop_;
  const Clock clock_;
  ToldCauses told_;
  ReloadNews news_;
  std::array<Seen, kUnits> seen_;
  Qel::Ptr<Qel::EventWatch> look_;
  Qel::Ptr<Qel::EventWatch> next_;
  Qel::Ptr<Qel::PtrInterface> following_;  // while somebody is to be told
};

}  // namespace Host
