#pragma once

#include "MiscSnmp/ReloadCauseKey.h"
#include "Qel/GenericIf.h"
#include "Qel/GenericValue.h"
#include "Qel/Ptr.h"
#include "Qel/String.h"

namespace MiscSnmp {

// A key as it passes through the reflective interface: its three fields can be read, it compares
// with other keys, and everything else (writing a field, hashing) is refused.
class ReloadCauseKeyIf final : public Qel::GenericIfImpl {
 public:
  explicit ReloadCauseKeyIf(const ReloadCauseKey& key);

  // The key in `value`. Raises Qel::TypeException when there is none.
  static ReloadCauseKey keyOf(const Qel::GenericValue& value);
  // The key whose text form is the whole of `text`. Raises Qel::ParseException otherwise.
  static Qel::Ptr<Qel::GenericIf> valueOfStrep(const Qel::String& text);

  const ReloadCauseKey& key() const noexcept { return key_; }

  Qel::String strep() const override { return valueToStrep(key_); }
  Qel::GenericValue attribute(const Qel::String& name) const override;
  bool isEqual(const Qel::GenericIf& other) const override;
  bool isLess(const Qel::GenericIf& other) const override;
  bool isZero() const override { return key_ == ReloadCauseKey(); }
  const void* pointer(const Qel::TypeNode& wanted) const override;

 private:
  const ReloadCauseKey key_;
};

}  // namespace MiscSnmp
