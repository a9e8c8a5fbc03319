#include "Kavra/Aside.h"

#include <sys/eventfd.h>

#include <cerrno>
#include <csignal>
#include <system_error>
#include <thread>
#include <utility>

namespace Kavra {

namespace {

// What the thread begins with is what its maker blocks at that moment.
class SignalsBlocked {
 public:
  SignalsBlocked() {
    sigset_t all = {};
    ::sigfillset(&all);
    ::pthread_sigmask(SIG_SETMASK, &all, &before_);
  }
  SignalsBlocked(const SignalsBlocked&) = delete;
  SignalsBlocked& operator=(const SignalsBlocked&) = delete;
  ~SignalsBlocked() { ::pthread_sigmask(SIG_SETMASK, &before_, nullptr); }

 private:
  sigset_t before_ = {};
};

}  // namespace

void runAside(std::function<void()> work) {
  const SignalsBlocked blocked;
  std::thread(std::move(work)).detach();
}

FileDescriptor newEvent() {
  FileDescriptor event(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
  if (!event) throw std::system_error(errno, std::generic_category(), "no event descriptor");
  return event;
}

}  // namespace Kavra
