#pragma once

#include <string>
#include <vector>

#include "host/Options.h"

namespace Host {

// The module's directives in snmpd.conf. Each is an option of norvek-snmpd under another name.
//
// snmpd knows them from construction to destruction, in the lines that it reads from then on. One a
// process at a time.
class Directives {
 public:
  Directives();
  Directives(const Directives&) = delete;
  Directives& operator=(const Directives&) = delete;
  ~Directives();

  // What was asked for by now. Raises UsageError for values that norvek-snmpd would refuse, and
  // where no database is named.
  Options options() const;

 private:
  static void take(const char* typed, char* value);

  static Directives* present_;

  std::vector<std::string> arguments_;
};

// An error of norvek-snmpd in the words of snmpd.conf.
std::string inDirectives(std::string text);

}  // namespace Host
