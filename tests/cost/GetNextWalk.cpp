#include "cost/GetNextWalk.h"

#include <gtest/gtest.h>

#include "NorvekGeneralMIB/NorvekGeneralMIB.h"
#include "Snmp/SnmpUtil.h"
#include "System/ResetCause.h"
#include "support/Reloads.h"

namespace cost {

namespace {

constexpr oid kDescription = 4;
constexpr oid kTime = 5;

NorvekGeneralMIB::Oid nameOf(oid column, U32 cause) {
  return {1, 3, 6, 1, 4, 1, 32473, 3, 24, 1, 1, 1, column, 0, 0, cause};
}

}  // namespace

GetNextWalk::GetNextWalk(U32 rows) : rows_(rows) {
  const auto reload = support::reload(
      std::vector<System::ResetCause>(rows, System::ResetCause("Fan failure", 1700000000.9)));
  for (U32 cause = 1; cause <= rows; ++cause) model_->reloadCauseTableIs({0, 0, cause}, reload);
  root_->dirIs("snmp/misc")->entityIs(model_);
  SnmpUtil::rootIs(root_);
  NorvekGeneralMIB::InProcessAgent::instance();
  init_NorvekGeneralMIB("");
}

GetNextWalk::~GetNextWalk() {
  unregister_NorvekGeneralMIB("");
  SnmpUtil::rootIs(nullptr);
}

void GetNextWalk::getNext(U32 count) {
  for (U32 i = 0; i < count; ++i) {
    const oid column = i % 2 == 0 ? kDescription : kTime;
    const U32 cause = 1 + i / 2 % (rows_ - 1);
    const auto response =
        NorvekGeneralMIB::InProcessAgent::instance().getNext({nameOf(column, cause)});
    ASSERT_EQ(response.varbinds.size(), 1U);
    ASSERT_EQ(response.varbinds[0].name, nameOf(column, cause + 1));
  }
}

}  // namespace cost
