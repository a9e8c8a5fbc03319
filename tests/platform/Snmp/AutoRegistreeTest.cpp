#include "Snmp/AutoRegistree.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace Snmp {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

// A module that notes its name and the contexts for which it is asked to register.
class Module final : public HandlerRegistration {
 public:
  Module(std::string name, std::vector<std::string>& log) : name_(std::move(name)), log_(log) {
    announced.emplace(this);
  }
  void initHandler(Qel::String context) override {
    log_.push_back(name_ + ":" + context.stdString());
    if (reaction) reaction();
  }

  std::optional<AutoRegistree> announced;
  std::function<void()> reaction;

 private:
  const std::string name_;
  std::vector<std::string>& log_;
};

class AutoRegistreeTest : public testing::Test {
 protected:
  std::vector<std::string> log;
};

TEST_F(AutoRegistreeTest, EveryModulePresentIsOfferedAContext) {
  Module a("a", log);
  Module b("b", log);
  contextIs("");
  contextIs("blue");
  EXPECT_THAT(log, ElementsAre("a:", "b:", "a:blue", "b:blue"));
}

TEST_F(AutoRegistreeTest, AnnouncingAloneAsksNothing) {
  Module a("a", log);
  EXPECT_THAT(log, IsEmpty());
}

TEST_F(AutoRegistreeTest, AModuleThatComesLaterIsServedWhenTheAgentOffersAgain) {
  Module a("a", log);
  contextIs("");
  Module b("b", log);
  contextIs("");
  EXPECT_THAT(log, ElementsAre("a:", "b:"));
}

TEST_F(AutoRegistreeTest, AWithdrawnModuleIsNotAsked) {
  Module a("a", log);
  Module b("b", log);
  a.announced.reset();
  contextIs("");
  EXPECT_THAT(log, ElementsAre("b:"));
}

TEST_F(AutoRegistreeTest, AWithdrawnContextMayBeOfferedAgain) {
  Module a("a", log);
  contextIs("");
  contextDel("");
  contextIs("");
  EXPECT_THAT(log, ElementsAre("a:", "a:"));
}

TEST_F(AutoRegistreeTest, AModuleMayWithdrawAnotherWhileItIsAsked) {
  Module a("a", log);
  Module b("b", log);
  a.reaction = [&] { b.announced.reset(); };
  contextIs("");
  EXPECT_THAT(log, ElementsAre("a:"));
}

TEST_F(AutoRegistreeTest, AModuleThatIsAnnouncedMeanwhileIsAskedByTheNextOffer) {
  Module a("a", log);
  std::unique_ptr<Module> b;
  a.reaction = [&] { b = std::make_unique<Module>("b", log); };
  contextIs("");
  EXPECT_THAT(log, ElementsAre("a:"));
  contextIs("");
  EXPECT_THAT(log, ElementsAre("a:", "b:"));
}

}  // namespace
}  // namespace Snmp
