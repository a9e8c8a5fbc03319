#include "host/EngineId.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <string>

namespace Host {
namespace {

using namespace std::string_literals;

constexpr auto kMachine = "0123456789abcdef0123456789abcdef";

// The enterprise's prefix and what `openssl dgst -mac HMAC` says of the machine and the cell.
TEST(EngineId, IsDerivedFromTheMachineAndTheCell) {
  EXPECT_EQ(engineIdOf(kMachine, 1), engineIdOfHex("80007ed98058cbd69c3f8412201cb1456c6980dc71"));
  EXPECT_EQ(engineIdOf(kMachine, 2), engineIdOfHex("80007ed980ae348eaf5c5f1a834b6f1b22e6f967ed"));
}

TEST(EngineId, IsNotDerivedFromWhatIsNoMachinesId) {
  for (const std::string& text : {""s, "uninitialized"s, std::string(kMachine) + "0",
                                  std::string(32, '0'), std::string(31, '1') + "x"}) {
    EXPECT_EQ(engineIdOf(text, 1), std::nullopt) << text;
  }
}

TEST(EngineId, HasFiveTo32Octets) {
  EXPECT_EQ(engineIdOfHex("0x8000000001"), "\x80\0\0\0\1"s);
  EXPECT_EQ(engineIdOfHex("80000000aF"), "\x80\0\0\0\xaf"s);
  EXPECT_EQ(engineIdOfHex(std::string(64, '8')), std::string(32, '\x88'));
  for (const std::string& text : {""s, "0x"s, "80000000"s, "800000000"s, "80000000g1"s,
                                  std::string(66, '8'), std::string(24, '0'), "ffffffffff"s}) {
    EXPECT_EQ(engineIdOfHex(text), std::nullopt) << text;
  }
}

TEST(EngineId, ReadsTheMachinesIdWithoutItsLineEnd) {
  const auto file = "EngineIdTest.machine-id";
  std::ofstream(file) << kMachine << '\n';
  EXPECT_EQ(machineIdIn(file), kMachine);
  std::remove(file);
  EXPECT_EQ(machineIdIn(file), "");
}

}  // namespace
}  // namespace Host
