// What the module does once, in this order, when the library is loaded, and undoes on unload.
#include "MiscSnmpAgent/Module.h"

#include <ios>

#include "MiscSnmpAgent/Agent.h"
#include "MiscSnmpAgent/CurCellResetInstanceSm.h"
#include "MiscSnmpAgent/PeerCellResetHistoryStatusDirMounter.h"
#include "MiscSnmpAgent/PeerCellResetInstanceSm.h"
#include "MiscSnmpAgent/ResetHistorySm.h"
#include "MiscSnmpAgent/Root.h"
#include "Qel/TypeNode.h"

namespace MiscSnmp::Agent {

namespace {

const std::ios_base::Init standardStreams;

const Qel::TypeRegistration agentType(Agent::typeDescription());
const Qel::TypeRegistration curCellResetInstanceSmType(CurCellResetInstanceSm::typeDescription());
const Qel::TypeRegistration peerCellResetInstanceSmType(PeerCellResetInstanceSm::typeDescription());
const Qel::TypeRegistration rootType(Root::typeDescription());
const Qel::TypeRegistration resetHistorySmType(ResetHistorySm::typeDescription());
const Qel::TypeRegistration mounterType(PeerCellResetHistoryStatusDirMounter::typeDescription());

const Qel::LogHandle watchdogHandle(
    "HARDWARE_WATCHDOG_ERROR", 4, "Reboot due to system watchdog",
    "The system rebooted due to a watchdog timeout.",
    "Harmless if seen infrequently, but may indicate a serious hardware or software problem if "
    "seen often.",
    0.0, 1.0, 0);
const Qel::LogHandle kernelPanicHandle(
    "SYS_KERNEL_PANIC", 3, "Reboot due to kernel panic",
    "The system rebooted due to a kernel panic.",
    "This may indicate a serious hardware or software problem. Contact your customer support "
    "representative.",
    0.0, 1.0, 0);

}  // namespace

const Qel::LogHandle& hardwareWatchdogError() { return watchdogHandle; }

const Qel::LogHandle& sysKernelPanic() { return kernelPanicHandle; }

}  // namespace MiscSnmp::Agent
