#include "host/StateTree.h"

#include <fmt/format.h>

#include "Qel/Entity.h"
#include "Qel/String.h"
#include "Qel/TypeNode.h"
#include "Snmp/SnmpUtil.h"
#include "System/ResetCauseHistory.h"
#include "host/Errors.h"

namespace Host {
namespace {

constexpr auto kModelType = "MiscSnmp::GeneralMib";
constexpr auto kAgentRootType = "MiscSnmp::Agent::Root";
constexpr auto kAgentAttribute = "agent";

Qel::Ptr<Qel::Entity> newEntity(Qel::Dir& root, const char* directory, const char* name,
                                const char* typeName) {
  if (Qel::typeNode(typeName) == nullptr) {
    throw StartError(fmt::format("no plug-in brings the type {}", typeName));
  }
  return root.dirIs(directory)->newEntityIs(typeName, name);
}

}  // namespace

StateTree::StateTree(const StateDatabase& database, const std::string& cellType)
    : root_(Qel::make<Qel::Dir>("")) {
  const auto model = newEntity(*root_, "snmp/misc", "generalMib", kModelType);
  agentRoot_ = Qel::genericIf(newEntity(*root_, "snmp/agent", "misc", kAgentRootType));
  const Qel::Ptr<System::ResetCauseHistory const> history = database.resetHistory();
  agentRoot_->attributeIs(kAgentAttribute, {database.redundancyStatus(), model, history,
                                            database.entityManager(), Qel::String(cellType)});
  SnmpUtil::rootIs(root_);
}

StateTree::~StateTree() {
  SnmpUtil::rootIs(nullptr);
  agentRoot_->attributeDel(kAgentAttribute);
}

}  // namespace Host
