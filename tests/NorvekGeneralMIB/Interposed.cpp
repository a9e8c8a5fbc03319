#include "NorvekGeneralMIB/Interposed.h"

#include <utility>

#include "Snmp/Converters.h"

namespace NorvekGeneralMIB {

Interposed& interposed() {
  static Interposed present;
  return present;
}

}  // namespace NorvekGeneralMIB

using NorvekGeneralMIB::interposed;

namespace {

// The interposed functions serve the process before and after there are tests.
bool watching = false;
const struct Watch {
  Watch() { watching = true; }
  ~Watch() { watching = false; }
} watch;

}  // namespace

// The linker's names: __wrap_X stands in the place of X, and __real_X is X.
extern "C" {

void* __real_calloc(std::size_t count, std::size_t size);
void* __wrap_calloc(std::size_t count, std::size_t size);
void* __wrap_calloc(std::size_t count, std::size_t size) {
  void* const block = __real_calloc(count, size);
  if (watching && size == sizeof(netsnmp_column_info)) interposed().columnInfos.insert(block);
  return block;
}

void __real_free(void* block);
void __wrap_free(void* block);
void __wrap_free(void* block) {
  if (watching) interposed().columnInfos.erase(block);
  __real_free(block);
}

void* __real__Znwm(std::size_t size);
void* __wrap__Znwm(std::size_t size);
void* __wrap__Znwm(std::size_t size) {
  if (watching && size == interposed().allocationSize) {
    interposed().allocationSize = 0;
    std::rethrow_exception(std::exchange(interposed().allocationError, nullptr));
  }
  return __real__Znwm(size);
}

int __real__ZNK4Snmp24SecondsToAsnDateAndTimeFclEdPhm(const Snmp::SecondsToAsnDateAndTimeF* self,
                                                      double seconds, unsigned char* buffer,
                                                      std::size_t length);
int __wrap__ZNK4Snmp24SecondsToAsnDateAndTimeFclEdPhm(const Snmp::SecondsToAsnDateAndTimeF* self,
                                                      double seconds, unsigned char* buffer,
                                                      std::size_t length);
int __wrap__ZNK4Snmp24SecondsToAsnDateAndTimeFclEdPhm(const Snmp::SecondsToAsnDateAndTimeF* self,
                                                      double seconds, unsigned char* buffer,
                                                      std::size_t length) {
  interposed().timeBufferLength = length;
  if (interposed().dateAndTime) return interposed().dateAndTime(seconds);
  return __real__ZNK4Snmp24SecondsToAsnDateAndTimeFclEdPhm(self, seconds, buffer, length);
}

netsnmp_handler_registration* __real_netsnmp_create_handler_registration(
    const char* name, Netsnmp_Node_Handler* handler, const oid* table, size_t length, int modes);
netsnmp_handler_registration* __wrap_netsnmp_create_handler_registration(
    const char* name, Netsnmp_Node_Handler* handler, const oid* table, size_t length, int modes);
netsnmp_handler_registration* __wrap_netsnmp_create_handler_registration(
    const char* name, Netsnmp_Node_Handler* handler, const oid* table, size_t length, int modes) {
  auto* const registration =
      __real_netsnmp_create_handler_registration(name, handler, table, length, modes);
  interposed().registeredOid = table;
  interposed().registrations.insert(registration);
  return registration;
}

void __real_netsnmp_handler_registration_free(netsnmp_handler_registration* registration);
void __wrap_netsnmp_handler_registration_free(netsnmp_handler_registration* registration);
void __wrap_netsnmp_handler_registration_free(netsnmp_handler_registration* registration) {
  interposed().registrations.erase(registration);
  __real_netsnmp_handler_registration_free(registration);
}

netsnmp_variable_list* __real_snmp_varlist_add_variable(netsnmp_variable_list** list,
                                                        const oid* name, size_t nameLength,
                                                        u_char type, const void* value,
                                                        size_t length);
netsnmp_variable_list* __wrap_snmp_varlist_add_variable(netsnmp_variable_list** list,
                                                        const oid* name, size_t nameLength,
                                                        u_char type, const void* value,
                                                        size_t length);
netsnmp_variable_list* __wrap_snmp_varlist_add_variable(netsnmp_variable_list** list,
                                                        const oid* name, size_t nameLength,
                                                        u_char type, const void* value,
                                                        size_t length) {
  if (interposed().failingIndexes.contains(++interposed().indexesAdded)) return nullptr;
  return __real_snmp_varlist_add_variable(list, name, nameLength, type, value, length);
}

int __real_netsnmp_register_table_iterator(netsnmp_handler_registration* registration,
                                           netsnmp_iterator_info* info);
int __wrap_netsnmp_register_table_iterator(netsnmp_handler_registration* registration,
                                           netsnmp_iterator_info* info);
int __wrap_netsnmp_register_table_iterator(netsnmp_handler_registration* registration,
                                           netsnmp_iterator_info* info) {
  interposed().registered = registration;
  if (interposed().beforeRegistering) interposed().beforeRegistering(*registration, *info);
  if (interposed().registeringResult) return *interposed().registeringResult;
  return __real_netsnmp_register_table_iterator(registration, info);
}

int __real_netsnmp_inject_handler(netsnmp_handler_registration* registration,
                                  netsnmp_mib_handler* handler);
int __wrap_netsnmp_inject_handler(netsnmp_handler_registration* registration,
                                  netsnmp_mib_handler* handler);
int __wrap_netsnmp_inject_handler(netsnmp_handler_registration* registration,
                                  netsnmp_mib_handler* handler) {
  if (interposed().injectingResult) {
    netsnmp_handler_free(handler);
    return *interposed().injectingResult;
  }
  return __real_netsnmp_inject_handler(registration, handler);
}

int __real_netsnmp_unregister_handler(netsnmp_handler_registration* registration);
int __wrap_netsnmp_unregister_handler(netsnmp_handler_registration* registration);
int __wrap_netsnmp_unregister_handler(netsnmp_handler_registration* registration) {
  if (interposed().beforeUnregistering) interposed().beforeUnregistering();
  interposed().unregistered.push_back(registration);
  interposed().registrations.erase(registration);
  return __real_netsnmp_unregister_handler(registration);
}
}
