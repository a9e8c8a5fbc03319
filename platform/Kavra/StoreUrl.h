#pragma once

#include <string>

#include "Kavra/Feed.h"
#include "Kavra/Store.h"
#include "Qel/Clock.h"
#include "Qel/EventLoop.h"
#include "Qel/Ptr.h"

namespace Kavra {

namespace Redis {
class Address;
struct ConnectionOptions;
}  // namespace Redis

// The address of a state database: file:PATH, redis://HOST[:PORT] or redis+unix:PATH. The one place
// that knows which store is behind which scheme.
class StoreUrl {
 public:
  // `credentialsFile` names the file with the user and the password of a Redis server that wants to
  // know them (see Redis/ConnectionOptions.h); empty for none. Raises StoreException for any other
  // address, and for a file that is to be opened with a user.
  explicit StoreUrl(const std::string& text, const std::string& credentialsFile = {});

  const std::string& text() const noexcept { return text_; }

  // Traces (level 0) that the way to a server beyond this computer is not encrypted.
  void tellIfNotEncrypted() const;
  // Opens the live side, and tells if that is not encrypted; `loop` must outlive it. Raises
  // StoreException when the address cannot be followed at all.
  Qel::Ptr<Feed> feed(Qel::EventLoop& loop, const Qel::Ptr<Qel::Clock const>& clock) const;
  // Opens the database for whole documents. Raises StoreException.
  Qel::Ptr<Store> store(const Qel::Ptr<Qel::Clock const>& clock) const;

  friend bool operator==(const StoreUrl& a, const StoreUrl& b) = default;

 private:
  enum class Scheme { file, redis, redisUnix };

  // Of a server's scheme.
  Redis::Address address() const;
  Redis::ConnectionOptions connectionOptions() const;

  std::string text_;
  Scheme scheme_ = Scheme::file;
  std::string place_;  // the path, or HOST[:PORT]
  std::string credentialsFile_;
};

}  // namespace Kavra
