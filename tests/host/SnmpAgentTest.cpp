#include "host/SnmpAgent.h"

#include <arpa/inet.h>
#include <gmock/gmock.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "host/Errors.h"
#include "host/Log.h"

namespace Host {
namespace {

// A file name that belongs to the running test.
std::string fileOfTest() {
  const auto* test = testing::UnitTest::GetInstance()->current_test_info();
  std::string name = std::string(test->test_suite_name()) + "-" + test->name() + ".conf";
  std::replace(name.begin(), name.end(), '/', '-');
  return name;
}

// Not every machine has an id that one could be derived from.
constexpr char kEngineId[] = "\x80\x01\x02\x03\x04\x05";

// net-snmp starts once a process: each agent lives in a child that runs nothing else, and whose
// last words are its standard error and exit status.
class SnmpAgentTest : public testing::Test {
 protected:
  SnmpAgentTest() { testing::GTEST_FLAG(death_test_style) = "threadsafe"; }
  ~SnmpAgentTest() override {
    std::filesystem::remove(file_);
    std::filesystem::remove_all(state_);
  }

  void configuration(const std::string& text) {
    std::ofstream(file_) << text;
    options_.configurationFile = file_;
  }
  void startsAreCounted() {
    std::filesystem::create_directory(state_);
    options_.stateDirectory = state_;
  }
  // Starts an agent and ends it again; exit status 0 when nothing stood in the way.
  [[noreturn]] void startAndExit() {
    int status = 0;
    try {
      SnmpAgent agent(options_, "test");
      agent.listenAt(options_.listenAddresses);
    } catch (const StartError& error) {
      logLine(error.what());
      status = 1;
    }
    std::exit(status);
  }

  const std::string file_ = fileOfTest();
  const std::string state_ = file_ + ".state";
  Options options_ = readOptions({"--listen", "udp:127.0.0.1:0"});
};

// A UDP port of 127.0.0.1 that somebody has taken.
class TakenPort {
 public:
  TakenPort() : socket_(::socket(AF_INET, SOCK_DGRAM, 0)) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    auto* generic = reinterpret_cast<sockaddr*>(&address);
    socklen_t size = sizeof address;
    EXPECT_EQ(::bind(socket_, generic, size), 0);
    EXPECT_EQ(::getsockname(socket_, generic, &size), 0);
    port_ = ntohs(address.sin_port);
  }
  TakenPort(const TakenPort&) = delete;
  TakenPort& operator=(const TakenPort&) = delete;
  ~TakenPort() { ::close(socket_); }

  std::string address() const { return "udp:127.0.0.1:" + std::to_string(port_); }

