#pragma once

#include <functional>
#include <future>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

#include "Kavra/FileDescriptor.h"
#include "Kavra/SocketAddress.h"

namespace Kavra {

// Looks up the addresses behind a name, on a thread of its own: who has to be asked may take long
// to answer, or never do so.
//
// One look-up at a time. A thread that hangs is given no company: whoever asks meanwhile has the
// answer to the first question, however late. The thread touches nothing but the answer, ends with
// it, and may outlive this object.
class AddressLookup {
 public:
  using Addresses = std::vector<SocketAddress>;
  // Called on the thread; what it raises is raised again where the answer is taken.
  using Resolve = std::function<Addresses()>;

  // Seconds after which whoever asked does well to do without.
  static constexpr double kPatience = 5.0;

  explicit AddressLookup(Resolve resolve) : resolve_(std::move(resolve)) {}

  // Begins to look up, unless there is a look-up already whose answer nobody took. Returns a
  // descriptor that can be read from when there is an answer, and stands until that is taken.
  // Raises std::system_error when there is no thread or descriptor to be had.
  int ask();
  // The answer to what was asked; waits for it.
  Addresses take();
  // Asks, and takes the answer unless that takes longer than `seconds`.
  std::optional<Addresses> wait(double seconds);

 private:
  const Resolve resolve_;
  std::shared_ptr<const FileDescriptor> answered_;  // from the question until its answer is taken
  std::future<Addresses> answer_;
};

}  // namespace Kavra
