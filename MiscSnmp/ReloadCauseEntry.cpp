#include "MiscSnmp/ReloadCauseEntry.h"

#include <cstdint>

#include "MiscSnmp/ReloadCauseKeyIf.h"
#include "Qel/GenericIf.h"
#include "Qel/TypeNode.h"
#include "System/ResetCause.h"

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

U32 wholeSeconds(double time) {
  // C++ defines the conversion for what fits alone.
  constexpr double kEnd = 9223372036854775808.0;  // 2^63
  if (!(time >= -kEnd && time < kEnd)) return 0;
  return static_cast<U32>(static_cast<std::int64_t>(time));
}

}  // namespace

ReloadCauseEntry::ReloadCauseEntry(const ReloadCauseKey& key,
                                   const Qel::Ptr<System::ResetInstance const>& resetCause)
    : key_(key), resetCause_(resetCause) {}

template <class Read>
auto ReloadCauseEntry::ofCause(const Read& read) const {
  // Managers count causes from 1, the queue from 0; cause index 0 wraps to a key that no queue has.
  const System::ResetCause* const cause = resetCause_->causeQ().value(key_.causeIndex() - 1U);
  return cause != nullptr ? read(*cause) : read(System::ResetCause());
}

Qel::String ReloadCauseEntry::causeDesc() const {
  return ofCause([](const System::ResetCause& cause) { return cause.description(); });
}

U32 ReloadCauseEntry::reloadTime() const {
  return ofCause([](const System::ResetCause& cause) { return wholeSeconds(cause.time()); });
}

const Qel::TypeNode* ReloadCauseEntry::fwkType() const { return &registration->node(); }

}  // namespace MiscSnmp
