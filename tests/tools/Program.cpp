#include "Program.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <stdexcept>

namespace toolstest {

namespace {

using Clock = std::chrono::steady_clock;
constexpr int kStepMilliseconds = 50;

std::array<int, 2> newPipe() {
  std::array<int, 2> ends{};
  if (::pipe2(ends.data(), O_CLOEXEC) != 0) throw std::runtime_error("no pipe");
  return ends;
}

void closeFd(int& fd) {
  if (fd >= 0) ::close(fd);
  fd = -1;
}

// Appends what there is to read; false at the end.
bool drain(int& fd, std::string& text) {
  std::array<char, 65536> chunk{};
  const ssize_t count = ::read(fd, chunk.data(), chunk.size());
  if (count > 0) text.append(chunk.data(), static_cast<std::size_t>(count));
  if (count == 0) closeFd(fd);
  return count > 0;
}

}  // namespace

Program::Program(const std::vector<std::string>& arguments) {
  const auto in = newPipe();
  const auto out = newPipe();
  const auto err = newPipe();
  std::vector<char*> argv;
  argv.reserve(arguments.size() + 1);
  for (const std::string& argument : arguments) argv.push_back(const_cast<char*>(argument.c_str()));
  argv.push_back(nullptr);
  pid_ = ::fork();
  if (pid_ < 0) throw std::runtime_error("cannot fork");
  if (pid_ == 0) {
    ::dup2(in[0], 0);
    ::dup2(out[1], 1);
    ::dup2(err[1], 2);
    ::execv(argv.front(), argv.data());
    ::_exit(127);
  }
  ::close(in[0]);
  ::close(out[1]);
  ::close(err[1]);
  in_ = in[1];
  out_ = out[0];
  err_ = err[0];
}

Program::~Program() {
  if (pid_ > 0) finish(0.0);
  closeFd(in_);
  closeFd(out_);
  closeFd(err_);
}

void Program::write(const std::string& text) const {
  std::size_t done = 0;
  while (done < text.size()) {
    const ssize_t count = ::write(in_, text.data() + done, text.size() - done);
    if (count < 0 && errno != EINTR) throw std::runtime_error("the program does not read");
    if (count > 0) done += static_cast<std::size_t>(count);
  }
}

void Program::closeInput() { closeFd(in_); }

std::string Program::readLine(const int& fd, std::string& text) {
  const auto deadline = Clock::now() + std::chrono::seconds(10);
  std::size_t end = text.find('\n');
  while (end == std::string::npos && fd >= 0 && Clock::now() < deadline) {
    readSome(kStepMilliseconds);
    end = text.find('\n');
  }
  if (end == std::string::npos) return {};
  std::string line = text.substr(0, end);
  text.erase(0, end + 1);
  return line;
}

void Program::signal(int number) const { ::kill(pid_, number); }

bool Program::readSome(int milliseconds) {
  std::array<pollfd, 2> fds{pollfd{out_, POLLIN, 0}, pollfd{err_, POLLIN, 0}};
  if (::poll(fds.data(), fds.size(), milliseconds) <= 0) return false;
  if (out_ >= 0 && fds[0].revents != 0) drain(out_, outText_);
  if (err_ >= 0 && fds[1].revents != 0) drain(err_, errText_);
  return true;
}

Outcome Program::finish(double seconds) {
  closeInput();
  const auto deadline = Clock::now() + std::chrono::duration<double>(seconds);
  while ((out_ >= 0 || err_ >= 0) && Clock::now() < deadline) readSome(kStepMilliseconds);
  if (out_ >= 0 || err_ >= 0) ::kill(pid_, SIGKILL);
  int status = 0;
  ::waitpid(pid_, &status, 0);
  pid_ = -1;
  return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, outText_, errText_};
}

Outcome run(const std::vector<std::string>& arguments, const std::string& input) {
  Program program(arguments);
  program.write(input);
  return program.finish();
}

}  // namespace toolstest
