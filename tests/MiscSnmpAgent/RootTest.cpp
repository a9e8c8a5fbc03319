#include "MiscSnmpAgent/Root.h"

#include <functional>
#include <stdexcept>
#include <utility>

#include "MiscSnmpAgent/AgentFixture.h"
#include "Qel/Dir.h"
#include "Qel/Exception.h"
#include "Qel/GenericIf.h"

namespace MiscSnmp::Agent {

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

// Calls back on every change of the root's agent.
class AgentHook final : public Root::NotifieeConst {
 public:
  AgentHook(const Qel::Ptr<Root>& root, std::function<void()> call)
      : Root::NotifieeConst(Qel::NotifierReference::plain), call_(std::move(call)) {
    notifierIs(root);
    isRegisteredNotifieeIs(true);
    hasNotificationActiveIs(true);
  }
  void onAgent() override { call_(); }

 private:
  const std::function<void()> call_;
};

}  // namespace

class RootTest : public QuietAgentFixture {
 protected:
  Qel::Ptr<Agent> agentIs(const Qel::String& cellType = "supervisor") {
    return root_->agentIs(status_, model_, history_, entityManager_, cellType);
  }
  Qel::GenericArgs inputs() const {
    return {status_, model_, Qel::Ptr<System::ResetCauseHistory const>(history_), entityManager_,
            "supervisor"};
  }

  bool isNesting_ = false;  // of a hook that acts once
  Qel::Ptr<Root> root_ = rootFactory("root");
  Qel::Ptr<AgentHook> hook_ = Qel::make<AgentHook>(root_, [this] { log_.note("agent"); });
};

using RootDeathTest = RootTest;

TEST_F(RootTest, IsMadeWithItsNameAloneAndInert) {
  EXPECT_EQ(root_->name(), "root");
  EXPECT_EQ(root_->agent(), nullptr);
  EXPECT_EQ(root_->parent(), nullptr);
  cell(1).reloaded({{"Power loss", 1}});
  EXPECT_THAT(log(), IsEmpty());
}

TEST_F(RootTest, MakesTheAgentThatItOwns) {
  const auto agent = agentIs();

  EXPECT_EQ(root_->agent(), agent);
  EXPECT_EQ(agent->name(), "MiscSnmpAgent");
  EXPECT_EQ(agent->parent(), root_.get());
  EXPECT_EQ(agent->parentAttribute(), "agent");
  EXPECT_EQ(agent->redundancyStatus(), status_);
  EXPECT_EQ(agent->generalMib(), model_);
  EXPECT_EQ(agent->curCellResetHistory(), history_);
  EXPECT_EQ(agent->entityManager(), entityManager_);
  EXPECT_EQ(agent->cellType(), "supervisor");
  EXPECT_TRUE(isOn(agent->resetHistorySm()));
  EXPECT_THAT(log(), ElementsAre("agent"));
}

TEST_F(RootTest, KeepsTheAgentOfTheSameInputs) {
  const auto agent = agentIs();
  const auto machine = agent->resetHistorySm();

  EXPECT_EQ(agentIs(), agent);

  EXPECT_EQ(agent->resetHistorySm(), machine);
  EXPECT_EQ(ResetHistorySm::liveCount(), 1U);
  EXPECT_EQ(agent->parent(), root_.get());
  EXPECT_THAT(log(), ElementsAre("agent"));
}

TEST_F(RootTest, AnotherCellTypeMakesAnotherAgentAndDetachesTheOldOne) {
  const auto earlier = agentIs();

  const auto agent = agentIs("linecard");

  EXPECT_NE(agent, earlier);
  EXPECT_EQ(earlier->parent(), nullptr);
  EXPECT_EQ(earlier->parentAttribute(), "");
  EXPECT_EQ(agent->parent(), root_.get());
  EXPECT_EQ(root_->agent(), agent);
  EXPECT_THAT(log(), ElementsAre("agent", "agent"));
}

TEST_F(RootTest, AnyOtherInputMakesAnotherAgent) {
  const auto otherStatus = Qel::make<Redundancy::RedundancyStatus>("other");
  const auto otherModel = generalMibFactory("other");
  const auto otherHistory = Qel::make<System::ResetCauseHistory>("other");
  const auto otherManager = Qel::make<Kavra::EntityManager>(feed_);
  const std::vector<std::function<Qel::Ptr<Agent>()>> changes{
      [&] { return root_->agentIs(otherStatus, model_, history_, entityManager_, cellType_); },
      [&] { return agentIs(); },
      [&] { return root_->agentIs(status_, otherModel, history_, entityManager_, cellType_); },
      [&] { return agentIs(); },
      [&] { return root_->agentIs(status_, model_, otherHistory, entityManager_, cellType_); },
      [&] { return agentIs(); },
      [&] { return root_->agentIs(status_, model_, history_, otherManager, cellType_); },
      [&] { return agentIs(); }};

  agentIs();
  for (const auto& change : changes) {
    const auto earlier = root_->agent();
    EXPECT_NE(change(), earlier);
    EXPECT_EQ(earlier->parent(), nullptr);
  }
}

