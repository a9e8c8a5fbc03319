#pragma once

#include "Qel/String.h"

namespace Snmp {

// What a MIB module gives the SNMP agent so that it is asked to register itself; see AutoRegistree.
class HandlerRegistration {
 public:
  HandlerRegistration() = default;
  HandlerRegistration(const HandlerRegistration&) = delete;
  HandlerRegistration& operator=(const HandlerRegistration&) = delete;
  virtual ~HandlerRegistration();

  // Called by the agent once for each SNMP context; the empty name is the default context.
  virtual void initHandler(Qel::String context) = 0;
};

}  // namespace Snmp
