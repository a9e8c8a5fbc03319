// A plug-in that crowds the agent: on SIGUSR1 it registers as many descriptors with net-snmp as it
// is let, up to 31 of the 32 that a process may have; on SIGUSR2 it takes them back.

#include <unistd.h>

#include <csignal>
#include <vector>

#include "host/NetSnmp.h"

namespace {

constexpr std::size_t kWanted = 31;
constexpr timeval kLookEvery = {0, 50000};

volatile std::sig_atomic_t crowded = 0;

void handleSignal(int number) { crowded = number == SIGUSR1 ? 1 : 0; }

class Crowd {
 public:
  Crowd() {
    struct sigaction action {};
    action.sa_handler = handleSignal;
    action.sa_flags = SA_RESTART;
    ::sigaction(SIGUSR1, &action, nullptr);
    ::sigaction(SIGUSR2, &action, nullptr);
    alarm_ = snmp_alarm_register_hr(kLookEvery, SA_REPEAT, look, this);
  }
  Crowd(const Crowd&) = delete;
  Crowd& operator=(const Crowd&) = delete;
  ~Crowd() {
    snmp_alarm_unregister(alarm_);
    leave();
  }

 private:
  struct Pipe {
    int read;
    int write;
  };

  static void look(unsigned /*alarm*/, void* self) {
    auto* const crowd = static_cast<Crowd*>(self);
    if (crowded != 0) {
      crowd->come();
    } else {
      crowd->leave();
    }
  }
  // Takes what room there is, again and again, up to the wanted number.
  void come() {
    while (pipes_.size() < kWanted) {
      int ends[2];
      if (::pipe(ends) != 0) return;
      if (register_readfd(
              ends[0], [](int, void*) {}, nullptr) != FD_REGISTERED_OK) {
        ::close(ends[0]);
        ::close(ends[1]);
        return;
      }
      pipes_.push_back({ends[0], ends[1]});
    }
  }
  void leave() {
    for (const Pipe& pipe : pipes_) {
      unregister_readfd(pipe.read);
      ::close(pipe.read);
      ::close(pipe.write);
    }
    pipes_.clear();
  }

  unsigned alarm_ = 0;
  std::vector<Pipe> pipes_;
};

Crowd crowd;

}  // namespace