TEST_F(RootTest, IsTheParentBeforeAnybodyIsTold) {
  const auto hook = Qel::make<AgentHook>(root_, [this] {
    ASSERT_NE(root_->agent(), nullptr);
    EXPECT_EQ(root_->agent()->parent(), root_.get());
    EXPECT_TRUE(isOn(root_->agent()->resetHistorySm()));
    log_.note("looked");
  });
  agentIs();
  EXPECT_THAT(log(), ElementsAre("agent", "looked"));
}

TEST_F(RootTest, AnAgentReplacedAThousandTimesLeavesOneOfEachKind) {
  cell(1).reloaded({{"Power loss", 1}});
  cell(2).reloaded({{"Panic", 2}});
  peerIsReachable();
  agentIs("supervisor");
  settle();
  const std::ptrdiff_t before = newObjects();

  for (int i = 0; i < 500; ++i) {
    agentIs("linecard");
    settle();
    agentIs("supervisor");
    settle();
  }

  EXPECT_EQ(newObjects(), before);
  EXPECT_EQ(Agent::liveCount(), 1U);
  EXPECT_EQ(ResetHistorySm::liveCount(), 1U);
  EXPECT_EQ(ResetInstanceSm::liveCount(), 2U);
  EXPECT_EQ(PeerCellResetHistoryStatusDirMounter::liveCount(), 1U);
  EXPECT_THAT(rows(), ElementsAre("0.0.1 Power loss @1", "1.0.1 Power loss @1", "2.0.1 Panic @2"));
  log();
  cell(1).causeIs({"Watchdog", 3});
  EXPECT_THAT(log(), ElementsAre("- 0.0.1", "- 1.0.1", "+ 0.0.1", "+ 1.0.1", "+ 0.0.2", "+ 1.0.2"));
  cell(2).causeIs({"Watchdog", 3});
  EXPECT_THAT(log(), ElementsAre("- 2.0.1", "+ 2.0.1", "+ 2.0.2"));
}

TEST_F(RootTest, AReplacedMachineNeverWritesAgain) {
  cell(2).reloaded({{"Panic", 2}});
  protocolIs(kProtocolWithPeer);
  switchoverCapableIs(true);
  agentIs("supervisor");  // its mount is under way
  agentIs("linecard");
  root_->agentDel();
  log();

  settle();
  cell(1).reloaded({{"Power loss", 1}});
  cell(2).causeIs({"Watchdog", 3});
  protocolIs(kProtocolWithoutPeer);

  EXPECT_THAT(log(), IsEmpty());
}

TEST_F(RootTest, AnAgentSetWhileAnotherIsMadeLosesItsParentToIt) {
  cell(1).reloaded({{"Power loss", 1}});
  Qel::Ptr<Agent> nested;
  const auto hook = Qel::make<TableHook>(model_, [&](const ReloadCauseKey&) {
    if (!std::exchange(isNesting_, true)) nested = agentIs("nested");
  });

  const auto agent = agentIs();

  EXPECT_EQ(root_->agent(), agent);
  EXPECT_EQ(agent->parent(), root_.get());
  EXPECT_EQ(nested->parent(), nullptr);
  EXPECT_EQ(nested->parentAttribute(), "");
}

TEST_F(RootTest, ANotifieeMayLetGoOfTheRootWhileItsAgentIsMade) {
  cell(1).reloaded({{"Power loss", 1}});
  const auto hook =
      Qel::make<TableHook>(model_, [this](const ReloadCauseKey&) { root_ = nullptr; });

  const auto agent = agentIs();

  EXPECT_EQ(root_, nullptr);
  EXPECT_FALSE(hook_->isRegisteredNotifiee());
  EXPECT_EQ(agent->parent(), nullptr);
}

TEST_F(RootTest, AnAgentReplacedInsideItsRebuildIsOverwrittenUntilTheNextChange) {
  cell(1).reloaded({{"Power loss", 1}});
  agentIs("supervisor");
  const auto hook = Qel::make<TableHook>(model_, [this](const ReloadCauseKey&) {
    if (!std::exchange(isNesting_, true)) agentIs("linecard");
  });

  cell(1).causeIs({"Watchdog", 3});
  EXPECT_THAT(rows(), ElementsAre("0.0.1 Power loss @1", "0.0.2 Watchdog @3", "1.0.1 Power loss @1",
                                  "1.0.2 Watchdog @3"));
  EXPECT_EQ(ResetHistorySm::liveCount(), 1U);

  cell(1).causeIs({"Panic", 4});
  EXPECT_THAT(rows(), ElementsAre("0.0.1 Power loss @1", "0.0.2 Watchdog @3", "0.0.3 Panic @4"));
}

