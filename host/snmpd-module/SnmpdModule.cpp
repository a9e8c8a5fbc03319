#include "host/snmpd-module/SnmpdModule.h"

#include <dlfcn.h>
#include <fmt/format.h>
#include <sys/eventfd.h>

#include <algorithm>
#include <exception>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

#include "Cell/Cell.h"
#include "Kavra/Aside.h"
#include "Qel/ActivityManager.h"
#include "Qel/Escape.h"
#include "Qel/Trace.h"
#include "host/ActivityPump.h"
#include "host/AgentNotifications.h"
#include "host/Errors.h"
#include "host/Log.h"
#include "host/LogPump.h"
#include "host/MonotonicSeconds.h"
#include "host/NetSnmp.h"
#include "host/Notifier.h"
#include "host/PluginHost.h"
#include "host/PluginLibrary.h"
#include "host/StateDatabase.h"
#include "host/StatusDoor.h"
#include "host/StatusText.h"
#include "host/TraceLevels.h"

namespace Host {
namespace {

// snmpd's log is where its operator looks.
void logToSnmpd(int severity, std::string_view text) {
  snmp_log(severity, "norvek: %s\n", Qel::printableLine(text).c_str());
}

// Beside this library, as it is built, or above it, as it is installed.
std::vector<std::string> pluginsOf(const Options& options) {
  if (!options.plugins.empty()) return options.plugins;
  Dl_info own{};
  ::dladdr(reinterpret_cast<const void*>(&logToSnmpd), &own);
  const auto directory = std::filesystem::path(own.dli_fname).parent_path();
  const auto libraries = directory / "../..";
  return {PluginLibrary::fileIn({directory, libraries, libraries / "norvek-snmpd"})};
}

// A library that is loaded is not taken out of memory again, as this one is not: a later version of
// it would not fit.
void keep(const std::string& file) {
  void* const handle = ::dlopen(file.c_str(), RTLD_NOW | RTLD_NOLOAD | RTLD_NODELETE);
  if (handle != nullptr) ::dlclose(handle);
}

// Beside what snmpd itself remembers, where none is named.
std::string toldCausesFile(const Options& options) {
  const std::string& named = options.stateDirectory;
  return fmt::format("{}/norvek-told-causes-{}",
                     named.empty() ? std::string(get_persistent_directory()) : named,
                     options.cellId);
}

}  // namespace

struct SnmpdModule::Served {
  Served(const Options& read, NetSnmpEventLoop& loop)
      : options(read),
        traces(options),
        logPump(processLog(), loop),
        activityPump(loop),
        database(options, loop),
        pluginFiles(pluginsOf(options)),
        plugins(pluginFiles, database, options.cellType, options.contexts),
        notifications(loop, [] { return true; }),
        notifier(Notifier::tableOf(plugins.tree()), notifications, toldCausesFile(options), loop,
                 monotonicSeconds),
        door(statusDoorOf(options, loop, [this] {
          return statusText(options.cellId, "", database, plugins.tree(), nullptr);
        })) {
    std::ranges::for_each(pluginFiles, keep);
  }

  const Options options;
  const TraceLevels traces;
  const LogPump logPump;
  const ActivityPump activityPump;
  const StateDatabase database;
  const std::vector<std::string> pluginFiles;
  const PluginHost plugins;
  AgentNotifications notifications;
  const Notifier notifier;
  const std::unique_ptr<StatusDoor> door;
};

SnmpdModule::SnmpdModule() : event_(Kavra::newEvent()) {
  ::eventfd_write(event_.fd(), 1);
  firstPass_ = loop_.readableIs(event_.fd(), [this] { handleFirstPass(); });
  processLog().sinkIs(logToSnmpd);
  Qel::traceSinkIs(logTrace);
}

SnmpdModule::~SnmpdModule() {
  served_ = nullptr;
  Qel::traceSinkIs({});
  processLog().sinkIs({});
}

void SnmpdModule::handleFirstPass() {
  firstPass_ = nullptr;
  try {
    const Options options = directives_.options();
    Cell::cellIdIs(options.cellId);
    served_ = std::make_unique<Served>(options, loop_);
    // What a file holds already is in the table before the first request is.
    Qel::activityManager()->run();
    const bool isOne = options.peerDb == options.db;
    logLine(fmt::format("cell {} follows {}{}{}", options.cellId, options.db, isOne ? "" : ", ",
                        isOne ? "" : options.peerDb));
  } catch (const std::exception& error) {
    logLine(inDirectives(error.what()), LOG_ERR);
  }
}

}  // namespace Host
