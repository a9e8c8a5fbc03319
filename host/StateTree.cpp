#include "host/StateTree.h"

#include <fmt/format.h>

#include <functional>
#include <utility>

#include "Qel/Entity.h"
#include "Qel/Exception.h"
#include "Qel/GenericValue.h"
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
constexpr auto kTableAttribute = "reloadCauseTable";
constexpr auto kKeyType = "MiscSnmp::ReloadCauseKey";

Qel::Ptr<Qel::Entity> newEntity(Qel::Dir& root, const char* directory, const char* name,
                                const char* typeName) {
  if (Qel::typeNode(typeName) == nullptr) {
    throw StartError(fmt::format("no plug-in brings the type {}", typeName));
  }
  return root.dirIs(directory)->newEntityIs(typeName, name);
}

// The object that is an attribute of another one; null for none.
Qel::Ptr<Qel::GenericIf> objectAt(const Qel::Ptr<Qel::GenericIf>& parent, const char* attribute) {
  const auto object = parent->attribute(attribute).toPtr<Qel::PtrInterface>();
  return object ? Qel::genericIf(object) : nullptr;
}

bool hasObject(const Qel::Ptr<Qel::GenericIf>& parent, const char* attribute) {
  return parent->attribute(attribute).toPtr<Qel::PtrInterface const>().operator bool();
}

// Of what a plug-in may have under another name, or not at all.
template <class Value>
std::optional<Value> toldBy(const std::function<Value()>& ask) {
  try {
    return ask();
  } catch (const Qel::Exception&) {
    return {};
  }
}

// The key of a unit's first row.
Qel::Ptr<Qel::GenericIf> firstKeyOf(U32 unit) {
  const Qel::TypeNode* const type = Qel::typeNode(kKeyType);
  if (type == nullptr) Qel::throwRangeException("no type of keys");
  return type->valueOfStrep(Qel::String(fmt::format(
      "Value('{}', ** {{'unitIndex': {}, 'instanceIndex': 0, 'causeIndex': 1}})", kKeyType, unit)));
}

}  // namespace

StateTree::StateTree(const StateDatabase& database, const std::string& cellType)
    : root_(Qel::make<Qel::Dir>("")) {
  modelEntity_ = newEntity(*root_, "snmp/misc", "generalMib", kModelType);
  model_ = Qel::genericIf(modelEntity_);
  agentRoot_ = Qel::genericIf(newEntity(*root_, "snmp/agent", "misc", kAgentRootType));
  const Qel::Ptr<System::ResetCauseHistory const> history = database.resetHistory();
  agentRoot_->attributeIs(kAgentAttribute, {database.redundancyStatus(), modelEntity_, history,
                                            database.entityManager(), Qel::String(cellType)});
  SnmpUtil::rootIs(root_);
}

StateTree::~StateTree() {
  SnmpUtil::rootIs(nullptr);
  agentRoot_->attributeDel(kAgentAttribute);
}

std::optional<U32> StateTree::rowsOf(U32 unit) const {
  return toldBy<U32>([&] { return model_->operation("reloadCauseTableRows", {unit}).toU32(); });
}

Qel::Ptr<System::ResetInstance const> StateTree::reloadOf(U32 unit) const {
  using Reload = Qel::Ptr<System::ResetInstance const>;
  return toldBy<Reload>([&]() -> Reload {
           const auto row =
               model_->operation(kTableAttribute, {firstKeyOf(unit)}).toPtr<Qel::PtrInterface>();
           if (!row) return nullptr;
           return Qel::genericIf(row)->attribute("resetCause").toPtr<System::ResetInstance const>();
         })
      .value_or(nullptr);
}

Qel::Ptr<Qel::PtrInterface> StateTree::follow(std::function<void()> call) const {
  using Notifiee = Qel::Ptr<Qel::PtrInterface>;
  // The model has one more attribute, its name, which never changes.
  return toldBy<Notifiee>([&]() -> Notifiee {
           return model_->type().genericNotifiee(
               modelEntity_, [call = std::move(call)](const auto&, const auto&) { call(); });
         })
      .value_or(nullptr);
}

std::optional<StateTree::Mount> StateTree::peerMount() const {
  return toldBy<Mount>([this] {
    const auto agent = objectAt(agentRoot_, kAgentAttribute);
    const auto machine = agent ? objectAt(agent, "resetHistorySm") : nullptr;
    if (!machine || !hasObject(machine, "peerCellResetHistoryStatusDirMounter")) {
      return Mount::none;
    }
    return hasObject(machine, "peerCellResetHistory") ? Mount::mounted : Mount::waiting;
  });
}

}  // namespace Host
