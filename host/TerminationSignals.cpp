#include "host/TerminationSignals.h"

#include <unistd.h>

#include <csignal>

namespace Host {
namespace {

constexpr int kEnding[] = {SIGTERM, SIGINT};

void handlersAre(void (*handler)(int)) noexcept {
  struct sigaction action {};
  action.sa_handler = handler;
  for (const int signal : kEnding) ::sigaction(signal, &action, nullptr);
}

}  // namespace

TerminationSignals::TerminationSignals() : SignalEvents({SIGTERM, SIGINT}) {
  std::signal(SIGPIPE, SIG_IGN);
}

EndingAtOnce::EndingAtOnce() noexcept {
  handlersAre([](int /*signal*/) { ::_exit(0); });
  sigset_t set;
  sigemptyset(&set);
  for (const int signal : kEnding) sigaddset(&set, signal);
  sigprocmask(SIG_UNBLOCK, &set, &before_);
}

EndingAtOnce::~EndingAtOnce() {
  sigprocmask(SIG_SETMASK, &before_, nullptr);
  handlersAre(SIG_DFL);
}

}  // namespace Host
