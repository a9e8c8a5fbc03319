#include "Qel/NotifieeList.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

#include "Qel/NotifieeConst.h"
#include "Qel/Ptr.h"
#include "support/LiveObjects.h"

namespace {

using Qel::make;
using Qel::NotifierReference;
using Qel::Ptr;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::ThrowsMessage;

class Notifier : public Qel::PtrInterface {
 public:
  Qel::NotifieeList* notifieeList() const override { return &list_; }
  void zeroReferencesIs(bool) override { list_.zeroReferences(); }
  void changed();
  Qel::NotifieeList& list() const { return list_; }

 private:
  mutable Qel::NotifieeList list_;
};

// Writes its name into the log, then does what the test wants.
class Notifiee : public Qel::PtrInterface::NotifieeConst {
 public:
  Notifiee(std::string name, std::vector<std::string>& log, NotifierReference reference)
      : NotifieeConst(reference), name_(std::move(name)), log_(log) {}
  void onChange() {
    log_.push_back(name_);
    // A copy: a reaction may set the next one.
    if (const auto reaction = react) reaction();
  }
  void onZeroReferences() override { log_.push_back(name_ + " hears the end"); }

  std::function<void()> react;

 private:
  const std::string name_;
  std::vector<std::string>& log_;
};

void Notifier::changed() {
  list_.visitAs<Notifiee>([](Notifiee& notifiee) { notifiee.onChange(); });
}

class NotifieeListTest : public support::LiveObjectsTest {
 protected:
  void SetUp() override {
    a_ = joined("a");
    b_ = joined("b");
    c_ = joined("c");
  }
  Ptr<Notifiee> joined(const std::string& name,
                       NotifierReference reference = NotifierReference::counted) {
    auto notifiee = make<Notifiee>(name, log_, reference);
    notifiee->notifierIs(notifier_);
    notifiee->hasNotificationActiveIs(true);
    notifiee->isRegisteredNotifieeIs(true);
    return notifiee;
  }
  // What the next notification calls.
  std::vector<std::string> change() {
    log_.clear();
    notifier_->changed();
    return log_;
  }

