#pragma once

#include "Kavra/EntityManager.h"
#include "MiscSnmp/GeneralMib.h"
#include "Qel/Exception.h"
#include "Qel/Format.h"
#include "Qel/GenericIf.h"
#include "Qel/GenericValue.h"
#include "Qel/Ptr.h"
#include "Redundancy/RedundancyStatus.h"
#include "System/ResetCauseHistory.h"

namespace MiscSnmp::Agent {

// The five inputs of an agent, and of a state machine with a constant Status.
template <class Status>
struct AgentArguments {
  Qel::Ptr<Status> redundancyStatus;
  Qel::Ptr<GeneralMib> generalMib;
  Qel::Ptr<System::ResetCauseHistory const> curCellResetHistory;
  Qel::Ptr<Kavra::EntityManager> entityManager;
  Qel::String cellType;
};

// Unwraps the inputs from generic arguments, in the order of the struct. Raises RangeException for
// another number of arguments, TypeException for one of another type.
template <class Status>
AgentArguments<Status> agentArguments(const Qel::GenericArgs& args) {
  if (args.size() != 5) {
    Qel::throwRangeException(Qel::format("expected 5 arguments but found %u", args.size()));
  }
  return {args[0].toPtr<Status>(), args[1].toPtr<GeneralMib>(),
          args[2].toPtr<System::ResetCauseHistory const>(), args[3].toPtr<Kavra::EntityManager>(),
          args[4].toString()};
}

}  // namespace MiscSnmp::Agent
