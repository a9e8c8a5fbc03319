// norvek-snmpd: hosts MIB plug-ins in an SNMP agent over the state database.

#include <fmt/format.h>

#include <cstdio>
#include <exception>

#include "Cell/Cell.h"
#include "Qel/ActivityManager.h"
#include "Qel/Trace.h"
#include "host/ActivityPump.h"
#include "host/Errors.h"
#include "host/Log.h"
#include "host/LogPump.h"
#include "host/NetSnmpEventLoop.h"
#include "host/Options.h"
#include "host/PluginHost.h"
#include "host/PluginLibrary.h"
#include "host/SnmpAgent.h"
#include "host/StateDatabase.h"
#include "host/TerminationSignals.h"

namespace {

constexpr int kFailed = 1;
constexpr int kWrongUsage = 2;

void serve(const Host::Options& options) {
  Host::TerminationSignals signals;
  Qel::traceSinkIs(Host::logTrace);
  Cell::cellIdIs(options.cellId);
  for (const auto& [facility, level] : options.traces) Qel::traceLevelIs(facility, level);

  Host::SnmpAgent agent(options,
                        fmt::format("norvek-snmpd, cell {}, {}", options.cellId, options.cellType));
  Host::NetSnmpEventLoop loop;
  const Host::LogPump logPump(Host::processLog(), loop);
  const auto onSignal = signals.watch(loop, [&loop] { loop.stop(); });
  const Host::ActivityPump pump(loop);
  const Host::StateDatabase database(options, loop);
  const Host::PluginHost plugins(Host::PluginLibrary::filesOf(options.plugins), database,
                                 options.cellType, options.contexts);

  // What is published already is in the table before the first request is.
  Qel::activityManager()->run();
  agent.listenAt(options.listenAddresses);
  Host::logLine(options.agentxAddress ? fmt::format("cell {} serves the master at {}",
                                                    options.cellId, *options.agentxAddress)
                                      : fmt::format("cell {} serves {}", options.cellId,
                                                    fmt::join(options.listenAddresses, ", ")));
  loop.run();
}

}  // namespace

int main(int argc, char** argv) {
  try {
    serve(Host::readOptions({argv + 1, argv + argc}));
    return 0;
  } catch (const Host::Answer& answer) {
    std::fputs(answer.text.c_str(), stdout);
    return 0;
  } catch (const Host::UsageError& error) {
    Host::logLine(fmt::format("{} (see --help)", error.what()), LOG_ERR);
    return kWrongUsage;
  } catch (const std::exception& error) {
    Host::logLine(error.what(), LOG_ERR);
    return kFailed;
  }
}
