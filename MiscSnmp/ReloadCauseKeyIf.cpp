#include "MiscSnmp/ReloadCauseKeyIf.h"

#include "Qel/PtrInterface.h"
#include "Qel/Strep.h"
#include "Qel/TypeNode.h"

namespace MiscSnmp {

namespace {

const ReloadCauseKey& keyIn(const Qel::PtrInterface& value) {
  return dynamic_cast<const ReloadCauseKeyIf&>(value).key();
}

const auto registration = Qel::typeNodeIs({
    .name = "MiscSnmp::ReloadCauseKey",
    .attributes = {{"unitIndex", [](const auto& value) { return keyIn(value).unitIndex(); }},
                   {"instanceIndex",
                    [](const auto& value) { return keyIn(value).instanceIndex(); }},
                   {"causeIndex", [](const auto& value) { return keyIn(value).causeIndex(); }}},
    .valueOfStrep = &ReloadCauseKeyIf::valueOfStrep,
});

const ReloadCauseKey& keyBehind(const Qel::GenericIf& value) {
  return *static_cast<const ReloadCauseKey*>(value.pointer(registration->node()));
}

}  // namespace

ReloadCauseKeyIf::ReloadCauseKeyIf(const ReloadCauseKey& key)
    : Qel::GenericIfImpl(registration->node()), key_(key) {}

ReloadCauseKey ReloadCauseKeyIf::keyOf(const Qel::GenericValue& value) {
  return keyBehind(*value.toGenericIf());
}

Qel::Ptr<Qel::GenericIf> ReloadCauseKeyIf::valueOfStrep(const Qel::String& text) {
  Qel::String::IteratorConst pos = text.begin();
  const ReloadCauseKey key(pos, text.end());
  Qel::strepToValueEnd(text, pos);
  return Qel::make<ReloadCauseKeyIf>(key);
}

Qel::GenericValue ReloadCauseKeyIf::attribute(const Qel::String& name) const {
  const Qel::GenericAttribute* found = type().attribute(name);
  if (found == nullptr) throwNotSupported(type().name(), name, "read");
  return found->read(*this);
}

bool ReloadCauseKeyIf::isEqual(const Qel::GenericIf& other) const {
  return key_ == keyBehind(other);
}

bool ReloadCauseKeyIf::isLess(const Qel::GenericIf& other) const { return key_ < keyBehind(other); }

const void* ReloadCauseKeyIf::pointer(const Qel::TypeNode& wanted) const {
  needType(wanted);
  return &key_;
}

}  // namespace MiscSnmp
