#include "host/StateDatabase.h"

#include <fmt/format.h>

#include <string>

#include "Kavra/Feed.h"
#include "Kavra/Store.h"
#include "Kavra/StoreUrl.h"
#include "Qel/ActivityManager.h"
#include "Qel/Types.h"
#include "host/Errors.h"

namespace Host {
namespace {

Kavra::StoreUrl urlOf(const char* option, const std::string& text, const std::string& auth) {
  try {
    return Kavra::StoreUrl(text, auth);
  } catch (const Kavra::StoreException& error) {
    throw UsageError(fmt::format("{}: {}", option, error.what()));
  }
}

Qel::Ptr<Kavra::Feed> feedOf(const Kavra::StoreUrl& url, Qel::EventLoop& loop) {
  try {
    return url.feed(loop, Qel::activityManager()->clock());
  } catch (const Kavra::StoreException& error) {
    throw StartError(error.what());
  }
}

std::vector<StateDatabase::Database> databasesOf(const Options& options, Qel::EventLoop& loop) {
  const Kavra::StoreUrl own = urlOf("--db", options.db, options.dbAuth);
  const Kavra::StoreUrl peer = urlOf("--peer-db", options.peerDb, options.peerDbAuth);
  std::vector<StateDatabase::Database> databases{{own.text(), options.dbAuth, feedOf(own, loop)}};
  if (peer != own) databases.push_back({peer.text(), options.peerDbAuth, feedOf(peer, loop)});
  return databases;
}

Qel::Ptr<Kavra::EntityManager> entityManagerOf(
    const Options& options, const std::vector<StateDatabase::Database>& databases) {
  const auto& own = databases.front().feed;
  if (databases.size() == 1) return Qel::make<Kavra::EntityManager>(own);
  // Supervisors are cells 1 and 2, and each is the other's peer.
  const U32 peerCell = 3 - options.cellId;
  return Qel::make<Kavra::EntityManager>(own, databases.back().feed,
                                         fmt::format("cell/{}/", peerCell));
}

template <class Entity>
Qel::Ptr<Entity> entityOf(Kavra::EntityManager& manager, const std::string& path,
                          const char* typeName) {
  return Qel::ptrCast<Entity>(manager.entityIs(path, typeName));
}

}  // namespace

StateDatabase::StateDatabase(const Options& options, Qel::EventLoop& loop)
    : databases_(databasesOf(options, loop)),
      entityManager_(entityManagerOf(options, databases_)),
      resetHistory_(entityOf<System::ResetCauseHistory>(
          *entityManager_, fmt::format("cell/{}/sys/reset/history", options.cellId),
          "System::ResetCauseHistory")),
      redundancyStatus_(entityOf<Redundancy::RedundancyStatus>(
          *entityManager_, fmt::format("cell/{}/redundancy/status", options.cellId),
          "Redundancy::RedundancyStatus")) {}

}  // namespace Host
