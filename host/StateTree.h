#pragma once

#include <string>

#include "Qel/Dir.h"
#include "Qel/GenericIf.h"
#include "Qel/Ptr.h"
#include "host/StateDatabase.h"

namespace Host {

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

 private:
  const Qel::Ptr<Qel::Dir> root_;
  Qel::Ptr<Qel::GenericIf> agentRoot_;
};

}  // namespace Host
