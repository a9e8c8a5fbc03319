#include "Snmp/SnmpUtil.h"

#include <gtest/gtest.h>

#include "support/LiveObjects.h"

namespace SnmpUtil {
namespace {

class SnmpUtilTest : public support::LiveObjectsTest {
 protected:
  ~SnmpUtilTest() override { rootIs(nullptr); }
};

TEST_F(SnmpUtilTest, FindsAnEntityBelowTheRoot) {
  const auto root = Qel::make<Qel::Dir>("root");
  const auto entity = Qel::make<Qel::Entity>("generalMib");
  root->dirIs("snmp/misc")->entityIs(entity);
  rootIs(root);
  EXPECT_EQ(getEntityRelative("snmp/misc/generalMib"), entity);
}

TEST_F(SnmpUtilTest, FindsNothingAtAnAbsentPath) {
  rootIs(Qel::make<Qel::Dir>("root"));
  EXPECT_EQ(getEntityRelative("snmp/misc/generalMib"), nullptr);
  EXPECT_EQ(getEntityRelative(""), nullptr);
}

TEST_F(SnmpUtilTest, FindsNothingWithoutARoot) {
  EXPECT_EQ(getEntityRelative("snmp/misc/generalMib"), nullptr);
}

TEST_F(SnmpUtilTest, HoldsItsRootUntilItIsToldToLetGo) {
  const auto root = Qel::make<Qel::Dir>("root");
  rootIs(root);
  EXPECT_EQ(root->references(), 2U);
  rootIs(nullptr);
  EXPECT_EQ(root->references(), 1U);
}

}  // namespace
}  // namespace SnmpUtil
