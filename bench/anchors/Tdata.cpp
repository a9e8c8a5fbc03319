#include "Qel/Assert.h"
#include "bench/anchors/Anchor.h"

namespace Bench {
namespace {

int handleTdata(netsnmp_mib_handler* /*handler*/, netsnmp_handler_registration* /*registration*/,
                netsnmp_agent_request_info* /*info*/, netsnmp_request_info* requests) {
  for (auto* request = requests; request != nullptr; request = request->next) {
    if (request->processed != 0) continue;
    answer(request, static_cast<const Row*>(netsnmp_tdata_extract_entry(request)));
  }
  return SNMP_ERR_NOERROR;
}

class Tdata final : public Anchor {
 public:
  explicit Tdata(const std::vector<Row>& rows)
      : table_(netsnmp_tdata_create_table("benchTdata", 0)),
        info_(newTableInfo()),
        registration_(newRegistration("benchTdata", kTdata, &handleTdata)) {
    for (const Row& row : rows) add(row);
    const int result = netsnmp_tdata_register(registration_, table_, info_);
    QEL_ASSERT(result == MIB_REGISTERED_OK);
  }
  ~Tdata() override {
    netsnmp_unregister_handler(registration_);
    while (auto* row = static_cast<netsnmp_tdata_row*>(CONTAINER_FIRST(table_->container))) {
      netsnmp_tdata_remove_and_delete_row(table_, row);
    }
    netsnmp_tdata_delete_table(table_);
    netsnmp_table_registration_info_free(info_);
  }

 private:
  void add(const Row& row) {
    netsnmp_tdata_row* const added = netsnmp_tdata_create_row();
    added->data = const_cast<Row*>(&row);
    for (const u_long value : row.key) {
      snmp_varlist_add_variable(&added->indexes, nullptr, 0, ASN_UNSIGNED,
                                reinterpret_cast<const u_char*>(&value), sizeof value);
    }
    const int result = netsnmp_tdata_add_row(table_, added);
    QEL_ASSERT(result == SNMPERR_SUCCESS);
  }

  netsnmp_tdata* const table_;
  netsnmp_table_registration_info* const info_;
  netsnmp_handler_registration* const registration_;
};

}  // namespace

std::unique_ptr<Anchor> tdata(const std::vector<Row>& rows) {
  return std::make_unique<Tdata>(rows);
}

}  // namespace Bench
