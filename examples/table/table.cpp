// The model and the table alone, in a process that knows its reload causes from elsewhere.
// Where it listens and whom it answers stands in example-table.conf (see snmp_config(5)).
// clang-format off
#include <net-snmp/net-snmp-config.h>
#include <net-snmp/net-snmp-includes.h>
#include <net-snmp/agent/net-snmp-agent-includes.h>
// clang-format on

#include "MiscSnmp/GeneralMib.h"
#include "NorvekGeneralMIB/NorvekGeneralMIB.h"
#include "Qel/Dir.h"
#include "Snmp/SnmpUtil.h"
#include "System/ResetInstance.h"

int main() {
  if (init_agent("example-table") != 0) return 1;
  init_snmp("example-table");
  if (init_master_agent() != 0) return 1;

  const auto reload = Qel::make<System::ResetInstance>(0);  // the latest one
  reload->causeQPush({"Power loss", 1700000000.9});
  reload->causeQPush({"Watchdog expired", 1700000003.0});

  const auto tree = Qel::make<Qel::Dir>("");
  const auto model = MiscSnmp::generalMibFactory("generalMib");
  tree->dirIs("snmp/misc")->entityIs(model);
  for (const U32 cause : {1U, 2U}) model->reloadCauseTableIs({0, 0, cause}, reload);
  SnmpUtil::rootIs(tree);
  init_NorvekGeneralMIB("");  // the default context

  while (agent_check_and_process(1) >= 0) continue;
}
