#include "host/Options.h"

#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <filesystem>
#include <iterator>
#include <limits>
#include <string_view>

#include "host/EngineId.h"
#include "host/Errors.h"
#include "host/ListenAddress.h"
#include "host/StatusDoor.h"

namespace Host {
namespace {

constexpr auto kDefaultListenAddress = "udp:127.0.0.1:1161";
constexpr auto kDefaultPlugin = "libMiscSnmp.so";
constexpr int kHighestTraceLevel = 9;
constexpr std::size_t kLongestContext = 32;  // SnmpAdminString of a context name (RFC 3411)

TraceOption traceOption(const std::string& text) {
  auto option = traceOptionOf(text);
  if (!option) throw UsageError(fmt::format("--trace {}: expected {}", text, kTraceForm));
  return *std::move(option);
}

// Adds an option that takes one value, or one value each time when it may be repeated.
template <class Value>
CLI::Option* add(CLI::App& app, const char* name, Value& value, const char* type,
                 const std::string& text) {
  return app.add_option(name, value, text)
      ->type_name(type)
      ->option_text(type)  // without the remarks that CLI11 derives from checks
      ->allow_extra_args(false);
}

// Adds an option for the name of something that must be there; an empty one is a slip, as of a
// shell variable that is not set.
template <class Value>
CLI::Option* addName(CLI::App& app, const char* name, Value& value, const char* type,
                     const std::string& text) {
  return add(app, name, value, type, text)->check([](const std::string& typed) {
    return std::string(typed.empty() ? "the value is empty" : "");
  });
}

void addEngine(CLI::App& app, Options& options) {
  app.add_option_function<std::string>(
         "--engine-id",
         [&options](const std::string& typed) {
           options.engineId = engineIdOfHex(typed);
           if (!options.engineId) {
             throw UsageError(fmt::format(
                 "--engine-id {}: expected 5 to 32 octets in hexadecimal, not all 0 or all ff",
                 typed));
           }
         },
         "SNMPv3 engine id [from the machine's id and the cell: cloned machines need one each]")
      ->type_name("HEX")
      ->option_text("HEX");
  addName(
      app, "--state-dir", options.stateDirectory, "DIR",
      "Where the starts of the SNMPv3 engine are counted, and what managers were notified of is "
      "kept [STATE_DIRECTORY of the environment, "
      "or nowhere]");
}

void describe(CLI::App& app, Options& options, std::vector<std::string>& traces) {
  app.set_version_flag("--version", NORVEK_SNMPD_VERSION, "Print the version and exit");
  add(app, "--cell-id", options.cellId, "N",
      fmt::format("The cell this process runs on, a number from 1 [{}]", options.cellId))
      ->check(CLI::Range(U32{1}, std::numeric_limits<U32>::max()));
  add(app, "--cell-type", options.cellType, "TEXT",
      fmt::format("Cell type, handed to the agent root [{}]", options.cellType));
  add(app, "--db", options.db, "URL",
      fmt::format("State database: file:PATH, redis://HOST[:PORT] or redis+unix:PATH [{}]",
                  options.db));
  addName(app, "--peer-db", options.peerDb, "URL",
          "State database of the peer cell's paths [the same as --db]");
  addName(app, "--db-auth", options.dbAuth, "FILE",
          "Two lines, the user and the password for a Redis server at --db [none]");
  addName(app, "--peer-db-auth", options.peerDbAuth, "FILE",
          "The same for --peer-db [none: no server is told the password of another]");
  addName(app, "--listen", options.listenAddresses, "ADDRESS",
          fmt::format("Listen there, in net-snmp's transport notation; repeatable [{}]",
                      kDefaultListenAddress));
  addName(app, "--agentx", options.agentxAddress, "ADDRESS",
          "Be a subagent of the AgentX master there, instead of listening [off]");
  addName(
      app, "--config", options.configurationFile, "FILE",
      "net-snmp configuration: users, views, communities [built in: read-only, community public, "
      "loopback addresses]");
  addEngine(app, options);
  addName(app, "--plugin", options.plugins, "FILE",
          fmt::format("Plug-in library; repeatable [the {} that came with the program]",
                      kDefaultPlugin));
  add(app, "--context", options.contexts, "NAME",
      fmt::format("A further SNMP context to offer the plug-ins, 1 to {} octets; repeatable "
                  "[the default context alone]",
                  kLongestContext));
  addName(app, "--status-socket", options.statusSocket, "PATH",
          fmt::format("Unix socket that tells what is served, for kavra status --agent "
                      "[{}cell-N.sock, if that folder is there]",
                      kStatusFolder));
  add(app, "--trace", traces, "FACILITY=LEVEL",
      fmt::format("Trace a facility's levels 0 to LEVEL, of 0 to {}; repeatable [level 0 of each]",
                  kHighestTraceLevel));
  addName(app, "--trace-file", options.traceFile, "FILE",
          "The same in a file, a line each, read again on SIGHUP [none]");
}

void parse(CLI::App& app, std::vector<std::string> arguments) {
  std::reverse(arguments.begin(), arguments.end());  // as CLI11 takes a vector
  try {
    app.parse(arguments);
  } catch (const CLI::CallForHelp&) {
    throw Answer{app.help()};
  } catch (const CLI::CallForVersion&) {
    throw Answer{fmt::format("norvek-snmpd {}\n", NORVEK_SNMPD_VERSION)};
  } catch (const CLI::ParseError& error) {
    throw UsageError(error.what());
  }
}

// The service manager separates several by colons.
std::string firstStateDirectory() {
  const char* directories = std::getenv("STATE_DIRECTORY");
  const std::string_view all = directories != nullptr ? directories : "";
  return std::string(all.substr(0, all.find(':')));
}

void checkContexts(const std::vector<std::string>& contexts) {
  for (auto context = contexts.begin(); context != contexts.end(); ++context) {
    if (context->empty() || context->size() > kLongestContext) {
      throw UsageError(fmt::format("--context {}: expected a name of 1 to {} octets", *context,
                                   kLongestContext));
    }
    if (std::find(contexts.begin(), context, *context) != context) {
      throw UsageError(fmt::format("--context {}: given twice", *context));
    }
  }
}

void checkPeer(const Options& options) {
  if (options.peerDb.empty() && !options.peerDbAuth.empty()) {
    throw UsageError("--peer-db-auth requires --peer-db");
  }
  if (options.peerDb.empty() || options.cellId == 1 || options.cellId == 2) return;
  throw UsageError(fmt::format(
      "--peer-db: only the supervisors, cells 1 and 2, have a peer, not cell {}", options.cellId));
}

void checkListening(const Options& options) {
  if (options.agentxAddress && !options.listenAddresses.empty()) {
    throw UsageError("--agentx and --listen exclude each other: the master agent listens");
  }
  if (options.agentxAddress && options.engineId) {
    throw UsageError("--agentx and --engine-id exclude each other: the engine is the master's");
  }
  for (const auto& address : options.listenAddresses) {
    if (isUnixSocket(address)) {
      throw UsageError(
          fmt::format("--listen {}: this agent listens on no Unix socket: whoever connects could "
                      "have net-snmp delete files; give a udp, udp6, tcp or tcp6 address",
                      address));
    }
    if (!options.configurationFile && !isLoopbackAddress(address)) {
      throw UsageError(
          fmt::format("--listen {}: not a loopback address; the built-in access is for "
                      "loopback alone, name a configuration with --config",
                      address));
    }
  }
}

void complete(Options& options) {
  for (auto& plugin : options.plugins) plugin = std::filesystem::absolute(plugin).string();
  if (options.peerDb.empty()) options.peerDb = options.db;
  if (options.peerDb == options.db && options.peerDbAuth.empty()) {
    options.peerDbAuth = options.dbAuth;  // one server, one user
  }
  if (options.listenAddresses.empty() && !options.agentxAddress) {
    options.listenAddresses = {kDefaultListenAddress};
  }
  options.contexts.insert(options.contexts.begin(), std::string());
}

}  // namespace

std::optional<TraceOption> traceOptionOf(const std::string& text) {
  const auto equals = text.rfind('=');
  const auto level = equals == std::string::npos ? std::string() : text.substr(equals + 1);
  if (equals == 0 || level.size() != 1 || level[0] < '0' || level[0] > '0' + kHighestTraceLevel) {
    return {};
  }
  return TraceOption{text.substr(0, equals), level[0] - '0'};
}

Options readOptions(const std::vector<std::string>& arguments) {
  Options options;
  std::vector<std::string> traces;
  CLI::App app{"SNMP agent of a supervisor: serves the causes of the last reloads.",
               "norvek-snmpd"};
  app.get_formatter()->column_width(28);
  describe(app, options, traces);
  parse(app, arguments);
  std::transform(traces.begin(), traces.end(), std::back_inserter(options.traces), traceOption);
  checkContexts(options.contexts);
  checkPeer(options);
  checkListening(options);
  complete(options);
  if (options.stateDirectory.empty()) options.stateDirectory = firstStateDirectory();
  return options;
}

}  // namespace Host
