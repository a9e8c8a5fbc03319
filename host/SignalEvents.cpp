#include "host/SignalEvents.h"

#include <sys/signalfd.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <system_error>
#include <utility>

namespace Host {
namespace {

int heldBack(std::initializer_list<int> signals) {
  sigset_t set;
  sigemptyset(&set);
  for (const int signal : signals) sigaddset(&set, signal);
  if (sigprocmask(SIG_BLOCK, &set, nullptr) != 0) return -1;
  return signalfd(-1, &set, SFD_NONBLOCK | SFD_CLOEXEC);
}

}  // namespace

SignalEvents::SignalEvents(std::initializer_list<int> signals) : fd_(heldBack(signals)) {
  if (!fd_) throw std::system_error(errno, std::generic_category(), "cannot take signals");
}

Qel::Ptr<Qel::EventWatch> SignalEvents::watch(Qel::EventLoop& loop,
                                              std::function<void()> call) const {
  return loop.readableIs(fd_.fd(), [this, call = std::move(call)] {
    take();
    call();
  });
}

void SignalEvents::take() const noexcept {
  signalfd_siginfo info;
  while (::read(fd_.fd(), &info, sizeof info) == static_cast<ssize_t>(sizeof info)) {
  }
}

}  // namespace Host
