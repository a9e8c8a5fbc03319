#include "MiscSnmpAgent/Agent.h"

#include <functional>
#include <stdexcept>
#include <utility>

#include "MiscSnmpAgent/AgentFixture.h"
#include "Qel/Exception.h"
#include "Qel/GenericIf.h"

namespace MiscSnmp::Agent {

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

// Calls back on every change of the agent's machine.
class MachineHook final : public Agent::NotifieeConst {
 public:
  MachineHook(const Qel::Ptr<Agent>& agent, std::function<void()> call)
      : Agent::NotifieeConst(Qel::NotifierReference::plain), call_(std::move(call)) {
    notifierIs(agent);
    isRegisteredNotifieeIs(true);
    hasNotificationActiveIs(true);
  }
  void onResetHistorySm() override { call_(); }

 private:
  const std::function<void()> call_;
};

}  // namespace

class AgentTest : public QuietAgentFixture {
 protected:
  Qel::Ptr<Agent> agent() {
    return Qel::make<Agent>("agent", status_, model_, history_, entityManager_, cellType_);
  }
  Qel::Ptr<ResetHistorySm> same(const Qel::Ptr<Agent>& agent) {
    return agent->resetHistorySmIs(status_, model_, history_, entityManager_, cellType_);
  }
};

using AgentDeathTest = AgentTest;

TEST_F(AgentTest, HasItsMachineSwitchedOnAsSoonAsItExists) {
  cell(1).reloaded({{"Power loss", 1}});

  const auto agent = this->agent();

  const auto& machine = agent->resetHistorySm();
  ASSERT_NE(machine, nullptr);
  EXPECT_TRUE(isOn(machine));
  EXPECT_EQ(machine->redundancyStatus(), status_);
  EXPECT_EQ(machine->generalMib(), model_);
  EXPECT_EQ(machine->curCellResetHistory(), history_);
  EXPECT_EQ(machine->entityManager(), entityManager_);
  EXPECT_EQ(machine->cellType(), "supervisor");
  EXPECT_EQ(machine->curCellResetInstanceSm().members(), 1U);
}

TEST_F(AgentTest, KnowsItsInputs) {
  const auto agent = this->agent();

  EXPECT_EQ(agent->name(), "agent");
  EXPECT_EQ(agent->redundancyStatus(), status_);
  EXPECT_EQ(agent->generalMib(), model_);
  EXPECT_EQ(agent->curCellResetHistory(), history_);
  EXPECT_EQ(agent->entityManager(), entityManager_);
  EXPECT_EQ(agent->cellType(), "supervisor");
  EXPECT_EQ(agent->parent(), nullptr);
}

TEST_F(AgentTest, KeepsTheMachineOfTheSameInputs) {
  const auto agent = this->agent();
  const auto hook = Qel::make<MachineHook>(agent, [this] { log_.note("machine"); });
  const auto machine = agent->resetHistorySm();

  EXPECT_EQ(same(agent), machine);

  EXPECT_EQ(ResetHistorySm::liveCount(), 1U);
  EXPECT_THAT(log(), IsEmpty());
}

TEST_F(AgentTest, AnyOtherInputMakesAnotherMachine) {
  const auto agent = this->agent();
  const auto hook = Qel::make<MachineHook>(agent, [this] { log_.note("machine"); });
  const auto otherStatus = Qel::make<Redundancy::RedundancyStatus>("other");
  const auto otherModel = generalMibFactory("other");
  const auto otherHistory = Qel::make<System::ResetCauseHistory>("other");
  const auto otherManager = Qel::make<Kavra::EntityManager>(feed_);
  const std::vector<std::function<Qel::Ptr<ResetHistorySm>()>> changes{
      [&] { return agent->resetHistorySmIs(otherStatus, model_, history_, entityManager_, "a"); },
      [&] { return agent->resetHistorySmIs(status_, model_, history_, entityManager_, "a"); },
      [&] { return agent->resetHistorySmIs(status_, otherModel, history_, entityManager_, "a"); },
      [&] { return agent->resetHistorySmIs(status_, model_, history_, entityManager_, "a"); },
      [&] { return agent->resetHistorySmIs(status_, model_, otherHistory, entityManager_, "a"); },
      [&] { return agent->resetHistorySmIs(status_, model_, history_, entityManager_, "a"); },
      [&] { return agent->resetHistorySmIs(status_, model_, history_, otherManager, "a"); },
      [&] { return agent->resetHistorySmIs(status_, model_, history_, entityManager_, "a"); },
      [&] { return same(agent); }};

  for (const auto& change : changes) {
    const auto earlier = agent->resetHistorySm();
    const auto machine = change();
    EXPECT_NE(machine, earlier);
    EXPECT_EQ(agent->resetHistorySm(), machine);
    EXPECT_TRUE(isOn(machine));
    // Whoever holds the old one finds it as it was.
    EXPECT_TRUE(isOn(earlier));
    EXPECT_THAT(log(), ElementsAre("machine"));
  }
  EXPECT_EQ(ResetHistorySm::liveCount(), 1U);
}

