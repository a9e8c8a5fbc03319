#include "Redundancy/RedundancyStatusCodec.h"

#include <string>

#include "Qel/FieldReader.h"
#include "Qel/Types.h"
#include "Redundancy/RedundancyProtocol.h"
#include "Redundancy/RedundancyStatus.h"

namespace Redundancy {

namespace {

constexpr char kType[] = "Redundancy::RedundancyStatus";

struct Status {
  RedundancyProtocol protocol;
  bool switchoverCapable;
};

Status readStatus(const Qel::Document& document) {
  const Qel::DocumentReader reader(document);
  reader.needOnly({"type", "protocol", "switchoverCapable"});
  return {RedundancyProtocol{reader.member("protocol").readU32()},
          reader.member("switchoverCapable").readBool()};
}

}  // namespace

Qel::Ptr<Qel::Entity> RedundancyStatusCodec::newEntity(const Qel::Name& name) const {
  return Qel::make<RedundancyStatus>(name);
}

Qel::DocumentCodec::Change RedundancyStatusCodec::decode(const Qel::Document& document) const {
  return [status = readStatus(document)](Qel::Entity& entity, const RunStep& run) {
    auto& changed = dynamic_cast<RedundancyStatus&>(entity);
    run([&] { changed.statusIs(status.protocol, status.switchoverCapable); });
  };
}

Qel::DocumentCodec::Fields RedundancyStatusCodec::fieldsOf(const Qel::Document& document) const {
  const Status status = readStatus(document);
  return {{"protocol", std::to_string(static_cast<U32>(status.protocol))},
          {"switchoverCapable", status.switchoverCapable ? "true" : "false"}};
}

Qel::Document RedundancyStatusCodec::documentOf(const Fields& fields) const {
  Qel::FieldReader reader(fields);
  Qel::Document::Map document;
  document.emplace_back("type", kType);
  document.emplace_back("protocol", reader.takeU32("protocol"));
  document.emplace_back("switchoverCapable", reader.takeBool("switchoverCapable"));
  reader.needNoMore();
  return document;
}

}  // namespace Redundancy