TEST_F(RootTest, AnAgentReplacedInsideItsRebuildRaisesWhereTheNewOneShowsAnotherReload) {
  cell(1).reloaded({{"Power loss", 1}});
  agentIs();
  const auto other = Qel::make<System::ResetCauseHistory>("other");
  const auto reload = other->rebootHistoryIs(0);
  reload->causeQPush({"Panic", 4});
  const auto hook = Qel::make<TableHook>(model_, [&](const ReloadCauseKey&) {
    if (std::exchange(isNesting_, true)) return;
    root_->agentIs(status_, model_, other, entityManager_, cellType_);
  });

  EXPECT_THROW(cell(1).causeIs({"Watchdog", 3}), Qel::NameInUseException);
  EXPECT_EQ(ResetHistorySm::liveCount(), 1U);

  reload->causeQPush({"Watchdog", 5});
  EXPECT_THAT(rows(), ElementsAre("0.0.1 Panic @4", "0.0.2 Watchdog @5", "1.0.1 Panic @4",
                                  "1.0.2 Watchdog @5"));
}

TEST_F(RootTest, RemovesTheAgent) {
  const auto agent = agentIs();
  log();
  const auto hook = Qel::make<AgentHook>(root_, [&] {
    EXPECT_EQ(root_->agent(), nullptr);
    EXPECT_EQ(agent->parent(), nullptr);
  });

  EXPECT_EQ(root_->agentDel(), agent);

  EXPECT_EQ(agent->parentAttribute(), "");
  EXPECT_THAT(log(), ElementsAre("agent"));
}

TEST_F(RootTest, WithoutAnAgentThereIsNothingToRemove) {
  EXPECT_EQ(root_->agentDel(), nullptr);
  EXPECT_THAT(log(), IsEmpty());
}

TEST_F(RootTest, ItsEndTellsOfTheAgentAndSwitchesTheMachineOff) {
  const auto machine = agentIs()->resetHistorySm();
  log();

  root_ = nullptr;

  EXPECT_THAT(log(), ElementsAre("agent"));
  EXPECT_FALSE(isOn(machine));
  EXPECT_EQ(Agent::liveCount(), 0U);
  EXPECT_FALSE(hook_->isRegisteredNotifiee());
}

TEST_F(RootTest, ItsEndDetachesAnAgentThatIsHeld) {
  const auto agent = agentIs();

  root_ = nullptr;

  EXPECT_EQ(agent->parent(), nullptr);
  EXPECT_TRUE(isOn(agent->resetHistorySm()));
}

TEST_F(RootTest, AnAgentSetByANotifieeOfItsEndIsDetachedToo) {
  agentIs();
  Root* const dying = root_.get();
  Qel::Ptr<Agent> late;
  const auto hook = Qel::make<AgentHook>(root_, [&] {
    if (!std::exchange(isNesting_, true)) {
      late = dying->agentIs(status_, model_, history_, entityManager_, "late");
    }
  });

  log();

  root_ = nullptr;

  EXPECT_EQ(late->cellType(), "late");
  EXPECT_EQ(late->parent(), nullptr);
  // Told of the old one's end and of the late one; of its end nobody is left to hear.
  EXPECT_THAT(log(), ElementsAre("agent", "agent"));
}

TEST_F(RootDeathTest, AnErrorThatWouldEscapeItsEndEndsTheProcess) {
  agentIs();
  const auto hook = Qel::make<AgentHook>(root_, [] { throw std::runtime_error("not told"); });
  EXPECT_DEATH(root_ = nullptr, "not told");
}

TEST_F(RootTest, AnErrorWhileTheAgentIsMadeStoresNothingAndTellsNobody) {
  cell(1).reloaded({{"Power loss", 1}});
  const auto hook = Qel::make<TableHook>(
      model_, [](const ReloadCauseKey&) { throw std::runtime_error("no rows"); });

  EXPECT_THROW(agentIs(), std::runtime_error);

  EXPECT_EQ(root_->agent(), nullptr);
  EXPECT_EQ(Agent::liveCount(), 0U);
  EXPECT_EQ(ResetHistorySm::liveCount(), 0U);
  EXPECT_THAT(log(), ElementsAre("+ 0.0.1"));
}

