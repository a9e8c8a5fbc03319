#include "host/HostAccess.h"

#include <gmock/gmock.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

namespace Host {
namespace {

using testing::Eq;
using testing::Optional;

constexpr double kSoon = 0.5;  // less than between two looks

HostAccess::Source v4(std::uint8_t last) {
  return {.family = AF_INET, .address = {192, 0, 2, last}};
}

std::string freshDirectory() {
  std::string name = (std::filesystem::temp_directory_path() / "access-XXXXXX").string();
  EXPECT_NE(::mkdtemp(name.data()), nullptr);
  return name;
}

// Two files in a directory of the test's own, a clock that stands still, and how often they were
// asked.
class HostAccessTest : public testing::Test {
 protected:
  ~HostAccessTest() override { std::filesystem::remove_all(directory_); }

  std::string path(const std::string& file) const { return directory_ + "/" + file; }
  // A change is never unseen because the clock of the file system is a coarse one.
  void write(const std::string& file, const std::string& text) const {
    std::ofstream(path("fresh")) << text;
    std::filesystem::rename(path("fresh"), path(file));
  }
  // Whether the source is let in; `verdict` is what the files say if they are asked.
  bool allows(const HostAccess::Source& source, bool verdict) {
    if (const auto known = access_.known(source)) return *known;
    ++asked_;
    access_.learned(source, verdict);
    return verdict;
  }
  // Whether an answer is kept while these rules stand, seen from a new beginning.
  bool keepsUnder(const std::string& rules) {
    write("hosts.allow", rules);
    now_ += 1000;
    const int before = asked_;
    for (int packet = 0; packet < 3; ++packet) allows(v4(1), true);
    EXPECT_THAT(asked_ - before, testing::AnyOf(1, 3)) << rules;
    return asked_ - before == 1;
  }

