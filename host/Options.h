#pragma once

#include <optional>
#include <string>
#include <vector>

#include "Qel/Types.h"

namespace Host {

// The levels 0 to `level` of a trace facility are on.
struct TraceOption {
  std::string facility;
  int level;

  friend bool operator==(const TraceOption& a, const TraceOption& b) = default;
};

// What "FACILITY=LEVEL" says, or nothing where it is something else.
constexpr char kTraceForm[] = "FACILITY=LEVEL with a level of 0 to 9";
std::optional<TraceOption> traceOptionOf(const std::string& text);

// What the command line asks of the process. Built by readOptions only, so that every value has
// been checked.
struct Options {
  U32 cellId = 1;
  std::string cellType = "supervisor";
  std::string db = "file:kavra.json";
  std::string peerDb;                        // never empty: the same as `db` by default
  std::string dbAuth;                        // the file with user and password at `db`, or empty
  std::string peerDbAuth;                    // `dbAuth` where both are one server, or empty
  std::vector<std::string> listenAddresses;  // empty for a subagent
  std::optional<std::string> agentxAddress;  // of the master agent
  std::optional<std::string> configurationFile;  // in place of the built-in access
  std::optional<std::string> engineId;           // its octets
  std::string stateDirectory;                    // for what is kept from start to start, or empty
  std::vector<std::string> plugins;   // files; empty for the one that came with the program
  std::vector<std::string> contexts;  // the default context, "", comes first
  std::vector<TraceOption> traces;
  std::optional<std::string> traceFile;     // further ones
  std::optional<std::string> statusSocket;  // none: the default place, where it can be had
};

// --help or --version: the text goes to standard output and the process ends with status 0.
struct Answer {
  std::string text;
};

// Reads the command line (without the program's name), and STATE_DIRECTORY as the service manager
// sets it. Raises UsageError for an unknown option, a value outside its range, or options that
// exclude each other; Answer when the user asks for one.
Options readOptions(const std::vector<std::string>& arguments);

}  // namespace Host
