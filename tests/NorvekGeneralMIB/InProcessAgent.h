#pragma once

#include <cstdint>
#include <iosfwd>
#include <string>
#include <vector>

#include "NorvekGeneralMIB/NetSnmp.h"

namespace NorvekGeneralMIB {

using Oid = std::vector<oid>;

// What a manager reads: a name, the type of the value (or the exception in its place) and, of a
// string, its octets.
struct Varbind {
  Oid name;
  int type = ASN_NULL;
  std::string value = {};

  friend bool operator==(const Varbind&, const Varbind&) = default;
};
void PrintTo(const Varbind& varbind, std::ostream* out);

struct Response {
  long status = -1;  // -1 when the agent gave none
  long index = 0;
  std::vector<Varbind> varbinds = {};
};

// net-snmp's agent in this process, on a loopback port of its own, and a manager that asks it. One
// a process: net-snmp starts once. Everything may be read and written with the community "public".
class InProcessAgent {
 public:
  static InProcessAgent& instance();
  InProcessAgent(const InProcessAgent&) = delete;
  InProcessAgent& operator=(const InProcessAgent&) = delete;
  ~InProcessAgent() = delete;

  Response get(const std::vector<Oid>& names) { return request(SNMP_MSG_GET, names); }
  Response getNext(const std::vector<Oid>& names) { return request(SNMP_MSG_GETNEXT, names); }
  Response getBulk(const std::vector<Oid>& names, long nonRepeaters, long maxRepetitions);
  Response set(const Oid& name, const std::string& octets);

 private:
  InProcessAgent();

  Response request(int command, const std::vector<Oid>& names);
  // Sends the PDU, which net-snmp frees, and serves until it is answered or a second has passed.
  Response exchange(netsnmp_pdu* pdu);

  netsnmp_session* manager_ = nullptr;
};

}  // namespace NorvekGeneralMIB
