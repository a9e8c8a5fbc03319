#pragma once

#include "Qel/String.h"
#include "Snmp/HandlerRegistration.h"

namespace NorvekGeneralMIB {

// Registers the module for each context that the agent offers.
class NorvekGeneralMIB_HandlerRegistration final : public Snmp::HandlerRegistration {
 public:
  void initHandler(Qel::String context) override;
};

}  // namespace NorvekGeneralMIB
