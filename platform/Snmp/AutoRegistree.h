#pragma once

#include <set>

#include "Qel/String.h"
#include "Snmp/HandlerRegistration.h"

namespace Snmp {

// Announces a MIB module to the agent for as long as it lives. A module holds one as a static
// object, so that loading the module announces it and unloading withdraws it.
class AutoRegistree {
 public:
  // `registration` must outlive this object.
  explicit AutoRegistree(HandlerRegistration* registration);
  AutoRegistree(const AutoRegistree&) = delete;
  AutoRegistree& operator=(const AutoRegistree&) = delete;
  ~AutoRegistree();

 private:
  friend void contextIs(const Qel::String& context);
  friend void contextDel(const Qel::String& context);

  HandlerRegistration* const registration_;
  std::set<Qel::String> contexts_;  // those that were offered
};

// Offers an SNMP context: calls initHandler(context) of every module present that has not been
// offered it before, in the order in which the modules were announced. The agent offers its
// contexts again after it has loaded further modules.
void contextIs(const Qel::String& context);

// Withdraws the offer, so that the next one reaches every module again. Unregistering what the
// modules made of it is the agent's: see mibContexts().
void contextDel(const Qel::String& context);

}  // namespace Snmp
