#pragma once

#include <atomic>
#include <condition_variable>
#include <mutex>

namespace kavratest {

// Names that the test program looks up apart from all others, which the system answers.
//
// Two addresses each, one of which nobody listens at.
constexpr char kRefusingFirst[] = "refusing-first.test";
constexpr char kRefusingLast[] = "refusing-last.test";
// One that is not answered while an UnansweredName lives; 127.0.0.1 then.
constexpr char kUnanswered[] = "unanswered.test";

// One at a time. Whoever waits for the name is answered before it goes.
class UnansweredName {
 public:
  UnansweredName();
  UnansweredName(const UnansweredName&) = delete;
  UnansweredName& operator=(const UnansweredName&) = delete;
  ~UnansweredName();

  // Answers whoever waits, and who asks from now on.
  void answer();
  // How many wait for an answer, and how many asked up to now.
  int waiting() const { return waiting_; }
  int questions() const { return questions_; }

  // Asks, on the thread of a look-up.
  static void wait();

 private:
  static std::atomic<UnansweredName*> present;

  std::mutex mutex_;
  std::condition_variable changed_;
  bool answered_ = false;
  std::atomic<int> waiting_ = 0;
  std::atomic<int> questions_ = 0;
};

}  // namespace kavratest
