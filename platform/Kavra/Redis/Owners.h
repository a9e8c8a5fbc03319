#pragma once

#include <string>
#include <vector>

#include "Kavra/Claim.h"
#include "Kavra/Redis/Client.h"
#include "Kavra/Redis/Command.h"
#include "Qel/String.h"

// Who publishes on a Redis server, each under the name of its publisher:
//
//   kavra:owners      a hash of the names; its values mean nothing
//   kavra:owner:NAME  a text that expires, the publisher's mark: its claim, as JSON
//
// A publisher renews its mark at every look; without one it is no living publisher, whatever the
// hash says.
namespace Kavra::Redis {

inline constexpr char kOwnersKey[] = "kavra:owners";
inline constexpr char kNamed[] = "1";  // the value of each name

std::string markKeyOf(const Claim& claim);
// What the mark holds.
std::string markOf(const Claim& claim);
// Makes the mark live on from now, whose ever it is; the reply is what it holds.
Command renewalOf(const Claim& claim);

// The claims of the living publishers at one moment. The client watches them: its next transaction
// comes to nothing when one of them changed, or there is one more.
class Owners {
 public:
  // Raises StoreException.
  explicit Owners(Client& client);

  // Raises OwnedException where one of the paths is claimed, or StoreException where nobody knows.
  void needUnowned(const std::vector<Qel::String>& paths) const;
  // Makes the claim, with a mark and a name. Raises OwnedException where it overlaps another's.
  // False when somebody else was faster.
  bool claimIs(const Claim& claim) const;

 private:
  Client& client_;
  std::string problem_;  // why the names cannot be read; empty when they can
  std::vector<Claim> living_;
  std::vector<std::string> dead_;  // names without a mark
};

// Sees to it that the claim stands and has its mark. Raises OwnedException where it overlaps
// another's.
void needClaim(Client& client, const Claim& claim);
// Has the next transaction of the client come to nothing where the mark is another one by then.
// Raises StoreException where it is already.
void watchClaim(Client& client, const Claim& claim);

}  // namespace Kavra::Redis
