#include "platform/Kavra/Redis/NameService.h"

#include <dlfcn.h>
#include <netdb.h>

#include <string_view>

#include "Qel/Assert.h"

namespace kavratest {

std::atomic<UnansweredName*> UnansweredName::present = nullptr;

UnansweredName::UnansweredName() {
  QEL_ASSERT(present == nullptr);
  present = this;
}

UnansweredName::~UnansweredName() {
  answer();
  std::unique_lock lock(mutex_);
  changed_.wait(lock, [this] { return waiting_ == 0; });
  present = nullptr;
}

void UnansweredName::answer() {
  const std::lock_guard lock(mutex_);
  answered_ = true;
  changed_.notify_all();
}

void UnansweredName::wait() {
  UnansweredName* const name = present;
  if (name == nullptr) return;
  std::unique_lock lock(name->mutex_);
  ++name->questions_;
  ++name->waiting_;
  name->changed_.wait(lock, [name] { return name->answered_; });
  --name->waiting_;
  name->changed_.notify_all();
}

namespace {

using Look = int (*)(const char*, const char*, const addrinfo*, addrinfo**);
const auto systemsLook = reinterpret_cast<Look>(::dlsym(RTLD_NEXT, "getaddrinfo"));

// The addresses behind a name of the test's own; the second may be null.
struct Addresses {
  const char* first = nullptr;
  const char* second = nullptr;
};

Addresses addressesOf(std::string_view name) {
  if (name == kRefusingFirst) return {"127.0.0.2", "127.0.0.1"};
  if (name == kRefusingLast) return {"127.0.0.1", "127.0.0.2"};
  if (name == kUnanswered) return {"127.0.0.1", nullptr};
  return {};
}

}  // namespace
}  // namespace kavratest

// In the place of the C library's: no other name can be relied on to have two addresses, or none
// for as long as the test wants.
extern "C" int getaddrinfo(const char* host, const char* port, const addrinfo* hints,
                           addrinfo** found) {
  using namespace kavratest;
  const auto [first, second] = addressesOf(host);
  if (first == nullptr) return systemsLook(host, port, hints, found);
  if ((hints->ai_flags & AI_NUMERICHOST) != 0) return EAI_NONAME;
  if (std::string_view(host) == kUnanswered) UnansweredName::wait();
  const int error = systemsLook(first, port, hints, found);
  if (error != 0 || second == nullptr) return error;
  return systemsLook(second, port, hints, &(*found)->ai_next);
}
