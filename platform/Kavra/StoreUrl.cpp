#include "Kavra/StoreUrl.h"

#include "Kavra/FileFeed.h"
#include "Kavra/FileStore.h"

namespace Kavra {

StoreUrl::StoreUrl(const std::string& text) : text_(text) {
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
    if (!place_.empty()) return;
  }
  throw StoreException("'" + text +
                       "' is not the address of a state database: file:PATH, redis://HOST[:PORT] "
                       "or redis+unix:PATH");
}

void StoreUrl::needFile() const {
  if (scheme_ != Scheme::file) {
    throw StoreException(text_ + ": the Redis store is not built yet, only file:PATH is");
  }
}

Qel::Ptr<Feed> StoreUrl::feed(Qel::EventLoop& loop, const Qel::Ptr<Qel::Clock const>& clock) const {
  needFile();
  return Qel::make<FileFeed>(place_, loop, clock);
}

Qel::Ptr<Store> StoreUrl::store(const Qel::Ptr<Qel::Clock const>& clock) const {
  needFile();
  return Qel::make<FileStore>(place_, clock);
}

}  // namespace Kavra