TEST_F(AgentTest, AMachineThatWatchesSomethingElseMeanwhileIsNotTheSame) {
  const auto agent = this->agent();
  const auto first = agent->resetHistorySm();
  first->redundancyStatusDel();
  const auto second = same(agent);
  EXPECT_NE(second, first);

  second->curCellResetHistoryDel();
  EXPECT_NE(same(agent), second);
}

TEST_F(AgentTest, TellsOfAMachineBeforeItIsSwitchedOn) {
  cell(1).reloaded({{"Power loss", 1}});
  const auto agent = this->agent();
  agent->resetHistorySmDel();
  log();
  const auto hook = Qel::make<MachineHook>(agent, [&] {
    EXPECT_FALSE(isOn(agent->resetHistorySm()));
    log_.note("machine");
  });

  const auto machine = same(agent);

  EXPECT_TRUE(isOn(machine));
  EXPECT_THAT(log(), ElementsAre("- 0.0.1", "- 1.0.1", "+ 0.0.1", "+ 1.0.1", "machine", "- 0.0.1",
                                 "- 1.0.1", "+ 0.0.1", "+ 1.0.1"));
}

TEST_F(AgentTest, TellsOfARemovedMachineBeforeItIsSwitchedOff) {
  const auto agent = this->agent();
  const auto machine = agent->resetHistorySm();
  const auto hook = Qel::make<MachineHook>(agent, [&] {
    EXPECT_EQ(agent->resetHistorySm(), nullptr);
    EXPECT_TRUE(isOn(machine));
    log_.note("machine");
  });

  EXPECT_EQ(agent->resetHistorySmDel(), machine);
  EXPECT_FALSE(isOn(machine));
  EXPECT_THAT(log(), ElementsAre("machine"));
  cell(1).reloaded({{"Power loss", 1}});
  EXPECT_THAT(log(), IsEmpty());

  EXPECT_EQ(agent->resetHistorySmDel(), nullptr);
  EXPECT_THAT(log(), IsEmpty());
}

TEST_F(AgentTest, AMachineThatANotifieeReplacesIsNotSwitchedOn) {
  const auto agent = this->agent();
  Qel::Ptr<ResetHistorySm> first;
  const auto hook = Qel::make<MachineHook>(agent, [&] {
    if (first) return;
    first = agent->resetHistorySm();
    agent->resetHistorySmIs(status_, model_, history_, entityManager_, "second");
  });

  agent->resetHistorySmIs(status_, model_, history_, entityManager_, "first");

  EXPECT_EQ(agent->resetHistorySm()->cellType(), "second");
  EXPECT_TRUE(isOn(agent->resetHistorySm()));
  EXPECT_FALSE(isOn(first));
}

TEST_F(AgentTest, AMachineRemovedWhileItIsSwitchedOnHearsNothingMore) {
  cell(1).reloaded({{"Power loss", 1}});
  cell(2).reloaded({{"Panic", 2}});
  peerIsReachable();
  const auto agent = this->agent();
  agent->resetHistorySmDel();
  auto hook =
      Qel::make<TableHook>(model_, [&](const ReloadCauseKey&) { agent->resetHistorySmDel(); });

  const auto removed = same(agent);

  ASSERT_EQ(agent->resetHistorySm(), nullptr);
  EXPECT_FALSE(isOn(removed));
  EXPECT_FALSE(isOn(removed->curCellResetInstanceSm()[0]));
  EXPECT_FALSE(isOn(removed->peerCellResetHistoryStatusDirMounter()));
  hook = nullptr;
  log();
  cell(1).causeIs({"Watchdog", 3});
  settle();
  EXPECT_THAT(log(), IsEmpty());
}

TEST_F(AgentTest, ANotifieeMayLetGoOfTheAgentThatTellsOfItsMachine) {
  auto agent = this->agent();
  const auto hook = Qel::make<MachineHook>(agent, [&] { agent = nullptr; });

  const auto machine = agent->resetHistorySmIs(status_, model_, history_, entityManager_, "a");

  EXPECT_EQ(Agent::liveCount(), 0U);
  EXPECT_EQ(machine->cellType(), "a");
  EXPECT_FALSE(isOn(machine));
}

