#include <dlfcn.h>
#include <gmock/gmock.h>
#include <sys/select.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <string_view>
#include <tuple>
#include <utility>
#include <vector>

#include "host/NetSnmp.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

constexpr auto kName = "snmpd_module_test";
constexpr auto kPatience = std::chrono::seconds(20);

std::vector<std::string>& said() {
  static std::vector<std::string> lines;
  return lines;
}

int hear(int /*major*/, int /*minor*/, void* message, void* /*unused*/) {
  said().emplace_back(static_cast<const snmp_log_message*>(message)->msg);
  return SNMPERR_SUCCESS;
}

int watchedDescriptors() {
  int end = 0;
  std::array<fd_set, 3> sets;
  for (fd_set& set : sets) FD_ZERO(&set);
  netsnmp_external_event_info(&end, sets.data(), &sets[1], &sets[2]);
  int count = 0;
  for (int fd = 0; fd < end; ++fd) {
    for (const fd_set& set : sets) count += FD_ISSET(fd, &set) ? 1 : 0;
  }
  return count;
}

std::vector<std::string> directives() {
  std::vector<std::string> names;
  for (const auto* line = read_config_get_handlers(kName); line != nullptr; line = line->next) {
    if (std::string_view(line->config_token).starts_with("norvek")) {
      names.emplace_back(line->config_token);
    }
  }
  return names;
}

bool isTableServed() {
  constexpr std::array<oid, 11> kTable{1, 3, 6, 1, 4, 1, 32473, 3, 24, 1, 1};
  const netsnmp_subtree* subtree = netsnmp_subtree_find(kTable.data(), kTable.size(), nullptr, "");
  return subtree != nullptr && subtree->reginfo != nullptr &&
         std::string_view(subtree->reginfo->handlerName).starts_with("norvekReloadCauseTable");
}

// All that is registered with the agent.
auto registered() {
  return std::tuple(watchedDescriptors(), sa_find_next() != nullptr, directives(), isTableServed(),
                    snmp_count_callbacks(SNMP_CALLBACK_LIBRARY, SNMP_CALLBACK_SHUTDOWN));
}

bool exists(const std::string& path) {
  struct stat facts {};
  return ::lstat(path.c_str(), &facts) == 0;
}

std::string persistent() {
  return testing::TempDir() + "module" + std::to_string(::getpid()) + ".d";
}

// The test is the agent that loads the module, as snmpd does for a line "dlmod norvek".
class SnmpdModuleTest : public testing::Test {
 protected:
  static void SetUpTestSuite() {
    snmp_disable_log();
    snmp_enable_calllog();
    snmp_register_callback(SNMP_CALLBACK_LIBRARY, SNMP_CALLBACK_LOGGING, &hear, nullptr);
    set_configuration_directory("/dev/null");
    // Where the module keeps what managers were told.
    std::filesystem::create_directory(persistent());
    set_persistent_directory(persistent().c_str());
    netsnmp_ds_set_boolean(NETSNMP_DS_LIBRARY_ID, NETSNMP_DS_LIB_DONT_READ_CONFIGS, 1);
    ASSERT_EQ(init_agent(kName), 0);
    init_snmp(kName);
  }
  static void TearDownTestSuite() {
    snmp_shutdown(kName);
    shutdown_agent();
    std::filesystem::remove_all(persistent());
  }
  SnmpdModuleTest() {
    std::ofstream(file_) << R"({"cell/1/sys/reset/history": {"type": "System::ResetCauseHistory",
        "rebootHistory": {"0": {"causeQ": [{"description": "Power loss", "time": 1}]}}}})";
    said().clear();
  }
  ~SnmpdModuleTest() override {
    if (library_ != nullptr) unload();
    ::unlink(file_.c_str());
  }

  void load() {
    library_ = ::dlopen(MODULE_FILE, RTLD_NOW);
    ASSERT_NE(library_, nullptr) << ::dlerror();
    call("init_norvek");
  }
  void unload() {
    call("deinit_norvek");
    ::dlclose(std::exchange(library_, nullptr));
  }
  void call(const char* name) {
    const auto entryPoint = reinterpret_cast<void (*)()>(::dlsym(library_, name));
    ASSERT_NE(entryPoint, nullptr) << name;
    entryPoint();
  }
  static void line(std::string text) { netsnmp_config(text.data()); }
  void linesAreRead() const {
    line("norvekDb file:" + file_);
    line("norvekStatusSocket " + socket_);
  }
  static void passUntil(const std::function<bool()>& done) {
    const auto deadline = std::chrono::steady_clock::now() + kPatience;
    while (!done() && std::chrono::steady_clock::now() < deadline) agent_check_and_process(0);
    EXPECT_TRUE(done());
  }

  const std::string file_ = testing::TempDir() + "module" + std::to_string(::getpid()) + ".json";
  const std::string socket_ = file_ + ".sock";
  void* library_ = nullptr;
};

TEST_F(SnmpdModuleTest, BeginsNothingBeforeTheFirstPassOfTheLoop) {
  load();
  linesAreRead();
  EXPECT_FALSE(isTableServed());
  EXPECT_FALSE(exists(socket_));
  EXPECT_EQ(watchedDescriptors(), 1);
  agent_check_and_process(0);
  EXPECT_TRUE(isTableServed());
  EXPECT_TRUE(exists(socket_));
  EXPECT_THAT(said(), ElementsAre("norvek: cell 1 follows file:" + file_ + "\n"));
}

TEST_F(SnmpdModuleTest, LeavesNothingRegisteredHoweverOftenItIsLoaded) {
  const auto before = registered();
  for (int count = 0; count < 50; ++count) {
    load();
    linesAreRead();
    EXPECT_NE(registered(), before);
    if (count % 2 == 0) passUntil(&isTableServed);
    unload();
    EXPECT_EQ(registered(), before);
  }
  EXPECT_FALSE(exists(socket_));
}

TEST_F(SnmpdModuleTest, IsLoadedOnce) {
  load();
  linesAreRead();
  call("init_norvek");
  EXPECT_THAT(said(), ElementsAre(HasSubstr("norvek is loaded already")));
  passUntil(&isTableServed);
}

TEST_F(SnmpdModuleTest, ForgetsTheLinesOfAnEarlierTime) {
  load();
  linesAreRead();
  unload();
  load();
  passUntil([] { return !said().empty(); });
  EXPECT_THAT(said(), ElementsAre(HasSubstr("norvek: no line norvekDb after the line dlmod")));
  EXPECT_FALSE(isTableServed());
}

}  // namespace
