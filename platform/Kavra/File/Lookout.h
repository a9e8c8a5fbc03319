#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "Kavra/File/FileObserver.h"
#include "Qel/EventLoop.h"
#include "Qel/Ptr.h"
#include "Qel/PtrInterface.h"

namespace Kavra::File {

// Has a thread of its own look at a database file, as a FileObserver does, and make documents of
// its text, while the loop goes on: a file system may take long to answer, or never do so, and a
// large text takes its time.
//
// What is found is told from the loop. There is one thread as long as the lookout lives; it sleeps
// between two looks, and wakes the loop for news only. One that a look holds up is not waited for
// when the lookout is let go: it ends when that look does.
class Lookout final : public Qel::PtrInterface {
 public:
  using Call = std::function<void(Finding finding)>;

  // Raises std::system_error where there is no thread or descriptor to be had, and RangeException
  // where the loop takes no more of them. `loop` must outlive the lookout.
  Lookout(Qel::EventLoop& loop, const std::string& path, const LookOptions& options, Call call);
  ~Lookout() override;

  // The first finding, unless the look takes longer than `seconds`: then it is told like all
  // others.
  std::optional<Finding> first(double seconds);
  // Looks at once, and tells what is found, whether that is new or not.
  void lookAgain();
  // Whether the look that was under way at the last call goes on. When it ends, what is there then
  // is told, whether it is new or not.
  bool isHeldUp();

 private:
  class Thread;

  void handleFinding();

  const std::shared_ptr<Thread> thread_;
  const Call call_;
  const Qel::Ptr<Qel::EventWatch> told_;
  std::uint64_t lastLook_ = 0;  // that was under way at the last question
};

}  // namespace Kavra::File
