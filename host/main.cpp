// norvek-snmpd: hosts MIB plug-ins in an SNMP agent over the state database.

#include <fmt/format.h>
#include <sys/prctl.h>

#include <csignal>
#include <cstdio>
#include <exception>
#include <string>
#include <vector>

#include "Cell/Cell.h"
#include "Qel/ActivityManager.h"
#include "Qel/ServiceManager.h"
#include "host/ActivityPump.h"
#include "host/AgentNotifications.h"
#include "host/Errors.h"
#include "host/Log.h"
#include "host/LogPump.h"
#include "host/MonotonicSeconds.h"
#include "host/NetSnmpEventLoop.h"
#include "host/NotificationSinks.h"
#include "host/Notifier.h"
#include "host/Options.h"
#include "host/PluginHost.h"
#include "host/PluginLibrary.h"
#include "host/Readiness.h"
#include "host/Reload.h"
#include "host/SignalEvents.h"
#include "host/SnmpAgent.h"
#include "host/StateDatabase.h"
#include "host/StatusDoor.h"
#include "host/StatusText.h"
#include "host/TerminationSignals.h"
#include "host/TraceLevels.h"

namespace {

constexpr int kFailed = 1;
constexpr int kWrongUsage = 2;

// Where the notifications that were sent are remembered, or "".
std::string toldCausesFile(const Host::Options& options) {
  if (options.stateDirectory.empty()) return {};
  return fmt::format("{}/told-causes-{}", options.stateDirectory, options.cellId);
}

void serve(const Host::Options& options, const Host::SignalEvents& reloadSignals) {
  Host::TerminationSignals signals;
  Qel::traceSinkIs(Host::logTrace);
  Cell::cellIdIs(options.cellId);
  Host::TraceLevels traces(options);

  Host::SnmpAgent agent(options,
                        fmt::format("norvek-snmpd, cell {}, {}", options.cellId, options.cellType));
  Host::NetSnmpEventLoop loop([&agent] { agent.serveWaiting(); });
  Qel::ServiceManager manager(loop);
  const Host::LogPump logPump(Host::processLog(), loop);
  const auto onSignal = signals.watch(loop, [&loop] { loop.stop(); });
  const Host::ActivityPump pump(loop);
  const Host::StateDatabase database(options, loop);
  const Host::PluginHost plugins(Host::PluginLibrary::filesOf(options.plugins), database,
                                 options.cellType, options.contexts);

  Host::AgentNotifications master(loop, [&agent] { return agent.problem().empty(); });
  Host::NotificationSinks sinks(loop);
  sinks.sinksAre(agent.sinks());
  const bool isSubagent = options.agentxAddress.has_value();
  Host::NotificationChannel& channel =
      isSubagent ? static_cast<Host::NotificationChannel&>(master) : sinks;
  Host::Notifier notifier(Host::Notifier::tableOf(plugins.tree()), channel, toldCausesFile(options),
                          loop, Host::monotonicSeconds);

  Host::Reload reload(options, traces, database, agent, loop, [&] {
    sinks.sinksAre(agent.sinks());
    notifier.handleWanted();
  });
  const auto onReload = reloadSignals.watch(loop, [&reload] { reload.begin(); });
  const auto door = Host::statusDoorOf(options, loop, [&] {
    return Host::statusText(options.cellId, agent.problem(), database, plugins.tree(), &sinks);
  });

  // What a file holds already is in the table before the first request is.
  Qel::activityManager()->run();
  agent.listenAt(options.listenAddresses);
  if (!isSubagent) notifier.agentStarted();
  std::vector<std::string> missing =
      Host::waitForDatabases(database, loop, Host::kDatabasePatience);
  if (!agent.problem().empty()) missing.push_back(agent.problem());
  if (loop.isRunning()) Host::tellReady(options, missing, manager);
  loop.run();
}

}  // namespace

int main(int argc, char** argv) {
  // Where Linux backs whatever it can with huge pages, two of them are more than an agent takes.
  ::prctl(PR_SET_THP_DISABLE, 1, 0, 0, 0);
  try {
    const Host::SignalEvents reloadSignals{SIGHUP};  // first: it ends nothing from here on
    serve(Host::readOptions({argv + 1, argv + argc}), reloadSignals);
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
