#pragma once

#include <string>
#include <vector>

#include "Qel/ServiceManager.h"
#include "host/NetSnmpEventLoop.h"
#include "host/Options.h"
#include "host/StateDatabase.h"

namespace Host {

// Seconds that a start waits for its databases; a manager's first look is seldom worth more.
constexpr double kDatabasePatience = 5.0;

// Runs the loop until the first snapshot of each database that matters is in the table, or was not
// to be had within `patience` seconds, or the loop was stopped. Returns which databases are missing
// and why.
std::vector<std::string> waitForDatabases(const StateDatabase& database, NetSnmpEventLoop& loop,
                                          double patience);

// Says that the process serves, and what is `missing`: the one place where whoever started it is
// told, by the log and through `manager`.
void tellReady(const Options& options, const std::vector<std::string>& missing,
               Qel::ServiceManager& manager);

}  // namespace Host
