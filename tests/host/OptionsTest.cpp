#include "host/Options.h"

#include <gmock/gmock.h>

#include <cstdlib>
#include <string>

#include "host/Errors.h"

namespace Host {
namespace {

using namespace std::string_literals;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

// What the user reads when the options cannot be obeyed, or "".
std::string complaint(const std::vector<std::string>& arguments) {
  try {
    readOptions(arguments);
  } catch (const UsageError& error) {
    return error.what();
  }
  return "";
}

std::string answer(const std::vector<std::string>& arguments) {
  try {
    readOptions(arguments);
  } catch (const Answer& answered) {
    return answered.text;
  }
  return "";
}

TEST(Options, HaveDefaults) {
  const Options options = readOptions({});
  EXPECT_EQ(options.cellId, 1U);
  EXPECT_EQ(options.cellType, "supervisor");
  EXPECT_EQ(options.db, "file:kavra.json");
  EXPECT_EQ(options.peerDb, "file:kavra.json");
  EXPECT_THAT(options.listenAddresses, ElementsAre("udp:127.0.0.1:1161"));
  EXPECT_EQ(options.agentxAddress, std::nullopt);
  EXPECT_EQ(options.configurationFile, std::nullopt);
  EXPECT_THAT(options.plugins, IsEmpty());
  EXPECT_THAT(options.contexts, ElementsAre(""));
  EXPECT_THAT(options.traces, IsEmpty());
}

TEST(Options, TakeEveryValueGiven) {
  const Options options =
      readOptions({"--cell-id", "2", "--cell-type", "linecard", "--db", "file:own", "--peer-db",
                   "file:peer", "--config", "access.conf", "--listen", "udp:1161"});
  EXPECT_EQ(options.cellId, 2U);
  EXPECT_EQ(options.cellType, "linecard");
  EXPECT_EQ(options.db, "file:own");
  EXPECT_EQ(options.peerDb, "file:peer");
  EXPECT_EQ(options.configurationFile, "access.conf");
  EXPECT_THAT(options.listenAddresses, ElementsAre("udp:1161"));
}

TEST(Options, KeepThePasswordOfOneServerFromAnother) {
  const std::vector<std::string> pair{"--db",     "redis://a", "--db-auth",
                                      "own.auth", "--peer-db", "redis://b"};
  EXPECT_EQ(readOptions(pair).dbAuth, "own.auth");
  EXPECT_EQ(readOptions(pair).peerDbAuth, "");
  std::vector<std::string> both = pair;
  both.insert(both.end(), {"--peer-db-auth", "own.auth"});
  EXPECT_EQ(readOptions(both).peerDbAuth, "own.auth");
}

TEST(Options, AuthenticateOnceToTheOneServerOfBothCells) {
  EXPECT_EQ(readOptions({"--db", "redis://a", "--db-auth", "own.auth"}).peerDbAuth, "own.auth");
  EXPECT_EQ(readOptions({"--db", "redis://a", "--db-auth", "own.auth", "--peer-db", "redis://a"})
                .peerDbAuth,
            "own.auth");
  EXPECT_EQ(readOptions({}).peerDbAuth, "");
}

TEST(Options, RefuseAPasswordForAPeerThatIsNotNamed) {
  EXPECT_EQ(complaint({"--peer-db-auth", "x"}), "--peer-db-auth requires --peer-db");
}

TEST(Options, LookForThePeerWhereTheOwnCellLives) {
  EXPECT_EQ(readOptions({"--db", "redis://127.0.0.1"}).peerDb, "redis://127.0.0.1");
}

TEST(Options, RefuseAPeerOfACellThatIsNoSupervisor) {
  for (const char* cell : {"3", "5"}) {
    EXPECT_EQ(complaint({"--cell-id", cell, "--peer-db", "file:b"}),
              "--peer-db: only the supervisors, cells 1 and 2, have a peer, not cell " +
                  std::string(cell));
  }
  EXPECT_EQ(readOptions({"--cell-id", "5"}).peerDb, "file:kavra.json");
}

TEST(Options, CollectWhatMayBeRepeated) {
  const Options options =
      readOptions({"--listen", "localhost:1", "--listen", "localhost:2", "--plugin", "/lib/a.so",
                   "--plugin", "/lib/b.so", "--context", "blue", "--context", "red", "--trace",
                   "Snmp=2", "--trace", "MiscSnmp=8"});
  EXPECT_THAT(options.listenAddresses, ElementsAre("localhost:1", "localhost:2"));
  EXPECT_THAT(options.plugins, ElementsAre("/lib/a.so", "/lib/b.so"));
  EXPECT_THAT(options.contexts, ElementsAre("", "blue", "red"));
  EXPECT_THAT(options.traces, ElementsAre(TraceOption{"Snmp", 2}, TraceOption{"MiscSnmp", 8}));
}

TEST(Options, TakeAPluginForAFileRatherThanANameToSearchFor) {
  EXPECT_THAT(readOptions({"--plugin", "own.so"}).plugins,
              ElementsAre(testing::EndsWith("/own.so")));
}

TEST(Options, DoNotListenAsASubagent) {
  const Options options = readOptions({"--agentx", "unix:/run/master"});
  EXPECT_EQ(options.agentxAddress, "unix:/run/master");
  EXPECT_THAT(options.listenAddresses, IsEmpty());
}

TEST(Options, RefuseToListenAsASubagent) {
  EXPECT_THAT(complaint({"--agentx", "unix:a", "--listen", "unix:b"}),
              HasSubstr("--agentx and --listen exclude each other"));
}

TEST(Options, RefuseAnOpenAddressWithTheBuiltInAccess) {
  EXPECT_THAT(complaint({"--listen", "udp:127.0.0.1:161", "--listen", "udp:0.0.0.0:161"}),
              testing::AllOf(HasSubstr("--listen udp:0.0.0.0:161"), HasSubstr("--config")));
}

TEST(Options, RefuseToListenOnAUnixSocket) {
  for (const char* address : {"unix:/run/agent", "UNIX:agent", "/run/agent"}) {
    EXPECT_THAT(complaint({"--config", "access.conf", "--listen", address}),
                testing::AllOf(HasSubstr(address), HasSubstr("Unix socket")));
    EXPECT_THAT(complaint({"--listen", address}), HasSubstr("Unix socket"));
  }
}

TEST(Options, TakeTheEngineIdInHexadecimal) {
  EXPECT_EQ(readOptions({}).engineId, std::nullopt);
  EXPECT_EQ(readOptions({"--engine-id", "0x80007ED904ab"}).engineId, "\x80\x00\x7e\xd9\x04\xab"s);
}

TEST(Options, RefuseWhatIsNoEngineId) {
  for (const char* id : {"", "0x", "80007ed9", "80007ed90", "80007ed9zz", "0000000000"}) {
    EXPECT_EQ(complaint({"--engine-id", id}),
              "--engine-id " + std::string(id) +
                  ": expected 5 to 32 octets in hexadecimal, not all 0 or all ff");
  }
}

TEST(Options, LeaveTheEngineToTheMaster) {
  EXPECT_THAT(complaint({"--agentx", "unix:a", "--engine-id", "8000000001"}),
              HasSubstr("--agentx and --engine-id exclude each other"));
}

TEST(Options, KeepStateWhereTheServiceManagerSays) {
  EXPECT_EQ(readOptions({}).stateDirectory, "");
  ::setenv("STATE_DIRECTORY", "/var/lib/agent", 1);
  EXPECT_EQ(readOptions({}).stateDirectory, "/var/lib/agent");
  EXPECT_EQ(readOptions({"--state-dir", "/elsewhere"}).stateDirectory, "/elsewhere");
  ::setenv("STATE_DIRECTORY", "/var/lib/agent:/var/lib/other", 1);
  EXPECT_EQ(readOptions({}).stateDirectory, "/var/lib/agent");
  EXPECT_EQ(readOptions({"--state-dir", "/a:b"}).stateDirectory, "/a:b");
  ::unsetenv("STATE_DIRECTORY");
}

TEST(Options, RefuseACellIdOutsideItsRange) {
  for (const char* id : {"0", "-1", "4294967296", "one", "1x", ""}) {
    EXPECT_THAT(complaint({"--cell-id", id}), HasSubstr("--cell-id")) << id;
  }
  EXPECT_EQ(readOptions({"--cell-id", "4294967295"}).cellId, 4294967295U);
}

TEST(Options, RefuseATraceThatIsNotFacilityAndLevel) {
  for (const char* trace : {"Snmp", "Snmp=", "=1", "Snmp=10", "Snmp=-1", "Snmp=x", ""}) {
    EXPECT_THAT(complaint({"--trace", trace}), HasSubstr("expected FACILITY=LEVEL")) << trace;
  }
}

TEST(Options, RefuseContextsThatCannotBeToldApart) {
  EXPECT_THAT(complaint({"--context", ""}), HasSubstr("1 to 32 octets"));
  EXPECT_THAT(complaint({"--context", std::string(33, 'x')}), HasSubstr("1 to 32 octets"));
  EXPECT_THAT(complaint({"--context", "a", "--context", "a"}), HasSubstr("given twice"));
  EXPECT_EQ(complaint({"--context", std::string(32, 'x')}), "");
}

TEST(Options, RefuseWhatTheyDoNotKnow) {
  EXPECT_THAT(complaint({"--colour"}), HasSubstr("--colour"));
  EXPECT_THAT(complaint({"stray"}), HasSubstr("stray"));
}

TEST(Options, RefuseAnOptionWithoutItsValueOrGivenTwice) {
  for (const char* option : {"--cell-id", "--cell-type", "--db", "--peer-db", "--listen",
                             "--agentx", "--config", "--plugin", "--context", "--trace"}) {
    EXPECT_THAT(complaint({option}), HasSubstr(option));
  }
  for (const char* option :
       {"--cell-id", "--cell-type", "--db", "--peer-db", "--agentx", "--config"}) {
    EXPECT_THAT(complaint({option, "1", option, "2"}), HasSubstr(option));
  }
}

TEST(Options, RefuseAnEmptyNameOfAPlace) {
  for (const char* option :
       {"--peer-db", "--db-auth", "--listen", "--agentx", "--config", "--plugin"}) {
    EXPECT_EQ(complaint({option, ""}), std::string(option) + ": the value is empty");
  }
  EXPECT_EQ(complaint({"--config", "access.conf", "--listen", ""}), "--listen: the value is empty");
  EXPECT_EQ(complaint({"--peer-db", "redis://b", "--peer-db-auth", ""}),
            "--peer-db-auth: the value is empty");
}

TEST(Options, ExplainEachOptionWithItsDefault) {
  const std::string help = answer({"--help"});
  for (const char* text :
       {"--cell-id N", "[1]", "--cell-type TEXT", "[supervisor]", "--db URL", "[file:kavra.json]",
        "--peer-db URL", "[the same as --db]", "--listen ADDRESS", "[udp:127.0.0.1:1161]",
        "--agentx ADDRESS", "--config FILE", "--engine-id HEX", "--state-dir DIR", "--plugin FILE",
        "[the libMiscSnmp.so", "--context NAME", "--trace FACILITY=LEVEL", "--version"}) {
    EXPECT_THAT(help, HasSubstr(text));
  }
}

TEST(Options, TellTheVersion) {
  EXPECT_THAT(answer({"--version"}), testing::MatchesRegex("norvek-snmpd [0-9.]+\n"));
}

}  // namespace
}  // namespace Host
