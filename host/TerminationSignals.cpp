#include "host/TerminationSignals.h"

#include <sys/signalfd.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <system_error>
#include <utility>

namespace Host {
namespace {

sigset_t terminationSet() {
  sigset_t set;
  sigemptyset(&set);
  sigaddset(&set, SIGTERM);
  sigaddset(&set, SIGINT);
  return set;
}

}  // namespace

TerminationSignals::TerminationSignals() {
  std::signal(SIGPIPE, SIG_IGN);
  const sigset_t set = terminationSet();
  if (sigprocmask(SIG_BLOCK, &set, nullptr) != 0 ||
      (fd_ = signalfd(-1, &set, SFD_NONBLOCK | SFD_CLOEXEC)) < 0) {
    throw std::system_error(errno, std::generic_category(), "cannot take signals");
  }
}

TerminationSignals::~TerminationSignals() { ::close(fd_); }

Qel::Ptr<Qel::EventWatch> TerminationSignals::watch(Qel::EventLoop& loop,
                                                    std::function<void()> call) {
  return loop.readableIs(fd_, [this, call = std::move(call)] {
    take();
    call();
  });
}

void TerminationSignals::take() noexcept {
  signalfd_siginfo info;
  while (::read(fd_, &info, sizeof info) == static_cast<ssize_t>(sizeof info)) {
  }
}

}  // namespace Host
