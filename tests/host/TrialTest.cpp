#include "host/Trial.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <poll.h>
#include <unistd.h>

#include <csignal>
#include <optional>
#include <stdexcept>

#include "support/ManualEventLoop.h"

namespace Host {
namespace {

using testing::Optional;

class TrialTest : public testing::Test {
 protected:
  void begin(const Trial::Work& work) {
    trial_.emplace(loop_, work, [this](const std::string& problem) {
      problem_ = problem;
      trial_.reset();
    });
  }
  // Has the loop hear of what the copy tells, and of its end.
  void settle() {
    while (trial_) {
      int fd = 0;
      while (!loop_.isReadWatched(fd)) ++fd;
      pollfd ready{fd, POLLIN, 0};
      ASSERT_EQ(::poll(&ready, 1, 10'000), 1);
      loop_.readable(fd);
    }
  }
  std::optional<std::string> problemOf(const Trial::Work& work) {
    problem_.reset();
    begin(work);
    EXPECT_FALSE(problem_);
    settle();
    return problem_;
  }

  support::ManualEventLoop loop_;
  std::optional<std::string> problem_;
  std::optional<Trial> trial_;
};

TEST_F(TrialTest, TellsWhatIsWrong) {
  EXPECT_THAT(problemOf([] { return std::string(); }), Optional(std::string()));
  EXPECT_THAT(problemOf([] { return std::string("line 2"); }), Optional(std::string("line 2")));
  EXPECT_THAT(problemOf([]() -> std::string { throw std::runtime_error("no file"); }),
              Optional(std::string("no file")));
  EXPECT_EQ(loop_.timers(), 0U);
  EXPECT_EQ(loop_.descriptors(), 0U);
}

TEST_F(TrialTest, ChangesNothingInTheProcess) {
  int changes = 0;
  const auto problem = problemOf([&changes] { return std::to_string(++changes); });
  EXPECT_THAT(problem, Optional(std::string("1")));
  EXPECT_EQ(changes, 0);
}

TEST_F(TrialTest, HasNoPartInTheDescriptorsOfTheProcess) {
  int ends[2];
  ASSERT_EQ(::pipe(ends), 0);
  const auto problem = problemOf([&ends] {
    const bool closed = ::fcntl(ends[0], F_GETFD) < 0 || ::fcntl(ends[1], F_GETFD) < 0;
    return std::string(closed ? "" : "open");
  });
  EXPECT_THAT(problem, Optional(std::string()));
  ::close(ends[0]);
  ::close(ends[1]);
}

TEST_F(TrialTest, TakesACopyThatEndsWithoutAWordForAProblem) {
  EXPECT_THAT(problemOf([]() -> std::string {
                std::raise(SIGKILL);
                return {};
              }),
              Optional(std::string("the trial ended without a word")));
}

TEST_F(TrialTest, EndsACopyThatTakesTooLong) {
  begin([]() -> std::string {
    for (;;) ::pause();
  });
  loop_.advance(Trial::kPatience);
  settle();
  EXPECT_THAT(problem_, Optional(std::string("it took more than 5 s")));
}

TEST_F(TrialTest, TakesItsCopyWithIt) {
  int ends[2];
  ASSERT_EQ(::pipe(ends), 0);
  begin([]() -> std::string {
    for (;;) ::pause();
  });
  trial_.reset();
  EXPECT_EQ(loop_.timers(), 0U);
  EXPECT_EQ(loop_.descriptors(), 0U);
  ::close(ends[1]);
  // The copy is gone, or it would hold the other end before it had closed what it inherited.
  char octet = 0;
  EXPECT_EQ(::read(ends[0], &octet, 1), 0);
  ::close(ends[0]);
}

}  // namespace
}  // namespace Host
