#include "Kavra/StoreUrl.h"

#include <fmt/format.h>
#include <string_view>

#include "Kavra/File/Feed.h"
#include "Kavra/File/Store.h"
#include "Kavra/KavraTrace.h"
#include "Kavra/Redis/Address.h"
#include "Kavra/Redis/ConnectionOptions.h"
#include "Kavra/Redis/Feed.h"
#include "Kavra/Redis/Store.h"

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

Redis::Address StoreUrl::address() const {
  return scheme_ == Scheme::redis ? Redis::Address::ofHost(place_) : Redis::Address::ofPath(place_);
}

Redis::ConnectionOptions StoreUrl::connectionOptions() const {
  Redis::ConnectionOptions options{address(), {}, credentialsFile_};
  if (!credentialsFile_.empty()) options.login = Redis::Login::ofFile(credentialsFile_);
  return options;
}

void StoreUrl::tellIfNotEncrypted() const {
  if (scheme_ == Scheme::file || address().isLocal()) return;
  trace(0, text_ +
               ": not encrypted: without a tunnel, user, password and documents can be read on "
               "the way");
}

Qel::Ptr<Feed> StoreUrl::feed(Qel::EventLoop& loop, const Qel::Ptr<Qel::Clock const>& clock) const {
  if (scheme_ == Scheme::file) return Qel::make<File::Feed>(place_, loop, clock);
  tellIfNotEncrypted();
  return Qel::make<Redis::Feed>(connectionOptions(), loop, clock);
}

Qel::Ptr<Store> StoreUrl::store(const Qel::Ptr<Qel::Clock const>& clock) const {
  if (scheme_ == Scheme::file) return Qel::make<File::Store>(place_, clock);
  return Qel::make<Redis::Store>(connectionOptions(), clock);
}

}  // namespace Kavra
