#pragma once

#include "Qel/LogHandle.h"

namespace MiscSnmp::Agent {

// The module's log messages about the platform's own reloads; they live until the library is
// unloaded. The table's texts never come from here but from the reset-cause records.
const Qel::LogHandle& hardwareWatchdogError();
const Qel::LogHandle& sysKernelPanic();

}  // namespace MiscSnmp::Agent
