#include "resetcause/Findings.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <string>

#include "resetcause/Machine.h"
#include "resetcause/Rules.h"

namespace ResetCause {
namespace {

using resetcausetest::Machine;
using testing::ElementsAre;

// Thousands of pieces, each as long as can be, that take the most room.
Findings flooded() {
  Findings findings;
  for (std::size_t i = 0; i < 2000; ++i) {
    const auto kind = static_cast<Kind>(i % (kKinds - 1));
    const std::string whole(10000, '\x01');
    findings.add({kind, "a source", std::to_string(i) + whole, whole, 1.5, whole});
  }
  return findings;
}

TEST(FindingsTest, ManyPiecesOfOneKindHideNoneOfAnother) {
  Findings findings;
  for (int i = 0; i < 5000; ++i) findings.add({Kind::haltDump, "pstore", std::to_string(i), "x"});
  findings.add({Kind::watchdog, "watchdog", "here", "y"});
  EXPECT_EQ(findings.evidence().back().kind, Kind::watchdog);
  EXPECT_EQ(findings.evidence().size(), 21);
  EXPECT_THAT(findings.problems(),
              ElementsAre("pstore: restart dump: there is more of it: the rest is left out"));
}

TEST(FindingsTest, AsMuchAsCanBeFoundIsKeptAndSaidAgain) {
  Machine machine;
  Judgement judgement = machine.judged();
  judgement.verdict = verdictOf(judgement.boots, flooded().evidence());
  for (int i = 0; i < 10000; ++i) {
    judgement.seen.insert(std::string(100, 'x') + std::to_string(i));
    judgement.known.insert(std::string(100, 'y') + std::to_string(i));
  }
  keep(machine.root(), judgement);
  const Judgement again = machine.judged();
  EXPECT_TRUE(again.isKept);
  EXPECT_EQ(again.verdict, judgement.verdict);
}

TEST(FindingsTest, AProblemThatTwoMeetIsNamedOnce) {
  Findings findings;
  for (const char* why : {"it is no file", "it is no file", "it is too long"}) {
    findings.problem("wtmp", "/var/log/wtmp", why);
  }
  EXPECT_THAT(findings.problems(), ElementsAre("wtmp: /var/log/wtmp: it is no file",
                                               "wtmp: /var/log/wtmp: it is too long"));
}

TEST(FindingsTest, AnImpossibleTimeIsLeftOut) {
  Findings findings;
  for (const double time : {-1.0, 1e300, 253402300800.0}) {
    findings.add({Kind::maker, "maker", "f", "x", time});
    EXPECT_EQ(findings.evidence().back().time, std::nullopt) << time;
  }
  findings.add({Kind::maker, "maker", "f", "x", 0.0});
  EXPECT_EQ(findings.evidence().back().time, 0);
}

}  // namespace
}  // namespace ResetCause
