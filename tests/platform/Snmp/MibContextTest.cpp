#include "Snmp/MibContext.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace Snmp {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class MibContextTest : public testing::Test {
 protected:
  ~MibContextTest() override {
    for (const MibContext& record : mibContexts()) {
      unregisterMibContext(record.context, record.module);
    }
  }
};

TEST_F(MibContextTest, ListsWhatIsRegisteredOldestFirst) {
  registerMibContext("", "SOME-MIB");
  registerMibContext("blue", "SOME-MIB");
  registerMibContext("", "ANOTHER-MIB");
  EXPECT_THAT(mibContexts(), ElementsAre(MibContext{"", "SOME-MIB"}, MibContext{"blue", "SOME-MIB"},
                                         MibContext{"", "ANOTHER-MIB"}));
}

TEST_F(MibContextTest, RecordsAPairOnce) {
  registerMibContext("", "SOME-MIB");
  registerMibContext("", "SOME-MIB");
  EXPECT_THAT(mibContexts(), ElementsAre(MibContext{"", "SOME-MIB"}));
}

TEST_F(MibContextTest, UnregisteringTakesThatPairAlone) {
  registerMibContext("", "SOME-MIB");
  registerMibContext("blue", "SOME-MIB");
  unregisterMibContext("", "SOME-MIB");
  EXPECT_THAT(mibContexts(), ElementsAre(MibContext{"blue", "SOME-MIB"}));
}

TEST_F(MibContextTest, UnregisteringWhatWasNeverRegisteredIsIgnored) {
  unregisterMibContext("", "SOME-MIB");
  EXPECT_THAT(mibContexts(), IsEmpty());
}

}  // namespace
}  // namespace Snmp
