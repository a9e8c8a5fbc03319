#include "resetcause/Child.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <system_error>
#include <utility>

#include "Kavra/FileDescriptor.h"
#include "resetcause/Root.h"

namespace ResetCause {

namespace {

using Kavra::FileDescriptor;
using Monotonic = std::chrono::steady_clock;

std::vector<char*> argumentsOf(const std::vector<std::string>& command) {
  std::vector<char*> arguments;
  arguments.reserve(command.size() + 1);
  for (const std::string& word : command) arguments.push_back(const_cast<char*>(word.c_str()));
  arguments.push_back(nullptr);
  return arguments;
}

[[noreturn]] void raise(int error) { throw std::system_error(error, std::generic_category()); }

int waitFor(pid_t child) {
  int status = 0;
  while (::waitpid(child, &status, 0) < 0) {
    if (errno != EINTR) raise(errno);
  }
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

// A program whose standard output is read here, in a group of its own that ends with this.
class Piped {
 public:
  explicit Piped(const std::string& path) {
    std::array<int, 2> ends{};
    if (::pipe2(ends.data(), O_CLOEXEC) != 0) raise(errno);
    out_ = FileDescriptor(ends[0]);
    const FileDescriptor in(ends[1]);
    posix_spawn_file_actions_t actions;
    ::posix_spawn_file_actions_init(&actions);
    ::posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
    ::posix_spawn_file_actions_adddup2(&actions, in.fd(), 1);
    ::posix_spawn_file_actions_addopen(&actions, 2, "/dev/null", O_WRONLY, 0);
    posix_spawnattr_t group;
    ::posix_spawnattr_init(&group);
    ::posix_spawnattr_setflags(&group, POSIX_SPAWN_SETPGROUP);
    std::array<char*, 1> noEnvironment{nullptr};
    std::array<char*, 2> arguments{const_cast<char*>(path.c_str()), nullptr};
    const int error = ::posix_spawn(&child_, path.c_str(), &actions, &group, arguments.data(),
                                    noEnvironment.data());
    ::posix_spawnattr_destroy(&group);
    ::posix_spawn_file_actions_destroy(&actions);
    if (error != 0) {
      child_ = -1;
      raise(error);
    }
  }
  Piped(const Piped&) = delete;
  Piped& operator=(const Piped&) = delete;
  ~Piped() {
    if (child_ <= 0) return;
    ::kill(-child_, SIGKILL);
    int status = 0;
    ::waitpid(child_, &status, 0);
  }

  // Up to its end.
  std::string output(std::size_t most, Monotonic::time_point deadline) {
    std::string text;
    std::array<char, 4096> piece{};
    for (;;) {
      const auto left =
          std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Monotonic::now());
      pollfd ready{out_.fd(), POLLIN, 0};
      if (left.count() <= 0 || ::poll(&ready, 1, static_cast<int>(left.count())) == 0) {
        throw SourceException("it takes too long");
      }
      const ssize_t count = ::read(out_.fd(), piece.data(), piece.size());
      if (count == 0) return text;
      if (count < 0 && errno != EINTR) raise(errno);
      if (count > 0) text.append(piece.data(), static_cast<std::size_t>(count));
      if (text.size() > most) throw SourceException("it prints too much");
    }
  }
  // The output may end before the program does.
  int status(Monotonic::time_point deadline) {
    siginfo_t ended{};
    while (::waitid(P_PID, static_cast<id_t>(child_), &ended, WEXITED | WNOHANG | WNOWAIT) == 0 &&
           ended.si_pid == 0) {
      if (Monotonic::now() > deadline) throw SourceException("it takes too long");
      ::poll(nullptr, 0, 2);
    }
    // What it left running; the group is its own until it has been waited for.
    ::kill(-child_, SIGKILL);
    return waitFor(std::exchange(child_, -1));
  }

 private:
  FileDescriptor out_;
  pid_t child_ = -1;
};

// While one lives, the signals of a terminal's keys do nothing here.
class DeafToKeys {
 public:
  DeafToKeys() {
    struct sigaction ignore {};
    ignore.sa_handler = SIG_IGN;
    for (std::size_t i = 0; i < kSignals.size(); ++i) {
      ::sigaction(kSignals[i], &ignore, &before_[i]);
    }
  }
  DeafToKeys(const DeafToKeys&) = delete;
  DeafToKeys& operator=(const DeafToKeys&) = delete;
  ~DeafToKeys() {
    for (std::size_t i = 0; i < kSignals.size(); ++i) {
      ::sigaction(kSignals[i], &before_[i], nullptr);
    }
  }

  // Those that were not ignored before.
  sigset_t heard() const {
    sigset_t set;
    ::sigemptyset(&set);
    for (std::size_t i = 0; i < kSignals.size(); ++i) {
      if (before_[i].sa_handler != SIG_IGN) ::sigaddset(&set, kSignals[i]);
    }
    return set;
  }

 private:
  static constexpr std::array<int, 2> kSignals{SIGINT, SIGQUIT};
  std::array<struct sigaction, kSignals.size()> before_{};
};

}  // namespace

int statusOf(const std::vector<std::string>& command) {
  const DeafToKeys deaf;
  const sigset_t heard = deaf.heard();
  posix_spawnattr_t attributes;
  ::posix_spawnattr_init(&attributes);
  ::posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGDEF);
  ::posix_spawnattr_setsigdefault(&attributes, &heard);
  pid_t child = -1;
  const auto arguments = argumentsOf(command);
  const int error =
      ::posix_spawnp(&child, arguments.front(), nullptr, &attributes, arguments.data(), environ);
  ::posix_spawnattr_destroy(&attributes);
  return error == 0 ? waitFor(child) : 127;
}

void become(const std::vector<std::string>& command) {
  ::execvp(command.front().c_str(), argumentsOf(command).data());
}

std::string outputOf(const std::string& path, std::size_t most, double seconds) {
  const auto deadline = Monotonic::now() + std::chrono::duration_cast<Monotonic::duration>(
                                               std::chrono::duration<double>(seconds));
  Piped program(path);
  std::string text = program.output(most, deadline);
  const int status = program.status(deadline);
  if (status != 0) throw SourceException(Qel::String(fmt::format("it ended with {}", status)));
  return text;
}

}  // namespace ResetCause