  std::vector<std::string> log_;
  Ptr<Notifier> notifier_ = make<Notifier>();
  Ptr<Notifiee> a_;
  Ptr<Notifiee> b_;
  Ptr<Notifiee> c_;
  Ptr<Notifiee> d_;
};

TEST_F(NotifieeListTest, CallsEveryoneInTheOrderOfJoining) {
  EXPECT_THAT(change(), ElementsAre("a", "b", "c"));
  EXPECT_EQ(notifier_->list().size(), 3U);
}

TEST_F(NotifieeListTest, PassesOverThoseThatAreSwitchedOff) {
  b_->hasNotificationActiveIs(false);
  EXPECT_THAT(change(), ElementsAre("a", "c"));
  b_->hasNotificationActiveIs(true);
  EXPECT_THAT(change(), ElementsAre("a", "b", "c"));
}

TEST_F(NotifieeListTest, PassesOverZombies) {
  b_->qelDoZombieReactors(true);
  EXPECT_THAT(change(), ElementsAre("a", "c"));
}

TEST_F(NotifieeListTest, AZombieThatIsSwitchedOnHearsNothing) {
  b_->qelDoZombieReactors(true);
  b_->hasNotificationActiveIs(true);
  EXPECT_THAT(change(), ElementsAre("a", "c"));
}

TEST_F(NotifieeListTest, PassesOverObserversOfAnotherType) {
  class Unrelated : public Qel::PtrInterface::NotifieeConst {};
  const auto other = make<Unrelated>();
  other->notifierIs(notifier_);
  other->hasNotificationActiveIs(true);
  other->isRegisteredNotifieeIs(true);
  EXPECT_EQ(notifier_->list().size(), 4U);
  EXPECT_THAT(change(), ElementsAre("a", "b", "c"));
}

TEST_F(NotifieeListTest, OneMayLeaveInItsOwnCall) {
  b_->react = [this] { b_->isRegisteredNotifieeIs(false); };
  EXPECT_THAT(change(), ElementsAre("a", "b", "c"));
  EXPECT_THAT(change(), ElementsAre("a", "c"));
}

TEST_F(NotifieeListTest, OneThatLeavesBeforeItsTurnIsNotCalled) {
  a_->react = [this] { b_->isRegisteredNotifieeIs(false); };
  EXPECT_THAT(change(), ElementsAre("a", "c"));
  EXPECT_EQ(notifier_->list().size(), 2U);
}

TEST_F(NotifieeListTest, OneThatLeavesAfterItsTurnDisturbsNobody) {
  b_->react = [this] { a_->isRegisteredNotifieeIs(false); };
  EXPECT_THAT(change(), ElementsAre("a", "b", "c"));
  EXPECT_THAT(change(), ElementsAre("b", "c"));
}

TEST_F(NotifieeListTest, OneMayDieInItsOwnCall) {
  b_->react = [this] { b_ = nullptr; };
  EXPECT_THAT(change(), ElementsAre("a", "b", "c"));
  EXPECT_EQ(b_, nullptr);
  EXPECT_THAT(change(), ElementsAre("a", "c"));
}

TEST_F(NotifieeListTest, OneThatDiesBeforeItsTurnIsNotCalled) {
  a_->react = [this] { b_ = c_ = nullptr; };
  EXPECT_THAT(change(), ElementsAre("a"));
  EXPECT_THAT(change(), ElementsAre("a"));
}

TEST_F(NotifieeListTest, OneThatDiesAfterItsTurnDisturbsNobody) {
  c_->react = [this] { a_ = b_ = nullptr; };
  EXPECT_THAT(change(), ElementsAre("a", "b", "c"));
  EXPECT_THAT(change(), ElementsAre("c"));
}

TEST_F(NotifieeListTest, OneThatIsSwitchedOffBeforeItsTurnIsNotCalled) {
  a_->react = [this] { b_->hasNotificationActiveIs(false); };
  EXPECT_THAT(change(), ElementsAre("a", "c"));
}

TEST_F(NotifieeListTest, OneThatBecomesAZombieBeforeItsTurnIsNotCalled) {
  a_->react = [this] { b_->qelDoZombieReactors(true); };
  EXPECT_THAT(change(), ElementsAre("a", "c"));
}

TEST_F(NotifieeListTest, OneThatJoinsIsFirstCalledByTheNextNotification) {
  a_->react = [this] {
    if (!d_) d_ = joined("d");
  };
  EXPECT_THAT(change(), ElementsAre("a", "b", "c"));
  EXPECT_THAT(change(), ElementsAre("a", "b", "c", "d"));
}

TEST_F(NotifieeListTest, OneThatLeavesAndJoinsAgainWaitsForTheNextNotification) {
  a_->react = [this] {
    b_->isRegisteredNotifieeIs(false);
    b_->isRegisteredNotifieeIs(true);
  };
  EXPECT_THAT(change(), ElementsAre("a", "c"));
  a_->react = nullptr;
  EXPECT_THAT(change(), ElementsAre("a", "c", "b"));
}

TEST_F(NotifieeListTest, OneThatMovesToAnotherNotifierIsNotCalled) {
  const auto other = make<Notifier>();
  a_->react = [&] { b_->notifierIs(other); };
  EXPECT_THAT(change(), ElementsAre("a", "c"));
  EXPECT_FALSE(b_->isRegisteredNotifiee());
}

TEST_F(NotifieeListTest, EveryoneMayBeDeregisteredInACall) {
  b_->react = [this] { notifier_->list().clear(); };
  EXPECT_THAT(change(), ElementsAre("a", "b"));
  EXPECT_FALSE(a_->isRegisteredNotifiee());
  EXPECT_FALSE(c_->isRegisteredNotifiee());
  EXPECT_THAT(change(), IsEmpty());
}

TEST_F(NotifieeListTest, AListThatWasClearedInACallTakesNewOnes) {
  a_->react = [this] {
    notifier_->list().clear();
    d_ = joined("d");
    c_->isRegisteredNotifieeIs(true);
  };
  EXPECT_THAT(change(), ElementsAre("a"));
  EXPECT_THAT(change(), ElementsAre("d", "c"));
  EXPECT_EQ(notifier_->list().size(), 2U);
}

TEST_F(NotifieeListTest, ANotificationMayRunInsideAnother) {
  b_->react = [this] {
    b_->react = nullptr;
    notifier_->changed();
  };
  EXPECT_THAT(change(), ElementsAre("a", "b", "a", "b", "c", "c"));
}

TEST_F(NotifieeListTest, OneThatJoinsIsCalledByANestedNotificationAtOnce) {
  b_->react = [this] {
    b_->react = nullptr;
    d_ = joined("d");
    notifier_->changed();
  };
  EXPECT_THAT(change(), ElementsAre("a", "b", "a", "b", "c", "d", "c"));
}

TEST_F(NotifieeListTest, OneThatLeavesInANestedNotificationIsGoneFromTheOuterOne) {
  a_->react = [this] {
    a_->react = [this] {
      b_->isRegisteredNotifieeIs(false);
      d_ = joined("d");
    };
    notifier_->changed();
    a_->react = nullptr;
  };
  EXPECT_THAT(change(), ElementsAre("a", "a", "c", "c"));
  EXPECT_THAT(change(), ElementsAre("a", "c", "d"));
}

TEST_F(NotifieeListTest, ClearingInANestedNotificationEndsTheOuterOne) {
  a_->react = [this] {
    a_->react = [this] { notifier_->list().clear(); };
    notifier_->changed();
  };
  EXPECT_THAT(change(), ElementsAre("a", "a"));
}

TEST_F(NotifieeListTest, ANotificationAfterClearingInsideAnotherStartsAfresh) {
  a_->react = [this] {
    a_->react = [this] { c_->isRegisteredNotifieeIs(false); };
    notifier_->list().clear();
    a_->isRegisteredNotifieeIs(true);
    c_->isRegisteredNotifieeIs(true);
    notifier_->changed();
  };
  EXPECT_THAT(change(), ElementsAre("a", "a"));
  EXPECT_EQ(notifier_->list().size(), 1U);
  EXPECT_THAT(change(), ElementsAre("a"));
}

TEST_F(NotifieeListTest, AnErrorOfOneIsRaisedOnceAllTheOthersHaveHeard) {
  a_->react = [] { throw std::runtime_error("bad reaction"); };
  EXPECT_THAT([this] { notifier_->changed(); }, ThrowsMessage<std::runtime_error>("bad reaction"));
  EXPECT_THAT(log_, ElementsAre("a", "b", "c"));
}

TEST_F(NotifieeListTest, OfSeveralErrorsTheFirstIsRaised) {
  a_->react = [] { throw std::runtime_error("first"); };
  c_->react = [] { throw std::logic_error("second"); };
  EXPECT_THAT([this] { notifier_->changed(); }, ThrowsMessage<std::runtime_error>("first"));
}

TEST_F(NotifieeListTest, AnErrorLeavesTheListWhole) {
  a_->react = [this] {
    b_->isRegisteredNotifieeIs(false);
    throw std::runtime_error("bad reaction");
  };
  EXPECT_THROW(notifier_->changed(), std::runtime_error);
  EXPECT_EQ(notifier_->list().size(), 2U);
  a_->react = nullptr;
  EXPECT_THAT(change(), ElementsAre("a", "c"));
}

TEST_F(NotifieeListTest, AnErrorInANestedNotificationIsThatOfWhoeverNotified) {
  a_->react = [this] {
    a_->react = [] { throw std::runtime_error("inner"); };
    notifier_->changed();
  };
  EXPECT_THAT([this] { notifier_->changed(); }, ThrowsMessage<std::runtime_error>("inner"));
  EXPECT_THAT(log_, ElementsAre("a", "a", "b", "c", "b", "c"));
}

TEST_F(NotifieeListTest, ANestedNotificationMayDealWithItsOwnError) {
  a_->react = [this] {
    a_->react = [] { throw std::runtime_error("inner"); };
    EXPECT_THROW(notifier_->changed(), std::runtime_error);
  };
  EXPECT_NO_THROW(notifier_->changed());
  EXPECT_THAT(log_, ElementsAre("a", "a", "b", "c", "b", "c"));
}

TEST_F(NotifieeListTest, AnErrorIsRaisedAlthoughALaterOneClearsTheList) {
  a_->react = [] { throw std::runtime_error("bad reaction"); };
  b_->react = [this] { notifier_->list().clear(); };
  EXPECT_THROW(notifier_->changed(), std::runtime_error);
  EXPECT_THAT(log_, ElementsAre("a", "b"));
}

TEST_F(NotifieeListTest, TheLastNotifieeMayTakeTheNotifierWithIt) {
  Notifier* const notifier = notifier_.get();
  notifier_ = nullptr;
  c_->react = [this] { a_ = b_ = c_ = nullptr; };
  notifier->changed();
  EXPECT_THAT(log_, ElementsAre("a", "b", "c"));
  EXPECT_EQ(newObjects(), 0);
}

TEST_F(NotifieeListTest, ANotifiersEndIsToldToEveryoneStillRegistered) {
  a_ = b_ = c_ = nullptr;
  const Ptr<Notifiee> plain = joined("plain", NotifierReference::plain);
  const Ptr<Notifiee> gone = joined("gone", NotifierReference::plain);
  gone->isRegisteredNotifieeIs(false);
  const Ptr<Notifiee> off = joined("off", NotifierReference::plain);
  off->hasNotificationActiveIs(false);
  const Ptr<Notifiee> zombie = joined("zombie", NotifierReference::plain);
  zombie->qelDoZombieReactors(true);
  notifier_ = nullptr;
  EXPECT_THAT(log_,
              ElementsAre("plain hears the end", "off hears the end", "zombie hears the end"));
}

// Observers that do not keep the notifier alive.
class PlainNotifieesTest : public NotifieeListTest {
 protected:
  void SetUp() override {
    a_ = joined("a", NotifierReference::plain);
    b_ = joined("b", NotifierReference::plain);
  }
};

TEST_F(PlainNotifieesTest, ADestroyedNotifierEndsTheNotification) {
  a_->react = [this] { notifier_ = nullptr; };
  notifier_->changed();
  EXPECT_THAT(log_, ElementsAre("a", "a hears the end", "b hears the end"));
  EXPECT_FALSE(b_->isRegisteredNotifiee());
  EXPECT_EQ(b_->notifier(), nullptr);
}

TEST_F(PlainNotifieesTest, ANotifierDestroyedInANestedNotificationEndsTheOuterOne) {
  a_->react = [this] {
    a_->react = [this] { notifier_ = nullptr; };
    notifier_->changed();
  };
  notifier_->changed();
  EXPECT_THAT(log_, ElementsAre("a", "a", "a hears the end", "b hears the end"));
}

TEST_F(PlainNotifieesTest, AnErrorIsRaisedAlthoughTheNotifierIsGone) {
  a_->react = [this] {
    notifier_ = nullptr;
    throw std::runtime_error("bad reaction");
  };
  EXPECT_THROW(notifier_->changed(), std::runtime_error);
  EXPECT_THAT(log_, ElementsAre("a", "a hears the end", "b hears the end"));
}

TEST_F(PlainNotifieesTest, OneMayDieTogetherWithTheNotifier) {
  a_->react = [this] { a_ = b_ = nullptr, notifier_ = nullptr; };
  notifier_->changed();
  EXPECT_THAT(log_, ElementsAre("a", "a hears the end"));
  EXPECT_EQ(newObjects(), 0);
}

}  // namespace
