#include "Kavra/AddressLookup.h"

#include <sys/eventfd.h>

#include <chrono>
#include <utility>

#include "Kavra/Aside.h"

namespace Kavra {

int AddressLookup::ask() {
  if (answered_) return answered_->fd();
  const auto answered = std::make_shared<const FileDescriptor>(newEvent());
  const auto task = std::make_shared<std::packaged_task<Addresses()>>(resolve_);
  std::future<Addresses> answer = task->get_future();
  runAside([task, answered] {
    (*task)();
    ::eventfd_write(answered->fd(), 1);
  });
  answered_ = answered;
  answer_ = std::move(answer);
  return answered_->fd();
}

AddressLookup::Addresses AddressLookup::take() {
  answered_ = nullptr;
  return answer_.get();
}

std::optional<AddressLookup::Addresses> AddressLookup::wait(double seconds) {
  ask();
  const auto patience = std::chrono::duration<double>(seconds);
  if (answer_.wait_for(patience) != std::future_status::ready) return {};
  return take();
}

}  // namespace Kavra
