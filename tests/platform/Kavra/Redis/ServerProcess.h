#pragma once

#include <netinet/in.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <iterator>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "Kavra/FileDescriptor.h"
#include "Kavra/Redis/Client.h"
#include "Kavra/Redis/ConnectionOptions.h"
#include "Kavra/Store.h"
#include "platform/Kavra/DatabaseDirectory.h"

namespace kavratest {

// A TCP port that nobody listens at.
inline std::string freePort() {
  const Kavra::FileDescriptor fd(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  sockaddr_in address = {};
  address.sin_family = AF_INET;
  socklen_t size = sizeof address;
  auto* const any = reinterpret_cast<sockaddr*>(&address);
  if (::bind(fd.fd(), any, size) != 0 || ::getsockname(fd.fd(), any, &size) != 0) {
    throw std::runtime_error("no free port");
  }
  return std::to_string(ntohs(address.sin_port));
}

// A real redis-server of the test's own, on a Unix socket in a temporary directory, ended with it.
class ServerProcess {
 public:
  // `arguments` are further ones for the server's command line.
  explicit ServerProcess(std::vector<std::string> arguments = {})
      : arguments_(std::move(arguments)) {
    start();
  }
  ServerProcess(const ServerProcess&) = delete;
  ServerProcess& operator=(const ServerProcess&) = delete;
  ~ServerProcess() { kill(); }

  std::string socket() const { return (directory_.path() / "redis.sock").string(); }
  std::string url() const { return "redis+unix:" + socket(); }
  Kavra::Redis::ConnectionOptions options() const {
    return {Kavra::Redis::Address::ofPath(socket()), {}};
  }
  const DatabaseDirectory& directory() const { return directory_; }

  // Sends one command as the default user, and returns the reply.
  Kavra::Redis::Reply command(const Kavra::Redis::Command& command) const {
    return Kavra::Redis::Client(options()).request({command}).front();
  }

  void kill() {
    if (pid_ < 0) return;
    signal(SIGKILL);
    int status = 0;
    ::waitpid(pid_, &status, 0);
    pid_ = -1;
  }
  void signal(int number) const { ::kill(pid_, number); }

  // Starts it, and waits until it answers.
  void start() {
    std::vector<std::string> texts{"redis-server",
                                   "--port",
                                   "0",
                                   "--save",
                                   "",
                                   "--appendonly",
                                   "no",
                                   "--unixsocket",
                                   socket(),
                                   "--dir",
                                   directory_.path().string(),
                                   "--logfile",
                                   (directory_.path() / "redis.log").string()};
    texts.insert(texts.end(), arguments_.begin(), arguments_.end());
    std::vector<char*> argv;
    std::transform(texts.begin(), texts.end(), std::back_inserter(argv),
                   [](std::string& text) { return text.data(); });
    argv.push_back(nullptr);
    if (::posix_spawnp(&pid_, "redis-server", nullptr, nullptr, argv.data(), environ) != 0) {
      throw std::runtime_error("cannot start redis-server");
    }
    waitUntilItAnswers();
  }

 private:
  void waitUntilItAnswers() const {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    for (;;) {
      try {
        if (!command({"PING"}).isError()) return;
      } catch (const Kavra::StoreException&) {
        if (std::chrono::steady_clock::now() > deadline) throw;
      }
      std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
  }

  const DatabaseDirectory directory_;
  const std::vector<std::string> arguments_;
  pid_t pid_ = -1;
};

}  // namespace kavratest
