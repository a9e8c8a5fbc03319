// What the factories and mutators of the agent make of a lack of memory.
#include <cstddef>
#include <functional>
#include <limits>
#include <new>

#include "MiscSnmpAgent/AgentFixture.h"
#include "MiscSnmpAgent/Root.h"
#include "Qel/ActivityManager.h"
#include "Qel/Exception.h"

namespace {
int objectsLeft = std::numeric_limits<int>::max();
}  // namespace

extern "C" {
// The linker puts this in the place of the allocations that answer null when memory is out.
void* __real__ZnwmRKSt9nothrow_t(std::size_t size, const std::nothrow_t& tag);
void* __wrap__ZnwmRKSt9nothrow_t(std::size_t size, const std::nothrow_t& tag);
void* __wrap__ZnwmRKSt9nothrow_t(std::size_t size, const std::nothrow_t& tag) {
  return objectsLeft-- <= 0 ? nullptr : __real__ZnwmRKSt9nothrow_t(size, tag);
}
}

namespace MiscSnmp::Agent {

class OutOfMemory : public QuietAgentFixture {
 protected:
  ~OutOfMemory() override { objectsLeft = std::numeric_limits<int>::max(); }

  // The error of `work` when there is memory for `most` more objects.
  static std::string errorWith(int most, const std::function<void()>& work) {
    objectsLeft = most;
    std::string text = "no error";
    try {
      work();
    } catch (const Qel::RangeException& error) {
      text = error.what();
    }
    objectsLeft = std::numeric_limits<int>::max();
    return text;
  }
};

TEST_F(OutOfMemory, ARootWithoutMemoryIsRefused) {
  EXPECT_EQ(errorWith(0, [] { rootFactory("root"); }), "null ValidPtr");
}

TEST_F(OutOfMemory, AnAgentWithoutMemoryForItAndItsMachineIsRefusedAndNotStored) {
  const auto root = rootFactory("root");
  const auto agentIs = [&] {
    root->agentIs(status_, model_, history_, entityManager_, "supervisor");
  };

  for (const int most : {0, 1}) {
    EXPECT_EQ(errorWith(most, agentIs), "null ValidPtr");
    EXPECT_EQ(root->agent(), nullptr);
    EXPECT_EQ(Agent::liveCount(), 0U);
  }
  EXPECT_EQ(errorWith(2, agentIs), "no error");
}

TEST_F(OutOfMemory, AMachineWithoutMemoryIsRefusedAndTheOldOneKept) {
  const auto root = rootFactory("root");
  const auto agent = root->agentIs(status_, model_, history_, entityManager_, "supervisor");
  const auto machine = agent->resetHistorySm();

  EXPECT_EQ(
      errorWith(0,
                [&] { agent->resetHistorySmIs(status_, model_, history_, entityManager_, "a"); }),
      "null ValidPtr");
  EXPECT_EQ(agent->resetHistorySm(), machine);
}

TEST_F(OutOfMemory, InstanceMachinesAndMountersWithoutMemoryAreRefusedAndNotStored) {
  const auto machine = made();

  EXPECT_EQ(errorWith(0, [&] { machine->curCellResetInstanceSmIs(0, nullptr, machine); }),
            "null ValidPtr");
  EXPECT_EQ(errorWith(0, [&] { machine->peerCellResetInstanceSmIs(0, nullptr, machine); }),
            "null ValidPtr");
  EXPECT_EQ(errorWith(0, [&] { protocolIs(kProtocolWithPeer); }), "no error");
  EXPECT_EQ(errorWith(0, [&] { machine->handleRedundancyProtocol(); }), "null ValidPtr");

  EXPECT_TRUE(machine->curCellResetInstanceSm().empty());
  EXPECT_TRUE(machine->peerCellResetInstanceSm().empty());
  EXPECT_EQ(machine->peerCellResetHistoryStatusDirMounter(), nullptr);
}

TEST_F(OutOfMemory, APresentMounterStaysWhenThereIsNoMemoryForAnother) {
  protocolIs(kProtocolWithPeer);
  const auto machine = made();

  EXPECT_EQ(errorWith(0,
                      [&] {
                        machine->peerCellResetHistoryStatusDirMounterIs(
                            "", "elsewhere", entityManager_, Qel::activityManager()->clock(),
                            machine);
                      }),
            "null ValidPtr");

  EXPECT_EQ(machine->peerCellResetHistoryStatusDirMounter()->path(), "cell/2/sys/reset/history");
}

}  // namespace MiscSnmp::Agent