TEST_F(RootTest, AnErrorWhileTheAgentIsReplacedKeepsTheOldOneDetached) {
  const auto earlier = agentIs();
  entityManager_ = nullptr;
  status_->protocolIs(kProtocolWithPeer);
  log();

  EXPECT_THROW(agentIs(), Qel::RangeException);

  EXPECT_EQ(root_->agent(), earlier);
  EXPECT_EQ(earlier->parent(), nullptr);
  EXPECT_THAT(log(), IsEmpty());
}

TEST_F(RootTest, OnlyARootIsWatchedByItsNotifiees) {
  hook_->notifierIs(status_);
  EXPECT_EQ(hook_->notifier(), nullptr);
}

// ---- by name

TEST_F(RootTest, IsFoundByTypeAndMadeByName) {
  const Qel::TypeNode* type = Qel::typeNode("MiscSnmp::Agent::Root");
  ASSERT_NE(type, nullptr);

  const auto made = Qel::ptrCast<Root>(type->newObject({"another"}));

  ASSERT_NE(made, nullptr);
  EXPECT_EQ(made->name(), "another");
  EXPECT_EQ(made->fwkType(), type);
  EXPECT_THROW(type->newObject({}), Qel::RangeException);
  EXPECT_THROW(type->newObject({"a", "b"}), Qel::RangeException);
  EXPECT_THROW(type->newObject({7U}), Qel::TypeException);
}

TEST_F(RootTest, IsMadeForADirectory) {
  const auto dir = Qel::make<Qel::Dir>("dir");

  const auto made = dir->newEntityIs("MiscSnmp::Agent::Root", "root");

  EXPECT_NE(Qel::ptrCast<Root>(made), nullptr);
  EXPECT_EQ(made->name(), "root");
  EXPECT_EQ(dir->entity("root"), made);
}

TEST_F(RootTest, ReadsSetsAndDeletesItsAgentByName) {
  const auto byName = Qel::genericIf(root_);
  EXPECT_EQ(byName->attributeNames(), (std::vector<Qel::String>{"name", "agent"}));
  EXPECT_EQ(byName->attribute("name").toString(), "root");
  EXPECT_EQ(byName->attribute("agent").toPtr<Agent>(), nullptr);

  const auto made = byName->attributeIs("agent", inputs()).toPtr<Agent>();
  EXPECT_EQ(made, root_->agent());
  EXPECT_EQ(made, agentIs());
  EXPECT_EQ(byName->attribute("agent").toPtr<Agent>(), made);
  EXPECT_THAT(log(), ElementsAre("agent"));

  EXPECT_EQ(byName->attributeDel("agent").toPtr<Agent>(), made);
  EXPECT_EQ(root_->agent(), nullptr);
  EXPECT_EQ(byName->attributeDel("agent").toPtr<Agent>(), nullptr);
}

TEST_F(RootTest, RefusesAWrongNumberOrTypeOfInputsByName) {
  const auto byName = Qel::genericIf(root_);

  Qel::GenericArgs args = inputs();
  args.pop_back();
  EXPECT_THROW(byName->attributeIs("agent", args), Qel::RangeException);
  args.emplace_back("supervisor");
  args.emplace_back("more");
  try {
    byName->attributeIs("agent", args);
    FAIL() << "no error";
  } catch (const Qel::RangeException& error) {
    EXPECT_STREQ(error.what(), "expected 5 arguments but found 6");
  }
  for (std::size_t i = 0; i < 5; ++i) {
    args = inputs();
    args[i] = Qel::GenericValue(true);
    EXPECT_THROW(byName->attributeIs("agent", args), Qel::TypeException);
    args[i] = Qel::GenericValue(root_);
    EXPECT_THROW(byName->attributeIs("agent", args), Qel::TypeException);
  }
  // The status of an agent is not a constant one.
  args = inputs();
  args[0] = Qel::GenericValue(Qel::Ptr<Redundancy::RedundancyStatus const>(status_));
  EXPECT_THROW(byName->attributeIs("agent", args), Qel::TypeException);

  EXPECT_EQ(root_->agent(), nullptr);
  EXPECT_THAT(log(), IsEmpty());
}

TEST_F(RootTest, RefusesOtherAccessByName) {
  const auto byName = Qel::genericIf(root_);

  EXPECT_THROW(byName->attributeIs("name", {"other"}), Qel::OperationNotSupportedException);
  EXPECT_THROW(byName->attributeDel("name"), Qel::OperationNotSupportedException);
  EXPECT_THROW(byName->attribute("other"), Qel::OperationNotSupportedException);
  EXPECT_THROW(byName->operation("agentIs", inputs()), Qel::OperationNotSupportedException);
}

}  // namespace MiscSnmp::Agent