TEST_F(AgentTest, ItsEndSwitchesTheMachineOff) {
  auto agent = this->agent();
  const auto machine = agent->resetHistorySm();
  const auto hook = Qel::make<MachineHook>(agent, [&] {
    EXPECT_TRUE(isOn(machine));
    log_.note("machine");
  });

  agent = nullptr;

  EXPECT_FALSE(isOn(machine));
  EXPECT_FALSE(hook->isRegisteredNotifiee());
  EXPECT_THAT(log(), ElementsAre("machine"));
  cell(1).reloaded({{"Power loss", 1}});
  EXPECT_THAT(log(), IsEmpty());
}

TEST_F(AgentTest, AMachineSetByANotifieeOfItsEndIsSwitchedOffToo) {
  auto agent = this->agent();
  Agent* const dying = agent.get();
  bool isLate = false;
  Qel::Ptr<ResetHistorySm> late;
  const auto hook = Qel::make<MachineHook>(agent, [&] {
    if (std::exchange(isLate, true)) return;
    late = dying->resetHistorySmIs(status_, model_, history_, entityManager_, "late");
    EXPECT_TRUE(isOn(late));
  });

  agent = nullptr;

  EXPECT_FALSE(isOn(late));
}

TEST_F(AgentTest, ItsEndLetsItsNotifieesGoBeforeItsInputs) {
  auto agent = this->agent();
  const auto hook = Qel::make<MachineHook>(agent, [] {});
  const auto atTheEnd = Qel::make<LastWords>(status_, [&] {
    EXPECT_FALSE(hook->isRegisteredNotifiee());
    log_.note("status");
  });
  status_ = nullptr;

  agent = nullptr;

  EXPECT_THAT(log(), ElementsAre("status"));
}

TEST_F(AgentDeathTest, AnErrorThatWouldEscapeItsEndEndsTheProcess) {
  auto agent = this->agent();
  const auto hook = Qel::make<MachineHook>(agent, [] { throw std::runtime_error("not told"); });
  EXPECT_DEATH(agent = nullptr, "not told");
}

TEST_F(AgentTest, AnErrorWhileItsMachineIsMadeLeavesNothingBehind) {
  cell(1).reloaded({{"Power loss", 1}});
  const auto hook = Qel::make<TableHook>(
      model_, [](const ReloadCauseKey&) { throw std::runtime_error("no rows"); });
  const std::ptrdiff_t before = newObjects();

  EXPECT_THROW(agent(), std::runtime_error);

  // The row that was written stays.
  EXPECT_EQ(newObjects(), before + 1);
  EXPECT_EQ(Agent::liveCount(), 0U);
  EXPECT_EQ(ResetHistorySm::liveCount(), 0U);
}

TEST_F(AgentTest, AnErrorWhileAMachineIsMadeKeepsTheOldOne) {
  const auto agent = this->agent();
  const auto machine = agent->resetHistorySm();
  cell(1).reloaded({{"Power loss", 1}});
  const auto machineHook = Qel::make<MachineHook>(agent, [this] { log_.note("machine"); });
  auto hook =
      Qel::make<TableHook>(model_, [](const ReloadCauseKey&) { throw std::runtime_error("no"); });
  log();

  EXPECT_THROW(agent->resetHistorySmIs(status_, model_, history_, entityManager_, "a"),
               std::runtime_error);

  EXPECT_EQ(agent->resetHistorySm(), machine);
  EXPECT_THAT(log(), ElementsAre("- 0.0.1"));
}

TEST_F(AgentTest, AnErrorWhileAMachineIsSwitchedOnStoresNoneAndAskingAgainMakesAGoodOne) {
  cell(1).reloaded({{"Power loss", 1}});
  const auto agent = this->agent();
  agent->resetHistorySmDel();
  auto hook = Qel::make<TableHook>(model_, [&](const ReloadCauseKey&) {
    if (agent->resetHistorySm()) throw std::runtime_error("no machine of the first reload");
  });

  EXPECT_THROW(same(agent), std::runtime_error);
  hook = nullptr;

  EXPECT_EQ(agent->resetHistorySm(), nullptr);
  EXPECT_EQ(ResetHistorySm::liveCount(), 0U);
  EXPECT_TRUE(isOn(same(agent)));
  log();
  cell(1).causeIs({"Watchdog", 3});
  EXPECT_THAT(log(), ElementsAre("- 0.0.1", "- 1.0.1", "+ 0.0.1", "+ 1.0.1", "+ 0.0.2", "+ 1.0.2"));
}

TEST_F(AgentTest, AnErrorOfWhoHearsOfAMachineStoresNoneAndAskingAgainMakesAGoodOne) {
  const auto agent = this->agent();
  agent->resetHistorySmDel();
  auto hook = Qel::make<MachineHook>(agent, [&] {
    if (agent->resetHistorySm()) throw std::runtime_error("not this one");
    log_.note("removed");
  });

  EXPECT_THROW(same(agent), std::runtime_error);

  EXPECT_THAT(log(), ElementsAre("removed"));
  EXPECT_EQ(agent->resetHistorySm(), nullptr);
  hook = nullptr;
  EXPECT_TRUE(isOn(same(agent)));
}

