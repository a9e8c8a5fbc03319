#include "host/OfferedContexts.h"

#include "Qel/Assert.h"
#include "Qel/String.h"
#include "Snmp/AutoRegistree.h"
#include "Snmp/MibContext.h"

namespace Host {
namespace {

using EntryPoint = void (*)(Qel::String context);

EntryPoint entryPoint(const OfferedContexts::Libraries& libraries, const std::string& name) {
  for (const auto& library : libraries) {
    if (void* const symbol = library->symbol(name)) return reinterpret_cast<EntryPoint>(symbol);
  }
  return nullptr;
}

}  // namespace

OfferedContexts::OfferedContexts(const std::vector<std::string>& contexts,
                                 const Libraries& libraries)
    : contexts_(contexts), libraries_(libraries) {
  for (const auto& context : contexts_) Snmp::contextIs(context);
}

OfferedContexts::~OfferedContexts() {
  for (const auto& [context, module] : Snmp::mibContexts()) {
    const EntryPoint unregister = entryPoint(libraries_, "unregister_" + module.stdString());
    // Unloading a module that net-snmp still calls would end in code that is gone.
    QEL_ASSERT(unregister != nullptr);
    unregister(context);
  }
  for (const auto& context : contexts_) Snmp::contextDel(context);
}

}  // namespace Host
