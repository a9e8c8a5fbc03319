#include "host/SystemGroup.h"

#include <fmt/format.h>
#include <strings.h>
#include <unistd.h>

#include <array>
#include <cstring>
#include <iterator>
#include <optional>

#include "Qel/Number.h"
#include "host/Errors.h"
#include "host/NetSnmp.h"

namespace Host {
namespace {

constexpr std::size_t kLongestText = 255;  // DisplayString
constexpr long kApplicationsAndEndToEnd = 72;

// What the scalars say. One set a process: net-snmp's callbacks have no place for a pointer.
struct Values {
  std::string description;
  std::string contact;
  std::string name;
  std::string location;
  long services = kApplicationsAndEndToEnd;
};

Values& values() {
  static Values values;
  return values;
}

// Where no configuration says otherwise.
Values& initialValues() {
  static Values values;
  return values;
}

std::string hostName() {
  char name[256] = "";
  gethostname(name, sizeof name - 1);
  return name;
}

// One scalar: its sub-identifier below 1.3.6.1.2.1.1 and how it answers. A scalar has either a text
// or a function that fills the variable.
struct Scalar {
  oid subIdentifier;
  const char* name;
  std::string Values::*text;
  void (*fill)(netsnmp_variable_list* variable);
};

// The vendor's enterprise: the device maker has not named its products one by one.
void fillObjectId(netsnmp_variable_list* variable) {
  constexpr oid kEnterprise[] = {1, 3, 6, 1, 4, 1, 32473};
  snmp_set_var_typed_value(variable, ASN_OBJECT_ID, kEnterprise, sizeof kEnterprise);
}

void fillUpTime(netsnmp_variable_list* variable) {
  snmp_set_var_typed_integer(variable, ASN_TIMETICKS,
                             static_cast<long>(netsnmp_get_agent_uptime()));
}

void fillServices(netsnmp_variable_list* variable) {
  snmp_set_var_typed_integer(variable, ASN_INTEGER, values().services);
}

constexpr Scalar kScalarTable[] = {
    {1, "sysDescr", &Values::description, nullptr}, {2, "sysObjectID", nullptr, fillObjectId},
    {3, "sysUpTime", nullptr, fillUpTime},          {4, "sysContact", &Values::contact, nullptr},
    {5, "sysName", &Values::name, nullptr},         {6, "sysLocation", &Values::location, nullptr},
    {7, "sysServices", nullptr, fillServices},
};

int answer(netsnmp_mib_handler* /*handler*/, netsnmp_handler_registration* registration,
           netsnmp_agent_request_info* /*info*/, netsnmp_request_info* request) {
  const auto* scalar = static_cast<const Scalar*>(registration->my_reg_void);
  if (scalar->text != nullptr) {
    const std::string& text = values().*scalar->text;
    snmp_set_var_typed_value(request->requestvb, ASN_OCTET_STR, text.data(), text.size());
  } else {
    scalar->fill(request->requestvb);
  }
  return SNMP_ERR_NOERROR;
}

// Before a configuration is read again.
void forgetTexts() { values() = initialValues(); }

// A configuration directive that sets one of the texts.
struct Directive {
  const char* token;
  std::string Values::*text;
};

constexpr Directive kDirectives[] = {{"sysdescr", &Values::description},
                                     {"syscontact", &Values::contact},
                                     {"sysname", &Values::name},
                                     {"syslocation", &Values::location}};

void readText(const char* token, char* line) {
  for (const Directive& directive : kDirectives) {
    if (strcasecmp(token, directive.token) != 0) continue;
    if (std::strlen(line) > kLongestText) {
      netsnmp_config_error("%s is longer than %zu octets", token, kLongestText);
    } else {
      values().*directive.text = line;
    }
  }
}

void readServices(const char* token, char* line) {
  constexpr long kHighest = 127;
  const auto services = Qel::numberOf<long>(line);
  if (!services || *services < 0 || *services > kHighest) {
    netsnmp_config_error("%s is not a number from 0 to %ld", token, kHighest);
  } else {
    values().services = *services;
  }
}

}  // namespace

SystemGroup::SystemGroup(const std::string& description) {
  values() = {description.substr(0, kLongestText), {}, hostName(), {}};
  initialValues() = values();
  for (const Directive& directive : kDirectives) {
    register_app_config_handler(directive.token, readText, forgetTexts, "TEXT");
  }
  register_app_config_handler("sysservices", readServices, forgetTexts, "NUMBER");
}

SystemGroup::~SystemGroup() {
  for (netsnmp_handler_registration* registration : registrations_) {
    if (registration != nullptr) netsnmp_unregister_handler(registration);
  }
}

void SystemGroup::registerScalars() {
  static_assert(std::size(kScalarTable) == kScalars);
  for (std::size_t index = 0; index < kScalars; ++index) {
    const Scalar& scalar = kScalarTable[index];
    const oid name[] = {1, 3, 6, 1, 2, 1, 1, scalar.subIdentifier};
    auto* registration = netsnmp_create_handler_registration(scalar.name, answer, name,
                                                             std::size(name), HANDLER_CAN_RONLY);
    registration->my_reg_void = const_cast<Scalar*>(&scalar);
    if (netsnmp_register_read_only_scalar(registration) != MIB_REGISTERED_OK) {
      throw StartError(fmt::format("net-snmp refused to serve {}", scalar.name));
    }
    registrations_[index] = registration;
  }
}

}  // namespace Host
