#include "MiscSnmp/ReloadCauseEntry.h"

#include "MiscSnmp/ReloadCauseKeyIf.h"
#include "Qel/GenericIf.h"
#include "Qel/TypeNode.h"

namespace MiscSnmp {

namespace {

const ReloadCauseEntry& entryOf(const Qel::PtrInterface& object) {
  return dynamic_cast<const ReloadCauseEntry&>(object);
}

const auto registration = Qel::typeNodeIs({
    .name = "MiscSnmp::ReloadCauseEntry",
    .attributes = {{"key",
                    [](const auto& object) {
                      return Qel::Ptr<Qel::GenericIf>(
                          Qel::make<ReloadCauseKeyIf>(entryOf(object).key()));
                    }},
                   {"resetCause", [](const auto& object) { return entryOf(object).resetCause(); }},
                   {"unitIndex", [](const auto& object) { return entryOf(object).unitIndex(); }},
                   {"reloadIndex",
                    [](const auto& object) { return entryOf(object).reloadIndex(); }},
                   {"causeIndex", [](const auto& object) { return entryOf(object).causeIndex(); }},
                   {"causeDesc", [](const auto& object) { return entryOf(object).causeDesc(); }},
                   {"reloadTime", [](const auto& object) { return entryOf(object).reloadTime(); }}},
});

}  // namespace

ReloadCauseEntry::ReloadCauseEntry(const ReloadCauseKey& key,
                                   const Qel::Ptr<System::ResetInstance const>& resetCause)
    : Keyed(key), resetCause_(resetCause) {
  // Whoever makes rows goes through the queue in its order: what a look passes is at hand.
  cause();
}

const Qel::TypeNode* ReloadCauseEntry::fwkType() const { return &registration->node(); }

}  // namespace MiscSnmp
