#pragma once

#include <memory>
#include <string>
#include <vector>

#include "host/PluginLibrary.h"

namespace Host {

// The SNMP contexts that the process offers to the MIB modules of its plug-ins; "" is the default
// one. When they go, each module is unregistered from each context that it was initialised for,
// through the entry point unregister_<MODULE> of its plug-in.
class OfferedContexts {
 public:
  using Libraries = std::vector<std::unique_ptr<PluginLibrary>>;

  // Offers the contexts in this order. `libraries` must outlive the object.
  OfferedContexts(const std::vector<std::string>& contexts, const Libraries& libraries);
  OfferedContexts(const OfferedContexts&) = delete;
  OfferedContexts& operator=(const OfferedContexts&) = delete;
  ~OfferedContexts();

 private:
  const std::vector<std::string> contexts_;
  const Libraries& libraries_;
};

}  // namespace Host
