#include <fmt/format.h>

#include "Qel/Assert.h"
#include "bench/anchors/Anchor.h"

namespace Bench {
namespace {

constexpr oid kCount = 100;

int handleScalar(netsnmp_mib_handler* /*handler*/, netsnmp_handler_registration* registration,
                 netsnmp_agent_request_info* /*info*/, netsnmp_request_info* request) {
  const auto& row = *static_cast<const Row*>(registration->my_reg_void);
  snmp_set_var_typed_value(request->requestvb, ASN_OCTET_STR, row.description.data(),
                           row.description.size());
  return SNMP_ERR_NOERROR;
}

class Scalars final : public Anchor {
 public:
  explicit Scalars(const Row& row) {
    for (oid number = 1; number <= kCount; ++number) {
      const oid place[] = {1, 3, 6, 1, 4, 1, 32473, 3, kScalars, 1, 1, number};
      auto* registration = netsnmp_create_handler_registration(
          fmt::format("benchScalar{}", number).c_str(), &handleScalar, place, OID_LENGTH(place),
          HANDLER_CAN_RONLY);
      registration->my_reg_void = const_cast<Row*>(&row);
      const int result = netsnmp_register_read_only_scalar(registration);
      QEL_ASSERT(result == MIB_REGISTERED_OK);
      registrations_.push_back(registration);
    }
  }
  ~Scalars() override {
    for (auto* registration : registrations_) netsnmp_unregister_handler(registration);
  }

 private:
  std::vector<netsnmp_handler_registration*> registrations_;
};

}  // namespace

std::unique_ptr<Anchor> scalars(const std::vector<Row>& rows) {
  return std::make_unique<Scalars>(rows.front());
}

}  // namespace Bench
