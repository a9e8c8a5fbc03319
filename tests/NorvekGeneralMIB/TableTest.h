#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "MiscSnmp/GeneralMib.h"
#include "NorvekGeneralMIB/Interposed.h"
#include "Qel/Dir.h"
#include "Snmp/MibContext.h"
#include "Snmp/SnmpUtil.h"
#include "support/LiveObjects.h"
#include "support/Reloads.h"
#include "support/TraceRecorder.h"

namespace NorvekGeneralMIB {

// A model at its path in the agent's tree, every trace of the module recorded, and as many objects
// and records of net-snmp at the end as at the start.
class TableTest : public support::LiveObjects, public testing::Test {
 protected:
  using Lines = std::vector<std::string>;

  TableTest() {
    interposed() = {};
    root->dirIs("snmp/misc")->entityIs(model);
    SnmpUtil::rootIs(root);
  }
  ~TableTest() override {
    SnmpUtil::rootIs(nullptr);
    EXPECT_TRUE(interposed().columnInfos.empty());
    EXPECT_TRUE(interposed().registrations.empty());
    EXPECT_TRUE(Snmp::mibContexts().empty());
  }

  // Adds a row of the latest reload, with a cause of its own.
  void rowIs(U32 unit, U32 cause) { model->reloadCauseTableIs({unit, 0, cause}, instance); }
  void rowIs(const MiscSnmp::ReloadCauseKey& key) { model->reloadCauseTableIs(key, instance); }

  // A pointer as traces show it.
  static std::string text(const void* pointer) {
    std::ostringstream out;
    out << pointer;
    return out.str();
  }

  const Qel::Ptr<System::ResetInstance> instance = support::reloadOf(9);
  const Qel::Ptr<Qel::Dir> root = Qel::make<Qel::Dir>("root");
  const Qel::Ptr<MiscSnmp::GeneralMib> model = MiscSnmp::generalMibFactory("generalMib");
  support::TraceRecorder trace{{"Snmp", 2}};
};

}  // namespace NorvekGeneralMIB
