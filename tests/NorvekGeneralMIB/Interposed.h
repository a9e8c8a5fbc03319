#pragma once

#include <cstddef>
#include <exception>
#include <functional>
#include <optional>
#include <set>
#include <vector>

#include "NorvekGeneralMIB/NetSnmp.h"

namespace NorvekGeneralMIB {

// What stands between the module and the functions that the linker wraps for this test program:
// calls pass through unless a test says otherwise. A fixture starts with a fresh one.
struct Interposed {
  // Column records that the module has allocated and not freed.
  std::set<void*> columnInfos;
  // Registrations that the module has made and neither freed nor taken back.
  std::set<netsnmp_handler_registration*> registrations;
  // The registrations that the module took back, in order, and a look before each goes.
  std::vector<netsnmp_handler_registration*> unregistered;
  std::function<void()> beforeUnregistering;
  // The object identifier of the last registration, where the module keeps it.
  const oid* registeredOid = nullptr;
  // The registration that went to net-snmp last, and a look at both records before they go.
  netsnmp_handler_registration* registered = nullptr;
  std::function<void(netsnmp_handler_registration&, netsnmp_iterator_info&)> beforeRegistering;

  // Results given in the place of the call.
  std::optional<int> registeringResult;
  std::optional<int> injectingResult;
  std::function<int(double)> dateAndTime;
  // The octets that the last time had room for.
  std::size_t timeBufferLength = 0;
  // The numbers (from 1) of the calls that add an index and fail.
  std::set<int> failingIndexes;
  int indexesAdded = 0;
  // Thrown by the next allocation of that many octets.
  std::exception_ptr allocationError;
  std::size_t allocationSize = 0;
};

// The one in force.
Interposed& interposed();

}  // namespace NorvekGeneralMIB
