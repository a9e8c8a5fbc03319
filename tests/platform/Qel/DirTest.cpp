#include "Qel/Dir.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "Qel/Exception.h"
#include "Qel/TypeNode.h"
#include "support/LiveObjects.h"

namespace {

using Qel::Dir;
using Qel::Entity;
using Qel::make;
using Qel::Name;
using Qel::Ptr;
using testing::ElementsAre;
using testing::IsEmpty;

// Writes down every name that it is told of, and whether it stands there at that time.
class DirWatching : public Dir::NotifieeConst {
 public:
  DirWatching(std::vector<std::string>& log, Dir& dir)
      : NotifieeConst(Qel::NotifierReference::plain), log_(log), dir_(dir) {
    notifierIs(Ptr<Dir>(&dir));
    isRegisteredNotifieeIs(true);
    hasNotificationActiveIs(true);
  }
  void onEntity(const Name& name) override {
    log_.push_back((dir_.entity(name.string()) ? "+" : "-") + name.string().stdString());
  }

 private:
  std::vector<std::string>& log_;
  Dir& dir_;
};

class DirTest : public support::LiveObjectsTest {
 protected:
  Ptr<Entity> put(const Name& name) {
    auto entity = make<Entity>(name);
    dir_->entityIs(entity);
    return entity;
  }

  Ptr<Dir> dir_ = make<Dir>("root");
  std::vector<std::string> log_;
};

TEST_F(DirTest, HoldsEntitiesByNameInAscendingOrder) {
  put("b");
  const Ptr<Entity> a = put("a");
  EXPECT_EQ(dir_->entity("a"), a);
  EXPECT_EQ(dir_->entity("c"), nullptr);
  EXPECT_THAT(dir_->names(), ElementsAre(Name("a"), Name("b")));
}

TEST_F(DirTest, IsTheParentOfWhatItHolds) {
  const Ptr<Entity> a = put("a");
  EXPECT_EQ(a->parent(), dir_.get());
  EXPECT_EQ(a->parentAttribute(), "entity");
  EXPECT_EQ(dir_->entityDel("a"), a);
  EXPECT_EQ(a->parent(), nullptr);
  EXPECT_EQ(dir_->entityDel("a"), nullptr);
}

TEST_F(DirTest, LeavesItsEntitiesWithoutParentWhenItEnds) {
  const Ptr<Entity> a = put("a");
  dir_ = nullptr;
  EXPECT_EQ(a->parent(), nullptr);
  EXPECT_EQ(a->references(), 1U);
}

TEST_F(DirTest, TellsOfEachEntityThatComesOrGoesAfterTheFact) {
  const auto watching = make<DirWatching>(log_, *dir_);
  const Ptr<Entity> a = put("a");
  dir_->entityIs(a);
  put("b");
  dir_->entityDel("a");
  dir_->entityDel("a");
  dir_ = nullptr;
  EXPECT_THAT(log_, ElementsAre("+a", "+b", "-a", "-b"));
}

TEST_F(DirTest, RefusesAnotherEntityOfTheSameName) {
  const Ptr<Entity> a = put("a");
  const auto watching = make<DirWatching>(log_, *dir_);
  EXPECT_THROW(put("a"), Qel::NameInUseException);
  EXPECT_EQ(dir_->entity("a"), a);
  EXPECT_THAT(log_, IsEmpty());
}

TEST_F(DirTest, RefusesNullAndNamesThatAreNoPartOfAPath) {
  const Qel::RangeExceptionExpectation expected;
  EXPECT_THROW(dir_->entityIs(nullptr), Qel::RangeException);
  EXPECT_THROW(put(""), Qel::RangeException);
  EXPECT_THROW(put("a/b"), Qel::RangeException);
  EXPECT_THAT(dir_->names(), IsEmpty());
}

TEST_F(DirTest, RefusesAnEntityThatStandsUnderAnotherParent) {
  const auto other = make<Dir>("other");
  const Ptr<Entity> a = put("a");
  const Qel::RangeExceptionExpectation expected;
  EXPECT_THROW(other->entityIs(a), Qel::RangeException);
  EXPECT_EQ(a->parent(), dir_.get());
  EXPECT_THAT(other->names(), IsEmpty());
}

TEST_F(DirTest, FindsAlongAPath) {
  const Ptr<Dir> sys = dir_->dirIs("cell/1/sys");
  const auto history = make<Entity>("history");
  sys->entityIs(history);
  EXPECT_EQ(dir_->entity("cell/1/sys/history"), history);
  EXPECT_EQ(dir_->entity("cell/1/sys"), sys);
  EXPECT_EQ(dir_->entity("cell/2/sys"), nullptr);
  EXPECT_EQ(dir_->entity("cell/1/sys/history/more"), nullptr) << "no directory on the way";
}

TEST_F(DirTest, PathsWithEmptyNamesLeadNowhere) {
  dir_->dirIs("a/b");
  for (const char* path : {"", "/", "/a", "a/", "a//b", "a/b/"}) {
    EXPECT_EQ(dir_->entity(path), nullptr) << path;
  }
}

TEST_F(DirTest, MakesADirectoryOnceWithThoseAboveIt) {
  const Ptr<Dir> made = dir_->dirIs("a/b/c");
  EXPECT_EQ(dir_->dirIs("a/b/c"), made);
  EXPECT_EQ(made->parent(), dir_->entity("a/b").get());
  EXPECT_EQ(made->name(), Name("c"));
}

TEST_F(DirTest, RefusesADirectoryWhereSomethingElseStands) {
  put("a");
  EXPECT_THROW(dir_->dirIs("a"), Qel::NameInUseException);
  EXPECT_THROW(dir_->dirIs("a/b"), Qel::NameInUseException);
}

TEST_F(DirTest, MakesAnEntityOfARegisteredType) {
  Qel::TypeDescription description{.name = "Test::Made"};
  description.newEntityForDir = [](Dir&, const Name& name) { return make<Entity>(name); };
  const auto registration = Qel::typeNodeIs(description);
  const Ptr<Entity> made = dir_->newEntityIs("Test::Made", "x");
  EXPECT_EQ(dir_->entity("x"), made);
  EXPECT_EQ(made->name(), Name("x"));
}

TEST_F(DirTest, RefusesToMakeWhatCannotBeMade) {
  const auto plain = Qel::typeNodeIs({.name = "Test::Plain"});
  Qel::TypeDescription description{.name = "Test::Failing"};
  description.newEntityForDir = [](Dir&, const Name&) { return Ptr<Entity>(); };
  const auto failing = Qel::typeNodeIs(description);
  const Qel::RangeExceptionExpectation expected;
  EXPECT_THROW(dir_->newEntityIs("Test::Unknown", "x"), Qel::RangeException);
  EXPECT_THROW(dir_->newEntityIs("Test::Plain", "x"), Qel::OperationNotSupportedException);
  EXPECT_THROW(dir_->newEntityIs("Test::Failing", "x"), Qel::RangeException);
  EXPECT_THAT(dir_->names(), IsEmpty());
}

TEST_F(DirTest, ANotifieeOfDirectoriesDoesNotBindToOtherEntities) {
  const auto notifiee = make<Dir::NotifieeConst>();
  notifiee->notifierIs(put("a"));
  EXPECT_EQ(notifiee->notifier(), nullptr);
  notifiee->notifierIs(dir_);
  EXPECT_EQ(notifiee->notifier(), dir_);
}

}  // namespace
