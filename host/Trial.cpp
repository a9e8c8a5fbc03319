#include "host/Trial.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstddef>
#include <exception>
#include <system_error>
#include <utility>

namespace Host {
namespace {

constexpr char kGood = '+';  // what the copy tells first
constexpr char kBad = '-';
constexpr std::size_t kMostTold = PIPE_BUF;  // goes through a pipe in one piece, without waiting

// Ends the copy. Whatever of the process ends in a destructor is still in use there.
[[noreturn]] void work(const Trial::Work& work, int to) noexcept {
  constexpr int kTo = 3;
  ::prctl(PR_SET_PDEATHSIG, SIGKILL);
  ::dup2(to, kTo);
  ::close_range(kTo + 1, UINT_MAX, 0);
  std::string told;
  try {
    told = work();
    told.insert(0, 1, told.empty() ? kGood : kBad);
  } catch (const std::exception& error) {
    told = kBad + std::string(error.what());
  }
  told.resize(std::min(told.size(), kMostTold));
  [[maybe_unused]] const auto written = ::write(kTo, told.data(), told.size());
  ::_exit(0);
}

}  // namespace

Trial::Trial(Qel::EventLoop& loop, const Work& work, Call done) : done_(std::move(done)) {
  int ends[2];
  if (::pipe2(ends, O_CLOEXEC | O_NONBLOCK) != 0) {
    throw std::system_error(errno, std::generic_category(), "no pipe");
  }
  from_ = Kavra::FileDescriptor(ends[0]);
  const Kavra::FileDescriptor to(ends[1]);
  readable_ = loop.readableIs(from_.fd(), [this] { handleReadable(); });
  timer_ = loop.timerIs(kPatience, [this] { handleTimeout(); });
  copy_ = ::fork();
  if (copy_ < 0) throw std::system_error(errno, std::generic_category(), "no copy of the process");
  if (copy_ == 0) Host::work(work, to.fd());
}

Trial::~Trial() {
  if (copy_ <= 0) return;
  ::kill(copy_, SIGKILL);
  // One that is deep in the kernel ends later, and is the init process's then.
  ::waitpid(copy_, nullptr, WNOHANG);
}

void Trial::handleReadable() {
  char chunk[kMostTold];
  const ssize_t count = ::read(from_.fd(), chunk, sizeof chunk);
  if (count > 0) told_.append(chunk, static_cast<std::size_t>(count));
  if (count != 0) return;
  ::waitpid(std::exchange(copy_, -1), nullptr, 0);
  timer_ = nullptr;
  readable_ = nullptr;
  const Call done = done_;  // it may end this object
  done(problem());
}

void Trial::handleTimeout() {
  late_ = true;
  ::kill(copy_, SIGKILL);
}

std::string Trial::problem() {
  if (late_) return fmt::format("it took more than {:.0f} s", kPatience);
  if (told_.empty()) return "the trial ended without a word";
  return told_.substr(1);
}

}  // namespace Host
