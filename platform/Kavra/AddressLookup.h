#pragma once

#include <functional>
#include <future>
#include <vector>

#include "Kavra/FileDescriptor.h"
#include "Kavra/SocketAddress.h"
#include "Qel/EventLoop.h"
#include "Qel/Ptr.h"
#include "Qel/PtrInterface.h"

namespace Kavra {

// Looks up the addresses behind a name while the loop goes on: who has to be asked may take long to
// answer, or never do so.
//
// A thread waits for the answer, and `found` is called with it once, from the loop, unless the
// look-up has been let go by then. The thread touches nothing but the answer, and ends with it.
class AddressLookup : public Qel::PtrInterface {
 public:
  using Addresses = std::vector<SocketAddress>;
  // Called on the thread; what it raises is raised again where the answer is taken.
  using Resolve = std::function<Addresses()>;
  using FoundCall = std::function<void(std::future<Addresses>& answer)>;

  // Raises RangeException when the loop takes no more descriptors, and std::system_error when there
  // is no thread or descriptor to be had. `loop` must outlive the look-up.
  AddressLookup(Qel::EventLoop& loop, const Resolve& resolve, FoundCall found);

 private:
  void handleAnswer();

  std::future<Addresses> answer_;
  FoundCall found_;
  const FileDescriptor answered_;
  Qel::Ptr<Qel::EventWatch> watch_;
};

}  // namespace Kavra
