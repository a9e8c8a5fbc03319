#include "Kavra/File/Lookout.h"

#include <sys/eventfd.h>

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <new>
#include <utility>

#include "Kavra/Aside.h"
#include "Kavra/FileDescriptor.h"
#include "Kavra/Store.h"
#include "Qel/Failure.h"

namespace Kavra::File {

// What the thread and the loop share. The observer is the thread's alone.
class Lookout::Thread {
 public:
  Thread(const std::string& path, const LookOptions& options) : observer_(path, options) {}

  // What the thread does.
  void run() {
    while (begin()) {
      std::optional<Finding> finding;
      const auto failure = Qel::failureOf([&] {
        finding = observer_.look();
        endLook();
        if (finding) understand(*finding);
      });
      if (failure) {
        // There may not even be the memory to tell what is wrong.
        finding.reset();
        observer_.forget();
      }
      finish(std::move(finding));
      observer_.wait(wake_.fd());
    }
  }

  // The loop's side.
  int toldFd() const noexcept { return told_.fd(); }
  void end() {
    const std::lock_guard lock(mutex_);
    ended_ = true;
    ::eventfd_write(wake_.fd(), 1);
  }
  void lookAgain() {
    const std::lock_guard lock(mutex_);
    again_ = true;
    ::eventfd_write(wake_.fd(), 1);
  }
  std::optional<Finding> take() {
    const std::lock_guard lock(mutex_);
    eventfd_t findings = 0;
    ::eventfd_read(told_.fd(), &findings);
    return std::exchange(finding_, std::nullopt);
  }
  std::optional<Finding> takeWithin(double seconds) {
    std::unique_lock lock(mutex_);
    found_.wait_for(lock, std::chrono::duration<double>(seconds),
                    [this] { return finding_ || state_ == State::understanding; });
    // What was read keeps nobody waiting for a file system.
    found_.wait(lock, [this] { return finding_ || state_ != State::understanding; });
    lock.unlock();
    return take();
  }
  // The number of the look under way, from 1; 0 between two.
  std::uint64_t present() {
    const std::lock_guard lock(mutex_);
    return state_ == State::looking ? looks_ : 0;
  }

 private:
  enum class State { waiting, looking, understanding };

  static void understand(Finding& finding) {
    if (!finding.content) return;
    try {
      auto parsed = finding.file->parse(finding.content->text);
      auto problems = parsed.problems();
      finding.meaning = {std::move(parsed.documents), std::move(problems)};
    } catch (const StoreException& error) {
      finding.misfit = error.what();
    } catch (const std::bad_alloc&) {
      finding.meaning.reset();
    }
  }

  // False at the end.
  bool begin() {
    const std::lock_guard lock(mutex_);
    if (ended_) return false;
    if (std::exchange(again_, false)) {
      eventfd_t calls = 0;
      ::eventfd_read(wake_.fd(), &calls);
      observer_.forget();
    }
    state_ = State::looking;
    ++looks_;
    return true;
  }
  void endLook() {
    const std::lock_guard lock(mutex_);
    state_ = State::understanding;
    found_.notify_all();
  }
  void finish(std::optional<Finding> finding) {
    const std::lock_guard lock(mutex_);
    state_ = State::waiting;
    found_.notify_all();
    if (!finding) return;
    finding_ = std::move(finding);
    ::eventfd_write(told_.fd(), 1);
  }

  FileObserver observer_;
  const FileDescriptor told_ = newEvent();  // there is a finding
  const FileDescriptor wake_ = newEvent();  // the thread is wanted

  std::mutex mutex_;  // over all that follows
  std::condition_variable found_;
  bool ended_ = false;
  bool again_ = false;
  State state_ = State::waiting;
  std::uint64_t looks_ = 0;
  std::optional<Finding> finding_;
};

Lookout::Lookout(Qel::EventLoop& loop, const std::string& path, const LookOptions& options,
                 Call call)
    : thread_(std::make_shared<Thread>(path, options)),
      call_(std::move(call)),
      told_(loop.readableIs(thread_->toldFd(), [this] { handleFinding(); })) {
  runAside([thread = thread_] { thread->run(); });
}

Lookout::~Lookout() { thread_->end(); }

std::optional<Finding> Lookout::first(double seconds) { return thread_->takeWithin(seconds); }

void Lookout::lookAgain() { thread_->lookAgain(); }

bool Lookout::isHeldUp() {
  const std::uint64_t look = thread_->present();
  const bool heldUp = look != 0 && look == lastLook_;
  lastLook_ = look;
  if (heldUp) lookAgain();
  return heldUp;
}

void Lookout::handleFinding() {
  // Whoever is told may let go of the lookout.
  const Qel::Ptr<Lookout> alive(this);
  if (auto finding = thread_->take()) call_(std::move(*finding));
}

}  // namespace Kavra::File
