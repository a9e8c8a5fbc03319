#pragma once

#include <cstddef>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "Kavra/Claim.h"
#include "Kavra/Redis/Client.h"
#include "Kavra/Redis/ConnectionOptions.h"
#include "Kavra/Redis/Look.h"
#include "Kavra/Redis/ServerState.h"
#include "Kavra/Redis/Snapshot.h"
#include "Kavra/Status.h"
#include "Kavra/Store.h"
#include "Qel/Clock.h"
#include "Qel/Document.h"
#include "Qel/Ptr.h"
#include "Qel/String.h"

namespace Kavra::Redis {

// A state database on a Redis server, for publishers.
//
// A publication is one transaction: every document that changed is written anew as a whole, and the
// doorbell rings for it (XADD, see ServerState.h). When part of it was refused, as where somebody
// put something else in the place of the log, the log and the epoch are taken away and it is
// published again.
//
// Each operation has a connection of its own, so that there is none to look after between them; a
// publisher alone keeps one. When the answer to a publication is lost with the connection, the
// StoreException says that it is not known whether it took effect. A document that cannot be read
// stands among the others as one that fits no type.
class Store final : public Kavra::Store {
 public:
  Store(ConnectionOptions server, const Qel::Ptr<Qel::Clock const>& clock);

  Documents documents(const Qel::String& prefix) override;
  Listing listing(const Qel::String& prefix) override;
  // Publishes all of them anew when the epoch is not that of this object's last publication, or the
  // server holds an older state. What differs is found by reading all that is covered; for half a
  // minute after that, a change is published over what is known to be there, where a short look
  // finds that nothing happened to it.
  bool publicationIs(const Publication& publication) override;
  bool isAsPublished() override;
  void claimDel() override;
  Status status() override;

 protected:
  bool replace(const Qel::String& path, const Qel::Document* document) override;
  void transact(const std::vector<Qel::String>& paths, const Edit& edit) override;

 private:
  // Null: nothing is to be published there.
  using Changes = std::map<Qel::String, const Qel::Document*>;

  using Keys = std::vector<std::string>;
  struct Refusal {
    std::string key;
    std::string why;
  };

  // What is published at one moment: at these paths and at what else is to be covered.
  static Snapshot readAll(Client& client, const std::set<Qel::String>& paths,
                          const std::function<bool(const Qel::String&)>& covers);
  static Snapshot readAll(Client& client, const Qel::String& prefix);
  static Snapshot readOwned(Client& client, const Publication& publication);
  // The documents of the paths, watched by the next publication.
  static Documents readWatched(Client& client, const std::vector<Qel::String>& paths);
  // What differs between the server and what it is to hold; all of it where it `lost` that.
  static Changes changesOf(const Documents& present, const Documents& wanted, bool lost);
  // What a server holds of a publication.
  struct Held {
    Documents documents;
    std::map<Qel::String, std::string> index;
    std::set<Qel::String> unchecked;
    ServerState state;
    double readAt = 0.0;           // by the clock
    std::set<Qel::String> spared;  // what was not read
  };

  // The publisher's connection, which answered just now.
  Client& keptClient();
  // Whether the server is as `held_` says, by a short look.
  bool isStillHeld(const Publication& publication);
  void readHeld(Client& client, const Publication& publication);
  // Makes the server hold these instead, and notes that it does. Returns whether that took more
  // than the note.
  bool hold(Client& client, const Publication& publication, Documents wanted);
  // False when something watched was changed meanwhile. The keys `forgotten` are taken away first.
  bool publish(Client& client, const Changes& changes, const Keys& forgotten);
  // The check of a document, where the command is one that publishes it.
  void noteCheckIn(const Command& command);
  // After a part was refused: with what stood in its way taken away, too.
  bool publishAgain(Client& client, const Changes& changes, const Keys& forgotten,
                    const Refusal& refusal);

  const ConnectionOptions server_;
  const Qel::Ptr<Qel::Clock const> clock_;
  std::optional<ServerState> published_;  // of the server after the last publication from here
  std::string publishedAt_;               // when, as the index has it
  // Of a publisher: its connection, and once all is as it should be there, its claim, what is held
  // there, the checks of what was published, and how it sees that nothing happened since.
  std::optional<Client> kept_;
  Claim claim_;
  Held held_;
  Look::Checks checks_;
  std::optional<Look> look_;
};

}  // namespace Kavra::Redis
