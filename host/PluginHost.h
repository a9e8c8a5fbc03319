#pragma once

#include <string>
#include <vector>

#include "host/OfferedContexts.h"
#include "host/StateDatabase.h"
#include "host/StateTree.h"

namespace Host {

// The plug-ins at work: loaded, their model and agent in the state tree, their MIB modules offered
// the contexts. Undone in the opposite order, after which nothing of a plug-in is left in the
// process.
class PluginHost {
 public:
  // net-snmp's agent must have been started, and end after this object. Raises StartError when a
  // file is no plug-in.
  PluginHost(const std::vector<std::string>& files, const StateDatabase& database,
             const std::string& cellType, const std::vector<std::string>& contexts);

  const StateTree& tree() const noexcept { return tree_; }

 private:
  const OfferedContexts::Libraries libraries_;
  const StateTree tree_;
  const OfferedContexts contexts_;
};

}  // namespace Host
