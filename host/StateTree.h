#pragma once

#include <functional>
#include <optional>
#include <string>

#include "Qel/Dir.h"
#include "Qel/Entity.h"
#include "Qel/GenericIf.h"
#include "Qel/Ptr.h"
#include "Qel/Types.h"
#include "System/ResetInstance.h"
#include "host/StateDatabase.h"

namespace Host {

// Units that the table may have: the own cell, and the two supervisors.
inline constexpr U32 kUnits = 3;

// The process's own state tree: the MIB model at "snmp/misc/generalMib" and, beside it, the agent
// that fills it. Both are of types that a plug-in registers, and are driven through the reflective
// interface alone.
//
// While the tree stands it is where SNMP modules look entities up. It has to go before the plug-in
// is unloaded, and after the modules that serve the model were unregistered.
class StateTree {
 public:
  // Raises StartError when no plug-in has registered the types.
  StateTree(const StateDatabase& database, const std::string& cellType);
  StateTree(const StateTree&) = delete;
  StateTree& operator=(const StateTree&) = delete;
  ~StateTree();

  // What a plug-in that does not tell leaves open is absent from either.
  //
  // How many rows the table has of a unit.
  std::optional<U32> rowsOf(U32 unit) const;
  enum class Mount { none, waiting, mounted };
  // How far the agent is with the history of the peer cell: whether it asks for it, and has it.
  std::optional<Mount> peerMount() const;
  // The reload whose causes the table shows of a unit; null where it has no row of it.
  Qel::Ptr<System::ResetInstance const> reloadOf(U32 unit) const;

  // Calls for each row that comes or goes, from inside the change, while the result is held; null
  // where the plug-in does not tell. To be let go of before the tree.
  [[nodiscard]] Qel::Ptr<Qel::PtrInterface> follow(std::function<void()> call) const;

 private:
  const Qel::Ptr<Qel::Dir> root_;
  Qel::Ptr<Qel::Entity> modelEntity_;
  Qel::Ptr<Qel::GenericIf> model_;
  Qel::Ptr<Qel::GenericIf> agentRoot_;
};

}  // namespace Host