 private:
  int socket_;
  int port_ = 0;
};

TEST_F(SnmpAgentTest, StartsAndEndsWithoutAWord) {
  EXPECT_EXIT(startAndExit(), testing::ExitedWithCode(0), "^$");
}

TEST_F(SnmpAgentTest, NamesAnAddressThatIsTaken) {
  const TakenPort port;
  options_.listenAddresses = {port.address()};
  EXPECT_EXIT(startAndExit(), testing::ExitedWithCode(1),
              "^norvek-snmpd: cannot listen on udp:127.0.0.1:[0-9]+: Address already in use\n$");
}

TEST_F(SnmpAgentTest, NamesAnAddressThatIsNone) {
  options_.listenAddresses = {"udp:127.0.0.1:99999"};
  EXPECT_EXIT(startAndExit(), testing::ExitedWithCode(1),
              "^norvek-snmpd: cannot listen on udp:127.0.0.1:99999: not an address\n$");
}

TEST_F(SnmpAgentTest, TakesUsersViewsAndCommunitiesFromAFile) {
  configuration(
      "createUser reader SHA-256 \"a long passphrase\"\n"
      "rouser reader auth -V all\n"
      "view all included .1\n"
      "rocommunity secret 127.0.0.1\n"
      "sysLocation rack 3\n");
  startsAreCounted();
  options_.engineId = kEngineId;
  EXPECT_EXIT(startAndExit(), testing::ExitedWithCode(0), "^$");
}

TEST_F(SnmpAgentTest, TellsWhatItCostsToCountItsStartsNowhere) {
  configuration("createUser reader SHA-256 \"a long passphrase\"\nrouser reader auth\n");
  options_.engineId = kEngineId;
  EXPECT_EXIT(startAndExit(), testing::ExitedWithCode(0),
              "^norvek-snmpd: no --state-dir: SNMPv3 managers refuse [^\n]*clock[^\n]*\n$");
  options_.stateDirectory = "/nonexistent";
  EXPECT_EXIT(startAndExit(), testing::ExitedWithCode(0),
              "^norvek-snmpd: /nonexistent/engine-boots-1: No such file or directory: SNMPv3 "
              "managers refuse [^\n]*\n$");
}

TEST_F(SnmpAgentTest, RefusesTwoEngineIds) {
  options_.engineId = "\x80\1\2\3\4";
  startsAreCounted();
  configuration("rocommunity secret 127.0.0.1\nexactEngineID 0x8001020305\n");
  EXPECT_EXIT(startAndExit(), testing::ExitedWithCode(1), "engineID is not that of --engine-id\n$");
  configuration("rocommunity secret 127.0.0.1\nexactEngineID 0x8001020304\n");
  EXPECT_EXIT(startAndExit(), testing::ExitedWithCode(0), "^$");
}

TEST_F(SnmpAgentTest, NamesAFileThatItCannotRead) {
  options_.configurationFile = "/nonexistent/access.conf";
  EXPECT_EXIT(startAndExit(), testing::ExitedWithCode(1),
              "^norvek-snmpd: /nonexistent/access.conf: No such file or directory\n$");
  options_.configurationFile = "/";
  EXPECT_EXIT(startAndExit(), testing::ExitedWithCode(1), "^norvek-snmpd: /: Is a directory\n$");
}

struct BadLine {
  const char* text;
  const char* complaint;
};

class BadConfigurationTest : public SnmpAgentTest, public testing::WithParamInterface<BadLine> {};

TEST_P(BadConfigurationTest, EndsTheStartWithOneLineThatNamesThePlace) {
  configuration(std::string("rocommunity secret 127.0.0.1\n") + GetParam().text + "\n");
  EXPECT_EXIT(startAndExit(), testing::ExitedWithCode(1),
              "^norvek-snmpd: " + file_ + ": " + GetParam().complaint + "[^\n]*\n$");
}

INSTANTIATE_TEST_SUITE_P(
    Lines, BadConfigurationTest,
    testing::Values(BadLine{"rocomunity secret", "line 2: Warning: Unknown token: rocomunity"},
                    BadLine{"view all", "line 2: Error: "},
                    BadLine{"rocommunity", "line 2: Error: "},
                    BadLine{"createUser u MD17 \"long enough\"", "line 2: Error: "},
                    BadLine{"createUser u SHA short", "Error: passphrase chosen is below"},
                    BadLine{"sysServices many", "line 2: Error: sysServices is not a number"},
                    BadLine{"sysServices 128", "line 2: Error: sysServices is not a number"},
                    BadLine{"agentaddress udp:161", "line 2: Error: agentaddress: .*--listen"},
                    BadLine{"AgentAddress udp:161", "line 2: Error: AgentAddress: .*--listen"},
                    BadLine{"master agentx", "line 2: Error: master: "}));

INSTANTIATE_TEST_SUITE_P(
    WhatIsNotObeyed, BadConfigurationTest,
    testing::Values(BadLine{"agentuser nobody", "line 2: Error: agentuser: "},
                    BadLine{"agentgroup nogroup", "line 2: Error: agentgroup: "},
                    BadLine{"quit yes", "line 2: Error: quit: "},
                    BadLine{"leave_pidfile yes", "line 2: Error: leave_pidfile: "},
                    BadLine{"agentXSocket /x", "line 2: Error: agentXSocket: .*--agentx"},
                    BadLine{"agentXPerms 0770", "line 2: Error: agentXPerms: "},
                    BadLine{"agentXTimeout 1", "line 2: Error: agentXTimeout: "},
                    BadLine{"agentXRetries 1", "line 2: Error: agentXRetries: "},
                    BadLine{"perl print 1;", "line 2: Error: perl: "},
                    BadLine{"perlInitFile /x", "line 2: Error: perlInitFile: "},
                    BadLine{"disablePerl yes", "line 2: Error: disablePerl: "},
                    BadLine{"pduStatsMax 10", "line 2: Error: pduStatsMax: "},
                    BadLine{"pduStatsThreshold 10", "line 2: Error: pduStatsThreshold: "},
                    BadLine{"injectHandler debug x", "line 2: Error: injectHandler: "},
                    BadLine{"certSecName 10 AA:BB --sn u", "line 2: Error: certSecName: "},
                    BadLine{"snmpTlstmParams p sha1:aa", "line 2: Error: snmpTlstmParams: "},
                    BadLine{"snmpTlstmAddr a sha1:aa b", "line 2: Error: snmpTlstmAddr: "},
                    BadLine{"engineBoots 5", "line 2: Error: engineBoots: "},
                    BadLine{"vacmView 1", "line 2: Error: vacmView: "},
                    BadLine{"vacmGroup 1", "line 2: Error: vacmGroup: "},
                    BadLine{"vacmAccess 1", "line 2: Error: vacmAccess: "},
                    BadLine{"usmUser 1", "line 2: Error: usmUser: "},
                    BadLine{"oldEngineID 0x8000000001", "line 2: Error: oldEngineID: "},
                    BadLine{"engineIDType 3", "line 2: Error: engineIDType: .*--engine-id"},
                    BadLine{"engineIDNic eth0", "line 2: Error: engineIDNic: .*--engine-id"},
                    BadLine{"[snmp] persistentDir /tmp", "line 2: Error: persistentDir: "},
                    BadLine{"[snmp] noPersistentSave no", "line 2: Error: noPersistentSave: "},
                    BadLine{"[snmp] noPersistentLoad no", "line 2: Error: noPersistentLoad: "},
                    BadLine{"[snmp] mibs ALL", "line 2: Error: mibs: "},
                    BadLine{"[snmp] mibdirs /tmp", "line 2: Error: mibdirs: "},
                    BadLine{"[snmp] mibfile /tmp/x", "line 2: Error: mibfile: "},
                    BadLine{"[snmp] noTokenWarnings yes", "line 2: Error: noTokenWarnings: "}));

TEST_F(SnmpAgentTest, RefusesAFileThatLetsNobodyIn) {
  configuration("sysLocation rack 3\n");
  EXPECT_EXIT(startAndExit(), testing::ExitedWithCode(1),
              "^norvek-snmpd: " + file_ + ": lets nobody in[^\n]*\n$");
}

TEST_F(SnmpAgentTest, RefusesATextThatIsTooLongForItsScalar) {
  configuration("rocommunity secret 127.0.0.1\nsysLocation " + std::string(256, 'x') + "\n");
  EXPECT_EXIT(startAndExit(), testing::ExitedWithCode(1), "line 2: Error: sysLocation is longer");
}

TEST_F(SnmpAgentTest, GoesOnTryingToReachItsMaster) {
  options_ = readOptions({"--agentx", "unix:/nonexistent/master"});
  EXPECT_EXIT(startAndExit(), testing::ExitedWithCode(0),
              "^norvek-snmpd: no AgentX master answers at unix:/nonexistent/master; it is asked "
              "again every 2 s\n$");
}

}  // namespace
}  // namespace Host
