// libMiscSnmp.so as the agent meets it: what it shows, what it serves, what it leaves behind.

#include <dlfcn.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "NorvekGeneralMIB/InProcessAgent.h"
#include "Qel/Dir.h"
#include "Qel/TypeNode.h"
#include "Snmp/AutoRegistree.h"
#include "Snmp/MibContext.h"
#include "Snmp/SnmpUtil.h"
#include "support/LiveObjects.h"
#include "support/Reloads.h"

namespace {

using NorvekGeneralMIB::InProcessAgent;
using NorvekGeneralMIB::Oid;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;
using testing::UnorderedElementsAre;

const Oid kDescription = {1, 3, 6, 1, 4, 1, 32473, 3, 24, 1, 1, 1, 4, 1, 0, 1};

class Library {
 public:
  Library() : handle_(::dlopen(PLUGIN_FILE, RTLD_NOW | RTLD_LOCAL)) {
    if (handle_ == nullptr) ADD_FAILURE() << ::dlerror();
  }
  Library(const Library&) = delete;
  Library& operator=(const Library&) = delete;
  ~Library() {
    if (handle_ != nullptr) ::dlclose(handle_);
  }

  using EntryPoint = void (*)(Qel::String context);
  EntryPoint entryPoint(const char* name) const {
    return reinterpret_cast<EntryPoint>(::dlsym(handle_, name));
  }

 private:
  void* const handle_;
};

bool isInMemory() {
  std::ifstream maps("/proc/self/maps");
  for (std::string line; std::getline(maps, line);) {
    if (line.find("libMiscSnmp") != std::string::npos) return true;
  }
  return false;
}

std::vector<std::string> shownSymbols() {
  const std::string command =
      std::string(NM) + " --dynamic --defined-only --format=posix " PLUGIN_FILE;
  const std::unique_ptr<std::FILE, int (*)(std::FILE*)> output(::popen(command.c_str(), "r"),
                                                               &::pclose);
  std::vector<std::string> names;
  char line[1024];
  while (std::fgets(line, sizeof line, output.get()) != nullptr) {
    const std::string text(line);
    names.push_back(text.substr(0, text.find(' ')));
  }
  return names;
}

class PluginTest : public support::LiveObjectsTest {
 protected:
  PluginTest() { SnmpUtil::rootIs(root); }
  ~PluginTest() override { SnmpUtil::rootIs(nullptr); }

  static Qel::Ptr<Qel::PtrInterface> newModel() {
    return Qel::typeNode("MiscSnmp::GeneralMib")->newObject({"generalMib"});
  }
  // Puts a model with one row into the agent's tree, through the reflective interface alone.
  void modelIs(const Qel::String& cause) {
    const auto model = newModel();
    root->dirIs("snmp/misc")->entityIs(Qel::ptrCast<Qel::Entity>(model));
    const auto key = Qel::typeNode("MiscSnmp::ReloadCauseKey")
                         ->valueOfStrep(
                             "Value('MiscSnmp::ReloadCauseKey', ** {'unitIndex': 1, "
                             "'instanceIndex': 0, 'causeIndex': 1})");
    Qel::genericIf(model)->attributeIs("reloadCauseTable", {key, support::reload({{cause, 1.0}})});
  }
  void modelDel() { root->dirIs("snmp/misc")->entityDel("generalMib"); }

  const Qel::Ptr<Qel::Dir> root = Qel::make<Qel::Dir>("root");
};

TEST_F(PluginTest, ShowsItsEntryPointsAlone) {
  EXPECT_THAT(shownSymbols(),
              UnorderedElementsAre("init_NorvekGeneralMIB", "unregister_NorvekGeneralMIB",
                                   "initialize_table_norvekReloadCauseTable",
                                   "norvekReloadCauseTable_handler"));
}

TEST_F(PluginTest, LeavesMemoryAndTheTypeRegistryWhenItIsUnloaded) {
  const std::size_t types = Qel::typeNodes().size();
  for (int i = 0; i < 50; ++i) {
    {
      const Library library;
      ASSERT_NE(Qel::typeNode("MiscSnmp::GeneralMib"), nullptr);
      ASSERT_NE(newModel(), nullptr);
      ASSERT_TRUE(isInMemory());
    }
    ASSERT_FALSE(isInMemory()) << "after load " << i + 1;
    ASSERT_EQ(Qel::typeNodes().size(), types);
  }
}

TEST_F(PluginTest, IsAnnouncedWhileItIsLoaded) {
  {
    const Library library;
    Snmp::contextIs("blue");
    EXPECT_THAT(Snmp::mibContexts(), ElementsAre(Snmp::MibContext{"blue", "NorvekGeneralMIB"}));
    library.entryPoint("unregister_NorvekGeneralMIB")("blue");
  }
  Snmp::contextDel("blue");
  Snmp::contextIs("blue");
  EXPECT_THAT(Snmp::mibContexts(), IsEmpty());
  Snmp::contextDel("blue");
}

TEST_F(PluginTest, ServesTheTableEachTimeItIsLoaded) {
  InProcessAgent& agent = InProcessAgent::instance();
  for (int i = 0; i < 50; ++i) {
    const std::string cause = "reload " + std::to_string(i);
    {
      const Library library;
      modelIs(cause);
      library.entryPoint("init_NorvekGeneralMIB")("");
      const auto served = agent.get({kDescription}).varbinds;
      ASSERT_THAT(served, SizeIs(1));
      ASSERT_EQ(served.front().value, cause);
      library.entryPoint("unregister_NorvekGeneralMIB")("");
      modelDel();
    }
    ASSERT_FALSE(isInMemory());
    ASSERT_EQ(agent.get({kDescription}).varbinds.front().type, SNMP_NOSUCHOBJECT);
  }
}

}  // namespace
