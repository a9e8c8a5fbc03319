#include "Kavra/AddressLookup.h"

#include <fcntl.h>
#include <sys/eventfd.h>

#include <cerrno>
#include <system_error>
#include <thread>
#include <utility>

namespace Kavra {

namespace {

FileDescriptor newEvent() {
  FileDescriptor event(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
  if (!event) throw std::system_error(errno, std::generic_category(), "no event descriptor");
  return event;
}

// A descriptor of the thread's own, since the look-up may be let go, and its descriptor closed.
FileDescriptor duplicateOf(const FileDescriptor& event) {
  FileDescriptor duplicate(::fcntl(event.fd(), F_DUPFD_CLOEXEC, 0));
  if (!duplicate) throw std::system_error(errno, std::generic_category(), "no event descriptor");
  return duplicate;
}

}  // namespace

AddressLookup::AddressLookup(Qel::EventLoop& loop, const Resolve& resolve, FoundCall found)
    : found_(std::move(found)),
      answered_(newEvent()),
      watch_(loop.readableIs(answered_.fd(), [this] { handleAnswer(); })) {
  std::packaged_task<Addresses()> task(resolve);
  answer_ = task.get_future();
  std::thread([task = std::move(task), event = duplicateOf(answered_)]() mutable {
    task();
    ::eventfd_write(event.fd(), 1);
  }).detach();
}

void AddressLookup::handleAnswer() {
  const Qel::Ptr<AddressLookup> alive(this);
  watch_ = nullptr;
  found_(answer_);
}

}  // namespace Kavra
