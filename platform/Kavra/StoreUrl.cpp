#include "Kavra/StoreUrl.h"

#include <fmt/format.h>

#include "Kavra/FileFeed.h"
#include "Kavra/FileStore.h"
#include "Kavra/RedisFeed.h"
#include "Kavra/RedisStore.h"

namespace Kavra {

StoreUrl::StoreUrl(const std::string& text, const std::string& credentialsFile)
    : text_(text), credentialsFile_(credentialsFile) {
  struct Prefix {
    std::string_view text;
    Scheme scheme;
  };
  constexpr Prefix kPrefixes[] = {
      {"file:", Scheme::file}, {"redis://", Scheme::redis}, {"redis+unix:", Scheme::redisUnix}};
  for (const auto& [prefix, scheme] : kPrefixes) {
    if (!text.starts_with(prefix)) continue;
    scheme_ = scheme;
    place_ = text.substr(prefix.size());
    if (place_.empty()) break;
    if (scheme_ != Scheme::file) address();
    if (scheme_ == Scheme::file && !credentialsFile.empty()) {
      throw StoreException(
          fmt::format("'{}' is a file: it takes no user and password ({})", text, credentialsFile));
    }
    return;
  }
  throw StoreException("'" + text +
                       "' is not the address of a state database: file:PATH, redis://HOST[:PORT] "
                       "or redis+unix:PATH");
}

RedisAddress StoreUrl::address() const {
  return scheme_ == Scheme::redis ? RedisAddress::ofHost(place_) : RedisAddress::ofPath(place_);
}

RedisServer StoreUrl::server() const {
  RedisServer server{address(), {}};
  if (!credentialsFile_.empty()) server.credentials = RedisCredentials::ofFile(credentialsFile_);
  return server;
}

Qel::Ptr<Feed> StoreUrl::feed(Qel::EventLoop& loop, const Qel::Ptr<Qel::Clock const>& clock) const {
  if (scheme_ == Scheme::file) return Qel::make<FileFeed>(place_, loop, clock);
  return Qel::make<RedisFeed>(server(), loop, clock);
}

Qel::Ptr<Store> StoreUrl::store(const Qel::Ptr<Qel::Clock const>& clock) const {
  if (scheme_ == Scheme::file) return Qel::make<FileStore>(place_, clock);
  return Qel::make<RedisStore>(server(), clock);
}

}  // namespace Kavra
