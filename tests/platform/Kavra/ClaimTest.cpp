#include "Kavra/Claim.h"

#include <gtest/gtest.h>

#include <set>

#include "Qel/String.h"

namespace Kavra {
namespace {

Claim to(const std::set<Qel::String>& places) { return {"host", "boot", "/file", places}; }

TEST(ClaimTest, CoversItsPathsAndAllBelowItsPrefixes) {
  const Claim claim = to({"a/b", "cell/1/"});
  for (const char* path : {"a/b", "cell/1/x", "cell/1/x/y"})
    EXPECT_TRUE(claim.covers(path)) << path;
  for (const char* path : {"a", "a/b/c", "a/bc", "cell/1", "cell/10/x", "cell/2/x"}) {
    EXPECT_FALSE(claim.covers(path)) << path;
  }
  EXPECT_FALSE(to({}).covers("a"));
}

TEST(ClaimTest, OverlapsWhereTheyShareAPath) {
  const auto overlap = [](const std::set<Qel::String>& a, const std::set<Qel::String>& b) {
    EXPECT_EQ(to(a).overlaps(to(b)), to(b).overlaps(to(a)));
    return to(a).overlaps(to(b));
  };
  EXPECT_TRUE(overlap({"cell/"}, {"cell/1/"}));
  EXPECT_TRUE(overlap({"cell/1/"}, {"cell/1/"}));
  EXPECT_TRUE(overlap({"cell/1/"}, {"a", "cell/1/x"}));
  EXPECT_TRUE(overlap({"a", "b"}, {"b", "c"}));
  EXPECT_FALSE(overlap({"cell/1/"}, {"cell/10/", "cell/1"}));
  EXPECT_FALSE(overlap({"a"}, {"b"}));
  EXPECT_FALSE(overlap({"cell/"}, {}));
}

TEST(ClaimTest, IsNamedAfterItsHostItsFileAndItsPrefix) {
  EXPECT_EQ(to({"cell/1/"}).name(), "host:boot:/file:cell/1/");
  EXPECT_EQ(to({"a", "b"}).name(), "host:boot:/file:");
  EXPECT_EQ(to({}).publisher(), "the publisher of /file on host");
}

}  // namespace
}  // namespace Kavra
