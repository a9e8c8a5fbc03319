#include "host/Notification.h"

#include <array>
#include <cstring>
#include <initializer_list>
#include <utility>
#include <vector>

#include "Snmp/Converters.h"

namespace Host {
namespace {

using Oid = std::vector<oid>;

constexpr std::array<oid, 9> kSysUpTime{1, 3, 6, 1, 2, 1, 1, 3, 0};
constexpr std::array<oid, 11> kSnmpTrapOid{1, 3, 6, 1, 6, 3, 1, 1, 4, 1, 0};
constexpr std::array<oid, 10> kColdStart{1, 3, 6, 1, 6, 3, 1, 1, 5, 1};
constexpr std::array<oid, 7> kEnterprise{1, 3, 6, 1, 4, 1, 32473};
// NorvekNotificationMIB
constexpr std::array<oid, 11> kReloadCausesChanged{1, 3, 6, 1, 4, 1, 32473, 3, 25, 0, 1};
constexpr std::array<oid, 12> kNotifiedUnit{1, 3, 6, 1, 4, 1, 32473, 3, 25, 1, 1, 0};
constexpr std::array<oid, 12> kNotifiedCauses{1, 3, 6, 1, 4, 1, 32473, 3, 25, 1, 2, 0};
// Columns of norvekReloadCauseEntry (NorvekGeneralMIB), behind which an instance's indexes follow.
constexpr std::array<oid, 13> kDescription{1, 3, 6, 1, 4, 1, 32473, 3, 24, 1, 1, 1, 4};
constexpr std::array<oid, 13> kTime{1, 3, 6, 1, 4, 1, 32473, 3, 24, 1, 1, 1, 5};

// Collects variables in their order; one that there is no memory for spoils the whole.
class VariableList {
 public:
  template <class Name>
  void add(const Name& name, u_char type, const void* value, std::size_t octets) {
    if (!isWhole_) return;
    const auto* added = snmp_varlist_add_variable(&first_, name.data(), name.size(), type,
                                                  static_cast<const u_char*>(value), octets);
    isWhole_ = added != nullptr;
  }
  template <class Name>
  void addUnsigned(const Name& name, u_char type, U32 value) {
    const u_long kept = value;
    add(name, type, &kept, sizeof kept);
  }
  Variables take() {
    Variables all(std::exchange(first_, nullptr), &snmp_free_varbind);
    return isWhole_ ? std::move(all) : Variables(nullptr, &snmp_free_varbind);
  }

 private:
  netsnmp_variable_list* first_ = nullptr;
  bool isWhole_ = true;
};

template <class Column>
Oid instanceOf(const Column& column, U32 unit, oid cause) {
  Oid name(column.begin(), column.end());
  name.insert(name.end(), {unit, 0, cause});
  return name;
}

void addCauses(VariableList& list, const ReloadCauses& causes) {
  list.addUnsigned(kNotifiedUnit, ASN_UNSIGNED, causes.unit);
  list.addUnsigned(kNotifiedCauses, ASN_UNSIGNED, causes.count);
  oid number = 0;
  for (const auto& [description, seconds] : causes.first) {
    ++number;
    list.add(instanceOf(kDescription, causes.unit, number), ASN_OCTET_STR, description.data(),
             description.size());
    std::array<unsigned char, 11> time{};
    Snmp::SecondsToAsnDateAndTimeF()(double{1} * seconds, time.data(), time.size());
    list.add(instanceOf(kTime, causes.unit, number), ASN_OCTET_STR, time.data(), time.size());
  }
}

// Takes the PDU of version 2.
Pdu inVersion1(Pdu pdu, in_addr_t address) {
  Pdu older(convert_v2pdu_to_v1(pdu.get()), &snmp_free_pdu);
  if (!older) return older;
  std::memcpy(older->agent_addr, &address, sizeof older->agent_addr);
  if (older->enterprise == nullptr) {  // a standard trap's is the agent's own, as sysObjectID
    older->enterprise = snmp_duplicate_objid(kEnterprise.data(), kEnterprise.size());
    older->enterprise_length = kEnterprise.size();
  }
  return older;
}

}  // namespace

Notification notificationOf(std::optional<ReloadCauses> causes) {
  return {std::move(causes), static_cast<U32>(netsnmp_get_agent_uptime())};
}

Variables variablesOf(const Notification& notification) {
  VariableList list;
  if (notification.causes) {
    list.add(kSnmpTrapOid, ASN_OBJECT_ID, kReloadCausesChanged.data(), sizeof kReloadCausesChanged);
    addCauses(list, *notification.causes);
  } else {
    list.add(kSnmpTrapOid, ASN_OBJECT_ID, kColdStart.data(), sizeof kColdStart);
  }
  return list.take();
}

Pdu pduOf(const Notification& notification, int command, in_addr_t address) {
  Variables variables = variablesOf(notification);
  VariableList upTime;
  upTime.addUnsigned(kSysUpTime, ASN_TIMETICKS, notification.upTime);
  Variables all = upTime.take();
  Pdu pdu(nullptr, &snmp_free_pdu);
  if (!variables || !all) return pdu;
  all->next_variable = variables.release();
  pdu.reset(snmp_pdu_create(command == SNMP_MSG_INFORM ? SNMP_MSG_INFORM : SNMP_MSG_TRAP2));
  if (!pdu) return pdu;
  pdu->variables = all.release();
  return command == SNMP_MSG_TRAP ? inVersion1(std::move(pdu), address) : std::move(pdu);
}

}  // namespace Host
