#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "Kavra/Claim.h"
#include "Kavra/Redis/Command.h"
#include "Kavra/Redis/Reply.h"
#include "Kavra/Redis/ServerState.h"
#include "Kavra/Store.h"
#include "Qel/String.h"

namespace Kavra::Redis {

// A short look at a server by the one who published there: at the state, at its own mark and name,
// which live on by it, and of each document at its place in the index, the version and the check.
//
// What it passes over: a field that was changed beside its check, without ringing for it. Nobody
// who follows looks there then, and whoever comes later refuses it for its check.
class Look {
 public:
  // The checks of documents, by their keys; nothing for one that has none.
  using Checks = std::map<std::string, std::optional<std::string>>;

  // Once the documents, in their canonical form, are there. `index` has their values in it, and
  // `checks` the check of each whose fields need not be gone through for it.
  Look(const Claim& claim, const Store::Documents& documents,
       const std::map<Qel::String, std::string>& index, const ServerState& state,
       const Checks& checks);

  // For one transaction.
  const std::vector<Command>& commands() const noexcept { return commands_; }
  // Whether all is as it was; `outcome` has a reply for each of the commands.
  bool isAsBefore(const std::vector<Reply>& outcome) const;

 private:
  using Texts = std::vector<std::optional<std::string>>;

  void expect(Command command, Texts texts);

  const ServerState state_;
  std::vector<Command> commands_;
  std::vector<Texts> expected_;  // by the commands after those for the state
};

}  // namespace Kavra::Redis
