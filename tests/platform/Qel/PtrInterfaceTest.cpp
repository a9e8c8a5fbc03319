#include "Qel/PtrInterface.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "Qel/Ptr.h"
#include "support/LiveObjects.h"

namespace {

using Qel::make;
using Qel::Ptr;
using testing::ElementsAre;
using testing::IsEmpty;

// Tells a log of what becomes of it.
class Told : public Qel::PtrInterface {
 public:
  explicit Told(std::vector<std::string>& log) : log_(log) {}
  ~Told() override { log_.emplace_back("destroyed"); }
  void zeroReferencesIs(bool zero) override {
    log_.emplace_back(zero ? "zero references" : "references again");
  }

 private:
  std::vector<std::string>& log_;
};

// Lets `call` do what it will with an object under construction, and with one that is ending.
class Handed : public Qel::PtrInterface {
 public:
  using Call = std::function<void(const Ptr<Handed>&)>;
  explicit Handed(const Call& atStart, Call atEnd = {}) : atEnd_(std::move(atEnd)) {
    atStart(Ptr<Handed>(this));
  }
  ~Handed() override {
    if (atEnd_) atEnd_(Ptr<Handed>(this));
  }

 private:
  const Call atEnd_;
};

class PtrInterfaceTest : public support::LiveObjectsTest {
 protected:
  std::vector<std::string> log_;
};

TEST_F(PtrInterfaceTest, LivesUntilTheLastReferenceGoes) {
  Ptr<Told> first = make<Told>(log_);
  EXPECT_EQ(first->references(), 1U);
  Ptr<Told> second = first;
  EXPECT_EQ(first->references(), 2U);
  first = nullptr;
  EXPECT_THAT(log_, IsEmpty());
  EXPECT_EQ(newObjects(), 1);
  second = nullptr;
  EXPECT_THAT(log_, ElementsAre("zero references", "destroyed"));
  EXPECT_EQ(newObjects(), 0);
}

TEST_F(PtrInterfaceTest, AReferenceToAConstantObjectKeepsItAsWell) {
  Ptr<Told const> held = make<Told>(log_);
  EXPECT_EQ(held->references(), 1U);
  held = nullptr;
  EXPECT_THAT(log_, ElementsAre("zero references", "destroyed"));
}

TEST_F(PtrInterfaceTest, AConstructorMayHandOutShortLivedReferences) {
  const auto object = make<Handed>([](const Ptr<Handed>& self) {
    // NOLINTNEXTLINE(performance-unnecessary-copy-initialization)
    const Ptr<Handed> another = self;
    EXPECT_EQ(another->references(), 3U);
  });
  EXPECT_EQ(object->references(), 1U);
}

TEST_F(PtrInterfaceTest, AConstructorMayHandOutReferencesThatStay) {
  Ptr<Handed> kept;
  {
    const auto object = make<Handed>([&kept](const Ptr<Handed>& self) { kept = self; });
    EXPECT_EQ(object->references(), 2U);
  }
  EXPECT_EQ(kept->references(), 1U);
}

TEST_F(PtrInterfaceTest, AConstructorThatThrowsUnwindsOnceWithNothingLeft) {
  EXPECT_THROW(make<Handed>([](const Ptr<Handed>& self) {
                 // NOLINTNEXTLINE(performance-unnecessary-copy-initialization)
                 const Ptr<Handed> another = self;
                 throw std::runtime_error("no object");
               }),
               std::runtime_error);
  EXPECT_EQ(newObjects(), 0);
}

TEST_F(PtrInterfaceTest, ADestructorMayHandOutShortLivedReferences) {
  int ends = 0;
  make<Handed>([](const Ptr<Handed>&) {},
               [&ends](const Ptr<Handed>& self) {
                 // NOLINTNEXTLINE(performance-unnecessary-copy-initialization)
                 const Ptr<Handed> another = self;
                 EXPECT_EQ(another->references(), 3U);
                 ++ends;
               });
  EXPECT_EQ(ends, 1);
}

TEST_F(PtrInterfaceTest, AReferenceThatOutlivesTheDestructorEndsTheProcess) {
  EXPECT_DEATH(
      {
        Ptr<Handed> dangling;
        make<Handed>([](const Ptr<Handed>&) {},
                     [&dangling](const Ptr<Handed>& self) { dangling = self; });
      },
      "assertion failed: references\\(\\) <= 1");
}

TEST_F(PtrInterfaceTest, AReferenceThatOutlivesAFailedConstructionEndsTheProcess) {
  EXPECT_DEATH(
      {
        Ptr<Handed> dangling;
        try {
          make<Handed>([&dangling](const Ptr<Handed>& self) {
            dangling = self;
            throw std::runtime_error("no object");
          });
        } catch (const std::runtime_error&) {
        }
      },
      "assertion failed: references\\(\\) <= 1");
}

TEST_F(PtrInterfaceTest, FlagsStartOffAndDoNotTouchTheCount) {
  const auto object = make<Told>(log_);
  EXPECT_FALSE(object->hasNotificationActive());
  EXPECT_FALSE(object->isMarkedForDeletion());
  object->hasNotificationActiveIs(true);
  object->qelDoZombieReactors(true);
  EXPECT_TRUE(object->hasNotificationActive());
  EXPECT_TRUE(object->isMarkedForDeletion());
  EXPECT_EQ(object->references(), 1U);
  object->hasNotificationActiveIs(false);
  EXPECT_TRUE(object->isMarkedForDeletion());
  object->qelDoZombieReactors(false);
  EXPECT_FALSE(object->isMarkedForDeletion());
}

TEST_F(PtrInterfaceTest, APlainObjectHasNeitherTypeNorObserversNorOwner) {
  const auto object = make<Told>(log_);
  EXPECT_EQ(object->fwkType(), nullptr);
  EXPECT_EQ(object->notifieeList(), nullptr);
  EXPECT_EQ(object->qelOwner(), nullptr);
}

TEST_F(PtrInterfaceTest, CountsAcrossThreadsOnceToldTo) {
  Qel::PtrInterface::threadSafePointersIs(true);
  const auto object = make<Told>(log_);
  const auto churn = [&object] {
    // NOLINTNEXTLINE(performance-unnecessary-copy-initialization): to count it is the point.
    for (int i = 0; i < 20000; ++i) const Ptr<Told> copy = object;
  };
  std::thread other(churn);
  churn();
  other.join();
  Qel::PtrInterface::threadSafePointersIs(false);
  EXPECT_EQ(object->references(), 1U);
}

}  // namespace
