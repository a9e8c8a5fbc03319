#pragma once

#include <memory>
#include <string>
#include <vector>

#include "Kavra/AddressLookup.h"
#include "Kavra/SocketAddress.h"

namespace Kavra::Redis {

// Where a Redis server listens: a host and a port, or the path of a Unix socket.
class Address {
 public:
  static constexpr unsigned kUsualPort = 6379;

  // "HOST", "HOST:PORT", "[IPV6]" or "[IPV6]:PORT". Raises StoreException for anything else.
  static Address ofHost(const std::string& text);
  // Raises StoreException for a path that is too long for a socket.
  static Address ofPath(const std::string& path);

  // As it was given, with the scheme of the state database's addresses.
  const std::string& text() const noexcept { return text_; }
  // Whether the host is a name, which has to be looked up.
  bool isNamed() const;
  // Whether it certainly leads to this computer: a path, a loopback number or "localhost".
  bool isLocal() const;
  // Every address that the host has at the moment, at least one. Whoever asks for a name waits for
  // the look-up; may be called from any thread. Raises StoreException.
  std::vector<SocketAddress> resolve() const;
  // The same, of a name, for those who do not wait for it without end. This address and its copies
  // share it, so that they have one thread look up the name at a time. For one thread.
  AddressLookup& lookup() const { return *lookup_; }
  // Raises the StoreException of a look-up that took longer than AddressLookup::kPatience.
  [[noreturn]] void failUnanswered() const;

 private:
  Address() = default;
  // Asks getaddrinfo(3), with its flags.
  std::vector<SocketAddress> resolve(int flags) const;

  std::string text_;
  std::string host_;  // empty for a path
  std::string port_;
  std::string path_;
  std::shared_ptr<AddressLookup> lookup_;  // null for a path
};

}  // namespace Kavra::Redis
