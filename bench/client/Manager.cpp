#include "bench/client/Manager.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <stdexcept>
#include <system_error>

namespace Bench {
namespace {

constexpr std::size_t kLargestDatagram = 65536;
constexpr int kPatience = 5;  // seconds
constexpr U32 kFirstId = 0x01000000;
constexpr U32 kIds = 0x7f000000 - kFirstId;

[[noreturn]] void fail(const char* what) {
  throw std::system_error(errno, std::generic_category(), what);
}

int connectedTo(unsigned short port) {
  const int opened = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  if (opened < 0) fail("cannot open a socket");
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  const timeval patience{kPatience, 0};
  ::setsockopt(opened, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
  if (::connect(opened, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
    ::close(opened);
    fail("cannot connect");
  }
  return opened;
}

}  // namespace

Manager::Manager(unsigned short port)
    : socket_(connectedTo(port)), received_(kLargestDatagram, '\0') {}

Manager::~Manager() { ::close(socket_); }

const Response& Manager::ask(Question question, std::string_view name, U32 repetitions) {
  id_ = kFirstId + (id_ - kFirstId + 1) % kIds;
  writeRequest(request_, question, id_, name, repetitions);
  if (::send(socket_, request_.data(), request_.size(), 0) < 0) fail("cannot ask");
  const ssize_t length = ::recv(socket_, received_.data(), received_.size(), 0);
  if (length < 0) fail("no answer");
  readResponse({received_.data(), static_cast<std::size_t>(length)}, response_);
  if (response_.id != id_) throw std::runtime_error("an answer to another question");
  if (response_.errorStatus != 0) throw std::runtime_error("the agent answered with an error");
  return response_;
}

}  // namespace Bench
