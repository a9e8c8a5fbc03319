#pragma once

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>

#include "Kavra/FileDescriptor.h"
#include "Kavra/Redis/Address.h"
#include "Qel/EventLoop.h"
#include "Qel/Ptr.h"
#include "platform/Kavra/DatabaseDirectory.h"

namespace kavratest {

// Listens on a Unix socket of its own, and sends back whatever `answer` makes of each piece that a
// client sends.
//
// What goes back can be cut into single octets, a loop's pass each.
class FakeServer {
 public:
  // Called with the number of the connection and what came; returns what to send.
  using Answer = std::function<std::string(unsigned connection, std::string_view request)>;

  FakeServer(Qel::EventLoop& loop, Answer answer)
      : loop_(loop), answer_(std::move(answer)), listener_(listening(socket())) {
    accepting_ = loop_.readableIs(listener_.fd(), [this] { accept(); });
  }

  std::string socket() const { return (directory_.path() / "fake.sock").string(); }
  std::string url() const { return "redis+unix:" + socket(); }
  unsigned connections() const { return connections_; }
  std::size_t openConnections() const { return peers_.size(); }

  void singleOctetsIs(bool singleOctets) { singleOctets_ = singleOctets; }
  // Sends more on a connection, asked or not.
  void sends(unsigned connection, std::string_view text) {
    peers_.at(connection).unsent += text;
    send(connection);
  }
  // Ends every connection that stands.
  void closeAll() { peers_.clear(); }

 private:
  struct Peer {
    Kavra::FileDescriptor fd;
    std::string unsent;
    std::size_t sent = 0;
    Qel::Ptr<Qel::EventWatch> readable;
    Qel::Ptr<Qel::EventWatch> sending;
  };

  static Kavra::FileDescriptor listening(const std::string& path) {
    Kavra::FileDescriptor fd(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    const Kavra::SocketAddress address = Kavra::Redis::Address::ofPath(path).resolve().front();
    if (::bind(fd.fd(), address.address(), address.size) != 0 || ::listen(fd.fd(), 16) != 0) {
      throw std::runtime_error("cannot listen on " + path);
    }
    return fd;
  }

  void accept() {
    const unsigned number = connections_++;
    Peer& peer = peers_[number];
    peer.fd = Kavra::FileDescriptor(
        ::accept4(listener_.fd(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
    peer.readable = loop_.readableIs(peer.fd.fd(), [this, number] { receive(number); });
  }
  void receive(unsigned number) {
    char piece[65536];
    const ssize_t size = ::recv(peers_.at(number).fd.fd(), piece, sizeof piece, 0);
    if (size <= 0) {
      peers_.erase(number);
      return;
    }
    const std::string reply = answer_(number, {piece, static_cast<std::size_t>(size)});
    const auto peer = peers_.find(number);
    if (peer == peers_.end()) return;
    peer->second.unsent += reply;
    send(number);
  }
  void send(unsigned number) {
    Peer& peer = peers_.at(number);
    const std::string_view left = std::string_view(peer.unsent).substr(peer.sent);
    const std::string_view piece = left.substr(0, singleOctets_ ? 1 : left.size());
    const ssize_t size = ::send(peer.fd.fd(), piece.data(), piece.size(), MSG_NOSIGNAL);
    if (size < 0 && errno != EAGAIN) {
      peers_.erase(number);
      return;
    }
    peer.sent += size < 0 ? 0 : static_cast<std::size_t>(size);
    if (peer.sent < peer.unsent.size()) {
      peer.sending = loop_.timerIs(0.0, [this, number] { send(number); });
    }
  }

  Qel::EventLoop& loop_;
  const Answer answer_;
  const DatabaseDirectory directory_;
  const Kavra::FileDescriptor listener_;
  bool singleOctets_ = false;
  unsigned connections_ = 0;
  std::map<unsigned, Peer> peers_;
  Qel::Ptr<Qel::EventWatch> accepting_;
};

}  // namespace kavratest
