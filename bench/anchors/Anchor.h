#pragma once

#include <memory>
#include <vector>

#include "NorvekGeneralMIB/NetSnmp.h"
#include "Qel/Types.h"
#include "bench/anchors/Rows.h"

namespace Bench {

// One way to serve what the reload-cause table serves, at an object identifier beside it: what the
// table is measured against. Registered while it lives.
class Anchor {
 public:
  Anchor() = default;
  Anchor(const Anchor&) = delete;
  Anchor& operator=(const Anchor&) = delete;
  virtual ~Anchor() = default;
};

// 1.3.6.1.4.1.32473.3.N.1.1, as long as the identifier of the reload-cause table (N = 24).
constexpr oid kTdata = 25;
constexpr oid kSorted = 26;
constexpr oid kMap = 27;
constexpr oid kScalars = 28;

// net-snmp's tdata: rows in a container of net-snmp's.
std::unique_ptr<Anchor> tdata(const std::vector<Row>& rows);
// net-snmp's table iterator over a sorted vector: begins at the lower bound of what is asked for,
// and allocates nothing.
std::unique_ptr<Anchor> sortedIterator(const std::vector<Row>& rows);
// net-snmp's table iterator over std::map: begins at what is asked for, or else at the first row,
// as the reload-cause table does.
std::unique_ptr<Anchor> mapIterator(const std::vector<Row>& rows);
// As many scalars beside one another as a GETBULK takes, each with a text.
std::unique_ptr<Anchor> scalars(const std::vector<Row>& rows);

// A read-only registration at one of the identifiers above, not yet handed to net-snmp.
netsnmp_handler_registration* newRegistration(const char* name, oid anchor,
                                              Netsnmp_Node_Handler* handler);
// The columns and indexes of the reload-cause table.
netsnmp_table_registration_info* newTableInfo();

// What the two iterators have in common. They answer the requests of a PDU one at a time, since a
// hint is that of one request.
class IteratorAnchor : public Anchor {
 public:
  ~IteratorAnchor() override;

 protected:
  IteratorAnchor(const char* name, oid anchor, void* table, Netsnmp_First_Data_Point* first,
                 Netsnmp_Next_Data_Point* next);

 private:
  netsnmp_handler_registration* const registration_;
};

}  // namespace Bench