TEST_F(AgentTest, AMachineIsSwitchedOffAlthoughWhoHearsOfItsRemovalFails) {
  const auto agent = this->agent();
  const auto machine = agent->resetHistorySm();
  const auto hook = Qel::make<MachineHook>(agent, [] { throw std::runtime_error("no removal"); });

  EXPECT_THROW(agent->resetHistorySmDel(), std::runtime_error);

  EXPECT_EQ(agent->resetHistorySm(), nullptr);
  EXPECT_FALSE(isOn(machine));
}

TEST_F(AgentTest, OfTwoErrorsOfWhoHearsOfAMachineTheFirstIsRaised) {
  const auto agent = this->agent();
  agent->resetHistorySmDel();
  Qel::Ptr<ResetHistorySm> machine;
  const auto hook = Qel::make<MachineHook>(agent, [&] {
    if (!agent->resetHistorySm()) throw std::logic_error("nor its removal");
    machine = agent->resetHistorySm();
    throw std::runtime_error("not this one");
  });

  EXPECT_THROW(same(agent), std::runtime_error);

  EXPECT_EQ(agent->resetHistorySm(), nullptr);
  ASSERT_NE(machine, nullptr);
  EXPECT_FALSE(isOn(machine));
}

TEST_F(AgentTest, OnlyAnAgentIsWatchedByItsNotifiees) {
  const auto agent = this->agent();
  const auto hook = Qel::make<MachineHook>(agent, [this] { log_.note("machine"); });

  hook->notifierIs(status_);

  EXPECT_EQ(hook->notifier(), nullptr);
}

// ---- by name

TEST_F(AgentTest, OffersItsAttributesByName) {
  const auto agent = this->agent();
  const auto byName = Qel::genericIf(agent);

  EXPECT_EQ(byName->type().name(), "MiscSnmp::Agent::Agent");
  EXPECT_EQ(
      byName->attributeNames(),
      (std::vector<Qel::String>{"name", "redundancyStatus", "generalMib", "curCellResetHistory",
                                "entityManager", "cellType", "resetHistorySm"}));
  EXPECT_EQ(byName->attribute("name").toString(), "agent");
  EXPECT_EQ(byName->attribute("redundancyStatus").toPtr<Redundancy::RedundancyStatus>(), status_);
  EXPECT_EQ(byName->attribute("generalMib").toPtr<GeneralMib>(), model_);
  EXPECT_EQ(byName->attribute("curCellResetHistory").toPtr<System::ResetCauseHistory const>(),
            history_);
  EXPECT_EQ(byName->attribute("entityManager").toPtr<Kavra::EntityManager>(), entityManager_);
  EXPECT_EQ(byName->attribute("cellType").toString(), "supervisor");
  EXPECT_EQ(byName->attribute("resetHistorySm").toPtr<ResetHistorySm>(), agent->resetHistorySm());
}

TEST_F(AgentTest, SetsAndDeletesItsMachineByName) {
  const auto agent = this->agent();
  const auto byName = Qel::genericIf(agent);
  const Qel::Ptr<Redundancy::RedundancyStatus const> constantStatus = status_;

  const auto made = byName->attributeIs(
      "resetHistorySm", {constantStatus, model_, history_, entityManager_, "linecard"});
  EXPECT_EQ(made.toPtr<ResetHistorySm>(), agent->resetHistorySm());
  EXPECT_EQ(agent->resetHistorySm()->cellType(), "linecard");

  EXPECT_EQ(byName->attributeDel("resetHistorySm").toPtr<ResetHistorySm>(),
            made.toPtr<ResetHistorySm>());
  EXPECT_EQ(agent->resetHistorySm(), nullptr);
  EXPECT_EQ(byName->attributeDel("resetHistorySm").toPtr<ResetHistorySm>(), nullptr);
}

TEST_F(AgentTest, RefusesOtherAccessByName) {
  const auto byName = Qel::genericIf(agent());

  for (const char* attribute : {"name", "redundancyStatus", "generalMib", "curCellResetHistory",
                                "entityManager", "cellType", "other"}) {
    EXPECT_THROW(byName->attributeIs(attribute, {"x"}), Qel::OperationNotSupportedException);
    EXPECT_THROW(byName->attributeDel(attribute), Qel::OperationNotSupportedException);
  }
  EXPECT_THROW(byName->operation("resetHistorySm", {}), Qel::OperationNotSupportedException);
  EXPECT_THROW(byName->type().newObject({"agent"}), Qel::OperationNotSupportedException);
}

}  // namespace MiscSnmp::Agent
