#pragma once

#include <memory>
#include <utility>

#include "MiscSnmpAgent/Agent.h"
#include "MiscSnmpAgent/ResetHistorySm.h"
#include "Qel/Ptr.h"
#include "Redundancy/RedundancyStatus.h"
#include "System/ResetCauseHistory.h"
#include "support/ExpectedDevice.h"

namespace MiscSnmp::Agent {

// A thing of the platform beside its plain twin.
struct PairedReload {
  Qel::Ptr<System::ResetInstance> real;
  expected::ReloadPtr plain;
};
struct PairedHistory {
  Qel::Ptr<System::ResetCauseHistory> real;
  expected::HistoryPtr plain;
};
struct PairedStatus {
  Qel::Ptr<Redundancy::RedundancyStatus> real;
  expected::RedundancyPtr plain;
};

// The plain twin of a state machine and of an agent; they end as those do, with their last holder.
struct PlainMachine {
  PlainMachine(expected::Device& ofDevice, const expected::Agent::Inputs& inputs)
      : device(ofDevice), agent(ofDevice.agentNew(inputs)) {}
  PlainMachine(const PlainMachine&) = delete;
  PlainMachine& operator=(const PlainMachine&) = delete;
  ~PlainMachine() { device.agentGone(agent); }

  expected::Device& device;
  expected::Agent& agent;
};
struct PlainAgent {
  PlainAgent(expected::Device& device, const expected::Agent::Inputs& ofAgent)
      : inputs(ofAgent), machine(std::make_shared<PlainMachine>(device, ofAgent)) {}
  PlainAgent(const PlainAgent&) = delete;
  PlainAgent& operator=(const PlainAgent&) = delete;
  // What an agent owns is switched off when it ends, whoever else holds it.
  ~PlainAgent() { machineDel(); }

  void machineDel() {
    if (const auto removed = std::exchange(machine, nullptr)) removed->agent.listens(false);
  }

  expected::Agent::Inputs inputs;
  std::shared_ptr<PlainMachine> machine;
};

}  // namespace MiscSnmp::Agent