  const std::string directory_ = freshDirectory();
  double now_ = 1000;
  int asked_ = 0;
  HostAccess access_{{path("hosts.allow"), path("hosts.deny")}, [this] { return now_; }};
};

TEST_F(HostAccessTest, AsksOnceForAllPacketsOfASource) {
  for (int packet = 0; packet < 100; ++packet) {
    EXPECT_TRUE(allows(v4(1), true));
    EXPECT_FALSE(allows(v4(2), false));
  }
  EXPECT_EQ(asked_, 2);
}

TEST_F(HostAccessTest, TellsEverySourceFromEveryOther) {
  HostAccess::Source mapped{.family = AF_INET6, .address = {}};
  mapped.address = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xff, 0xff, 192, 0, 2, 1};
  HostAccess::Source sameOctets = v4(1);
  sameOctets.family = AF_INET6;
  HostAccess::Source scoped = sameOctets;
  scoped.scope = 2;
  EXPECT_TRUE(allows(v4(1), true));
  for (const auto& other : {v4(2), mapped, sameOctets, scoped}) EXPECT_FALSE(allows(other, false));
  EXPECT_TRUE(allows(v4(1), false));
  EXPECT_EQ(asked_, 5);
}

TEST_F(HostAccessTest, AsksAgainWhenAnAnswerIsOld) {
  EXPECT_TRUE(allows(v4(1), true));
  now_ += HostAccess::kAge - 0.001;
  EXPECT_TRUE(allows(v4(1), false));
  now_ += 0.001;
  EXPECT_FALSE(allows(v4(1), false));
  EXPECT_EQ(asked_, 2);
}

TEST_F(HostAccessTest, HonoursAFileThatCameChangedOrWentAfterASecond) {
  const auto hasChanged = [this](const std::string& what) {
    const int before = asked_;
    now_ += HostAccess::kLookInterval;
    allows(v4(1), true);
    EXPECT_EQ(asked_, before + 1) << what;
  };
  allows(v4(1), true);
  for (const std::string file : {"hosts.allow", "hosts.deny"}) {
    write(file, "snmpd: 192.0.2.1\n");
    hasChanged(file + " came");
    write(file, "snmpd: 192.0.2.2\n");
    hasChanged(file + " was replaced by one of the same size");
    std::ofstream(path(file), std::ios::app) << "snmpd: 192.0.2.3\n";
    hasChanged(file + " was added to");
    std::filesystem::permissions(path(file), std::filesystem::perms::owner_read);
    hasChanged(file + " has other rights");
    std::filesystem::remove(path(file));
    hasChanged(file + " went");
  }
}

TEST_F(HostAccessTest, LooksAtTheFilesOnceASecondAtMost) {
  EXPECT_TRUE(allows(v4(1), true));
  now_ += kSoon;
  write("hosts.deny", "ALL: ALL\n");
  EXPECT_TRUE(allows(v4(1), false));
  now_ += kSoon;
  EXPECT_FALSE(allows(v4(1), false));
}

TEST_F(HostAccessTest, LooksBeforeItAnswersHoweverLongNobodyAsked) {
  EXPECT_TRUE(allows(v4(1), true));
  write("hosts.deny", "ALL: ALL\n");
  now_ += 1'000'000;
  EXPECT_FALSE(allows(v4(1), false));
}

TEST_F(HostAccessTest, KeepsAnswersOfRulesThatOnlyAnswer) {
  for (const std::string rules :
       {"", "# snmpd: ALL: spawn /bin/false\n", "\n \t\n", "snmpd: 192.0.2.0/255.255.255.0\n",
        "ALL: LOCAL @group .example.com EXCEPT /etc/others\n", "snmpd: [2001:db8::]/32 [::1]\n",
        "snmpd: [2001:db8::1] : allow\n", "ALL: ALL :deny \n", "snmpd: 192.0.2.1 \\\n 192.0.2.2\n",
        "# goes on \\\n snmpd: ALL: spawn /bin/false\n", "without a colon\n", "no end: of line",
        "snmpd: ALL: al\\\nlow\n"}) {
    EXPECT_TRUE(keepsUnder(rules)) << rules;
  }
}

TEST_F(HostAccessTest, KeepsNothingWhileARuleDoesMoreThanAnswer) {
  for (const std::string rules :
       {"snmpd: ALL: spawn /bin/echo %a\n", "snmpd: ALL: twist /bin/echo no\n",
        "snmpd: 192.0.2.1: severity local0.info : allow\n", "snmpd: ALL: aclexec /bin/test %a\n",
        "# a comment\n\nother: ALL\nsnmpd: [2001:db8::1] 192.0.2.1 : banners /etc : deny\n",
        "snmpd: 192.0.2.1 \\\n : spawn /bin/false\n", "snmpd: ALL: spawn /bin/false",
        "snmpd: ALL: spawn /bin/false\\\n"}) {
    EXPECT_FALSE(keepsUnder(rules)) << rules;
    EXPECT_TRUE(keepsUnder("snmpd: ALL\n")) << "after " << rules;
  }
}

TEST_F(HostAccessTest, KeepsNothingWhereItCannotTellWhatTheRulesDo) {
  EXPECT_FALSE(keepsUnder("# " + std::string(3000, 'x') + "\n")) << "libwrap cuts a long line";
  EXPECT_FALSE(keepsUnder(std::string("ALL: ALL\0\n", 10)));
  std::filesystem::remove(path("hosts.allow"));
  std::filesystem::create_directory(path("hosts.allow"));
  now_ += HostAccess::kLookInterval;
  allows(v4(1), true);
  EXPECT_THAT(access_.known(v4(1)), Eq(std::nullopt));
}

TEST_F(HostAccessTest, KeepsNothingWhileAFileCannotBeReached) {
  EXPECT_TRUE(allows(v4(1), true));
  std::filesystem::create_symlink("hosts.deny", path("hosts.deny"));
  now_ += HostAccess::kLookInterval;
  for (int packet = 0; packet < 3; ++packet) EXPECT_FALSE(allows(v4(1), false));
  EXPECT_EQ(asked_, 4);
}

TEST_F(HostAccessTest, ForgetsTheOldestAnswerRatherThanKeepMoreSourcesThanItMay) {
  constexpr double kApart = HostAccess::kAge / (2 * HostAccess::kMost);
  constexpr std::size_t kOldest = 100;  // neither the first nor the last of the sources
  const auto strange = [](std::size_t number) {
    HostAccess::Source source{.family = AF_INET6};
    source.scope = static_cast<std::uint32_t>(number);
    return source;
  };
  for (std::size_t i = 0; i < HostAccess::kMost; ++i, now_ += kApart) {
    allows(strange((kOldest + i) % HostAccess::kMost), false);
  }
  EXPECT_THAT(access_.known(strange(kOldest)), Optional(false));
  allows(strange(HostAccess::kMost), false);
  EXPECT_THAT(access_.known(strange(kOldest)), Eq(std::nullopt));
  for (std::size_t i = 0; i <= HostAccess::kMost; ++i) {
    if (i != kOldest) {
      EXPECT_THAT(access_.known(strange(i)), Optional(false)) << i;
    }
  }
}

}  // namespace
}  // namespace Host
