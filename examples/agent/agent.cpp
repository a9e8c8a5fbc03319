// An agent process of one's own: follows a state database and serves the plug-in's table of it.
// Where it listens and whom it answers stands in example-agent.conf (see snmp_config(5)).
#include <dlfcn.h>
// clang-format off
#include <net-snmp/net-snmp-config.h>
#include <net-snmp/net-snmp-includes.h>
#include <net-snmp/agent/net-snmp-agent-includes.h>
// clang-format on
#include <cstdio>
#include <vector>
#include "Cell/Cell.h"
#include "Kavra/EntityManager.h"
#include "Kavra/StoreUrl.h"
#include "Qel/ActivityManager.h"
#include "Qel/Dir.h"
#include "Qel/GenericIf.h"
#include "Qel/PollEventLoop.h"
#include "Snmp/AutoRegistree.h"
#include "Snmp/SnmpUtil.h"

// net-snmp's sockets on the platform's loop.
std::vector<Qel::Ptr<Qel::EventWatch>> answering(Qel::EventLoop& loop) {
  int count = 0, block = 1;
  timeval patience{};
  fd_set all{};
  snmp_select_info(&count, &all, &patience, &block);
  std::vector<Qel::Ptr<Qel::EventWatch>> watches;
  const auto answer = [](int fd) {
    fd_set one{};
    FD_SET(fd, &one);
    snmp_read(&one);
  };
  for (int fd = 0; fd < count; ++fd)
    if (FD_ISSET(fd, &all)) watches.push_back(loop.readableIs(fd, [=] { answer(fd); }));
  return watches;
}

int main(int argc, char** argv) {
  if (argc != 2) return std::fprintf(stderr, "usage: %s DATABASE-URL\n", argv[0]), 2;
  if (dlopen(PLUGIN, RTLD_NOW) == nullptr) return std::fprintf(stderr, "%s\n", dlerror()), 1;
  if (init_agent("example-agent") != 0) return 1;
  init_snmp("example-agent");
  if (init_master_agent() != 0) return 1;
  Qel::PollEventLoop loop;
  const auto sockets = answering(loop);
  Cell::cellIdIs(1);
  const auto feed = Kavra::StoreUrl(argv[1]).feed(loop, Qel::activityManager()->clock());
  const auto database = Qel::make<Kavra::EntityManager>(feed);
  const auto status =
      database->entityIs("cell/1/redundancy/status", "Redundancy::RedundancyStatus");
  const auto history = database->entityIs("cell/1/sys/reset/history", "System::ResetCauseHistory");
  const auto tree = Qel::make<Qel::Dir>("");
  const auto table = tree->dirIs("snmp/misc")->newEntityIs("MiscSnmp::GeneralMib", "generalMib");
  const auto root = Qel::genericIf(tree->newEntityIs("MiscSnmp::Agent::Root", "agent"));
  root->attributeIs("agent", {status, table, history, database, Qel::String("supervisor")});
  SnmpUtil::rootIs(tree);
  Snmp::contextIs("");  // what the plug-in registers its table in
  loop.run();
}
