#pragma once

#include <string_view>

#include "Qel/Document.h"
#include "Qel/Entity.h"
#include "Qel/Name.h"
#include "Qel/Ptr.h"

namespace Redundancy {

// {"type": "Redundancy::RedundancyStatus", "protocol": 3, "switchoverCapable": true}
//
// Flat fields: "protocol" (decimal), "switchoverCapable" ("true" or "false"). Both members are
// required.
class RedundancyStatusCodec final : public Qel::DocumentCodec {
 public:
  std::string_view pathEnd() const override { return "redundancy/status"; }
  Qel::Ptr<Qel::Entity> newEntity(const Qel::Name& name) const override;
  Change decode(const Qel::Document& document) const override;
  Fields fieldsOf(const Qel::Document& document) const override;
  Qel::Document documentOf(const Fields& fields) const override;
};

}  // namespace Redundancy
