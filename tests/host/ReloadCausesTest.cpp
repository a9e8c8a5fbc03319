#include "host/ReloadCauses.h"

#include <gmock/gmock.h>

#include <cmath>
#include <limits>
#include <set>
#include <string>
#include <vector>

#include "support/Reloads.h"

namespace Host {
namespace {

using support::reload;
using System::ResetCause;
using testing::ElementsAre;
using testing::SizeIs;

ReloadCauses causesOf(const std::vector<ResetCause>& causes) {
  return reloadCausesOf(2, *reload(causes));
}

std::uint64_t digestOf(const std::vector<ResetCause>& causes) { return causesOf(causes).digest; }

TEST(ReloadCausesTest, AreThoseOfTheReloadInTheirOrder) {
  const auto causes = causesOf({{"Power loss", 1700000000.9}, {"Fan failure", 1700000001}});
  EXPECT_EQ(causes.unit, 2U);
  EXPECT_EQ(causes.count, 2U);
  EXPECT_THAT(causes.first, ElementsAre(ReloadCauses::Cause{"Power loss", 1700000000U},
                                        ReloadCauses::Cause{"Fan failure", 1700000001U}));
}

TEST(ReloadCausesTest, HaveTheTimesOfTheTable) {
  const auto causes = causesOf({{"ahead", 4294967296.0 + 7},
                                {"never", std::numeric_limits<double>::infinity()},
                                {"unknown", std::nan("")},
                                {"before", -1}});
  std::vector<U32> times;
  for (const auto& cause : causes.first) times.push_back(cause.time);
  EXPECT_THAT(times, ElementsAre(7U, 0U, 0U, 4294967295U));
}

// FNV-1a of 64 bits, of the length and the text of the description and of the time, each number as
// eight octets, the lowest first.
TEST(ReloadCausesTest, AreTheSameFromProcessToProcess) {
  EXPECT_EQ(digestOf({{"Power loss", 1700000000.9}}), 15292433193382733392U);
}

TEST(ReloadCausesTest, AreOthersWithAnyDifferenceThatTheTableShows) {
  const std::set<std::uint64_t> digests{
      digestOf({}),
      digestOf({{"a", 1}}),
      digestOf({{"a", 2}}),
      digestOf({{"b", 1}}),
      digestOf({{"a", 1}, {"a", 1}}),
      digestOf({{"a", 1}, {"b", 1}}),
      digestOf({{"b", 1}, {"a", 1}}),
      digestOf({{"ab", 1}, {"", 1}}),
      digestOf({{"", 1}, {"ab", 1}}),
      digestOf({{std::string("a\0", 2), 1}}),
  };
  EXPECT_THAT(digests, SizeIs(10));
}

TEST(ReloadCausesTest, AreTheSameWhereTheTableShowsTheSame) {
  EXPECT_EQ(digestOf({{"a", 1.2, "replace it", "pump 3"}}), digestOf({{"a", 1.9}}));
}

TEST(ReloadCausesTest, FitIntoOneMessage) {
  const auto causes = reloadCausesOf(1, *support::reloadOf(65536));
  EXPECT_EQ(causes.count, 65536U);
  std::size_t octets = 0;
  for (const auto& cause : causes.first) octets += cause.description.size() + kCauseOverhead;
  EXPECT_LE(octets, kMostCauseOctets);
  EXPECT_GT(octets, kMostCauseOctets - 100);
}

TEST(ReloadCausesTest, AreNoMoreThanThoseBeforeTheFirstThatDoesNotFit) {
  const std::string longest(1024, 'x');
  EXPECT_THAT(causesOf({{longest, 1}, {"short", 2}}).first, SizeIs(1));
  EXPECT_THAT(causesOf({{"short", 1}, {longest, 2}, {"short", 3}}).first, SizeIs(1));
  EXPECT_THAT(causesOf({{std::string(2000, 'x'), 1}, {"short", 2}}).first, SizeIs(0));
}

}  // namespace
}  // namespace Host
