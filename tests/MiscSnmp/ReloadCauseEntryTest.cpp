#include "MiscSnmp/ReloadCauseEntry.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <vector>

#include "MiscSnmp/ReloadCauseKeyIf.h"
#include "Qel/Exception.h"
#include "Qel/TypeNode.h"
#include "support/LiveObjects.h"
#include "support/Reloads.h"

namespace MiscSnmp {
namespace {

using support::reload;
using support::reloadOf;
using testing::ElementsAre;

class ReloadCauseEntryTest : public support::LiveObjectsTest {
 protected:
  static Qel::Ptr<ReloadCauseEntry> row(U32 causeIndex,
                                        const Qel::Ptr<System::ResetInstance const>& instance) {
    return Qel::make<ReloadCauseEntry>(ReloadCauseKey(1, 0, causeIndex), instance);
  }
  // The seconds that a row shows of a cause at that time.
  static U32 shown(double time) { return row(1, reload({{"x", time}}))->reloadTime(); }
};

TEST_F(ReloadCauseEntryTest, ShowsTheFirstCauseUnderIndexOne) {
  const auto entry = row(1, reload({{"Power loss", 1700000000.9}}));
  EXPECT_EQ(entry->causeDesc(), "Power loss");
  EXPECT_EQ(entry->reloadTime(), 1700000000U);
}

TEST_F(ReloadCauseEntryTest, ShowsNothingForACauseBehindTheQueue) {
  const auto entry = row(2, reload({{"Power loss", 1700000000.9}}));
  EXPECT_EQ(entry->causeDesc(), "");
  EXPECT_EQ(entry->reloadTime(), 0U);
}

TEST_F(ReloadCauseEntryTest, CauseIndexZeroMatchesNoElement) {
  const auto entry = row(0, reloadOf(3));
  EXPECT_EQ(entry->causeDesc(), "");
  EXPECT_EQ(entry->reloadTime(), 0U);
}

TEST_F(ReloadCauseEntryTest, ShowsNothingOfAnEmptyQueue) {
  const auto entry = row(1, reload());
  EXPECT_EQ(entry->causeDesc(), "");
  EXPECT_EQ(entry->reloadTime(), 0U);
}

TEST_F(ReloadCauseEntryTest, FindsTheFirstTheLastAndThoseBetween) {
  const auto instance = reloadOf(5);
  EXPECT_EQ(row(1, instance)->causeDesc(), "cause 1");
  EXPECT_EQ(row(3, instance)->causeDesc(), "cause 3");
  EXPECT_EQ(row(5, instance)->causeDesc(), "cause 5");
  EXPECT_EQ(row(4, instance)->reloadTime(), 4U);
}

TEST_F(ReloadCauseEntryTest, FollowsTheQueueAtEachRead) {
  const auto instance = reload({{"first", 1.0}, {"second", 2.0}});
  const auto entry = row(2, instance);
  EXPECT_EQ(entry->causeDesc(), "second");
  instance->causeQIs({{"first", 1.0}});
  EXPECT_EQ(entry->causeDesc(), "");
  instance->causeQIs({{"first", 1.0}, {"another", 9.0}});
  EXPECT_EQ(entry->causeDesc(), "another");
  EXPECT_EQ(entry->reloadTime(), 9U);
}

TEST_F(ReloadCauseEntryTest, MissesACauseThatLeftTheHeadOfTheQueue) {
  const auto instance = reloadOf(3);
  instance->causeQDel(0);
  EXPECT_EQ(row(1, instance)->causeDesc(), "");
  EXPECT_EQ(row(2, instance)->causeDesc(), "cause 2");
}

TEST_F(ReloadCauseEntryTest, ShowsADescriptionOfAnyOctetsAsItStands) {
  const std::string text = std::string("  \xff\0%s\n tail ", 13);
  EXPECT_EQ(row(1, reload({{text, 1.0}}))->causeDesc().stdString(), text);
}

TEST_F(ReloadCauseEntryTest, CutsTheFractionOfASecondTowardZero) {
  EXPECT_EQ(shown(1.999999), 1U);
  EXPECT_EQ(shown(0.5), 0U);
  EXPECT_EQ(shown(-0.5), 0U);
}

TEST_F(ReloadCauseEntryTest, WrapsTimesModuloTwoToThe32) {
  EXPECT_EQ(shown(4294967295.0), 4294967295U);
  EXPECT_EQ(shown(4294967296.5), 0U);
  EXPECT_EQ(shown(4294967297.0), 1U);
  EXPECT_EQ(shown(-1.0), 4294967295U);
  EXPECT_EQ(shown(-1.5), 4294967295U);
}

TEST_F(ReloadCauseEntryTest, ShowsZeroForATimeThatIsNoNumberOfSeconds) {
  EXPECT_EQ(shown(std::nan("")), 0U);
  EXPECT_EQ(shown(std::numeric_limits<double>::infinity()), 0U);
  EXPECT_EQ(shown(-std::numeric_limits<double>::infinity()), 0U);
  EXPECT_EQ(shown(std::ldexp(1.0, 63)), 0U);
  EXPECT_EQ(shown(std::nextafter(-std::ldexp(1.0, 63), -1.0e30)), 0U);
  EXPECT_EQ(shown(std::nextafter(std::ldexp(1.0, 63), 0.0)), 0xfffffc00U);
}

TEST_F(ReloadCauseEntryTest, PublishesTheReloadUnderItsOwnName) {
  const auto entry = Qel::make<ReloadCauseEntry>(ReloadCauseKey(7, 8, 9), reload());
  EXPECT_EQ(entry->unitIndex(), 7U);
  EXPECT_EQ(entry->reloadIndex(), 8U);
  EXPECT_EQ(entry->causeIndex(), 9U);
  EXPECT_EQ(entry->key(), ReloadCauseKey(7, 8, 9));
}

TEST_F(ReloadCauseEntryTest, KeepsItsReloadAliveAndLetsGoOfIt) {
  const auto instance = reloadOf(1);
  auto entry = row(1, instance);
  EXPECT_EQ(instance->references(), 2U);
  EXPECT_EQ(entry->resetCause(), instance);
  entry = nullptr;
  EXPECT_EQ(instance->references(), 1U);
}

TEST_F(ReloadCauseEntryTest, ReflectsItsAttributesInOrder) {
  const auto instance = reload({{"Power loss", 12.0}});
  const auto reflected = Qel::genericIf(row(1, instance));
  EXPECT_EQ(reflected->type().name(), "MiscSnmp::ReloadCauseEntry");
  EXPECT_THAT(reflected->attributeNames(),
              ElementsAre("key", "resetCause", "unitIndex", "reloadIndex", "causeIndex",
                          "causeDesc", "reloadTime"));
  EXPECT_EQ(ReloadCauseKeyIf::keyOf(reflected->attribute("key")), ReloadCauseKey(1, 0, 1));
  EXPECT_EQ(reflected->attribute("resetCause").toPtr<System::ResetInstance const>(), instance);
  EXPECT_EQ(reflected->attribute("unitIndex").toU32(), 1U);
  EXPECT_EQ(reflected->attribute("reloadIndex").toU32(), 0U);
  EXPECT_EQ(reflected->attribute("causeIndex").toU32(), 1U);
  EXPECT_EQ(reflected->attribute("causeDesc").toString(), "Power loss");
  EXPECT_EQ(reflected->attribute("reloadTime").toU32(), 12U);
}

TEST_F(ReloadCauseEntryTest, RefusesToWriteAnyAttribute) {
  const auto reflected = Qel::genericIf(row(1, reload()));
  for (const Qel::String& name : reflected->attributeNames()) {
    EXPECT_THROW(reflected->attributeIs(name, {U32{1}}), Qel::OperationNotSupportedException)
        << name;
  }
}

}  // namespace
}  // namespace MiscSnmp
