#include "tools/EndOnSignal.h"

namespace Tools {

namespace {

// What a signal ends.
Qel::PollEventLoop* signalledLoop = nullptr;

void handleSignal(int /*signal*/) { signalledLoop->stop(); }

}  // namespace

EndOnSignal::EndOnSignal(Qel::PollEventLoop& loop) {
  signalledLoop = &loop;
  struct sigaction action {};
  action.sa_handler = handleSignal;
  ::sigaction(SIGINT, &action, &interrupt_);
  ::sigaction(SIGTERM, &action, &terminate_);
}

EndOnSignal::~EndOnSignal() {
  ::sigaction(SIGINT, &interrupt_, nullptr);
  ::sigaction(SIGTERM, &terminate_, nullptr);
}

}  // namespace Tools
