#include "Kavra/Redis/Look.h"

#include <algorithm>
#include <iterator>
#include <utility>

#include "Kavra/Redis/DocumentHash.h"
#include "Kavra/Redis/Owners.h"
#include "Qel/Assert.h"

namespace Kavra::Redis {

namespace {

std::optional<std::string> fieldOf(const Qel::DocumentCodec::Fields& fields, const char* name) {
  const auto found = std::find_if(fields.begin(), fields.end(),
                                  [name](const auto& field) { return field.first == name; });
  return found == fields.end() ? std::nullopt : std::optional(found->second);
}

std::optional<std::string> textOf(const Reply& reply) {
  return reply.isText() ? std::optional(reply.text) : std::nullopt;
}

}  // namespace

Look::Look(const Claim& claim, const Store::Documents& documents,
           const std::map<Qel::String, std::string>& index, const ServerState& state)
    : state_(state), commands_{ServerState::epochCommand(), ServerState::logCommand()} {
  if (!claim.places.empty()) {
    expect(renewalOf(claim), {markOf(claim)});
    expect({"HGET", kOwnersKey, claim.name()}, {kNamed});
  }
  for (const auto& [path, document] : documents) {
    expect({"HGET", kIndexKey, path.stdString()}, {index.at(path)});
    const auto fields = fieldsOf(path, document);
    expect({"HMGET", keyOf(path), kVersionField, kCheckField},
           {fieldOf(fields, kVersionField), fieldOf(fields, kCheckField)});
  }
}

void Look::expect(Command command, Texts texts) {
  commands_.push_back(std::move(command));
  expected_.push_back(std::move(texts));
}

bool Look::isAsBefore(const std::vector<Reply>& outcome) const {
  QEL_ASSERT(outcome.size() == commands_.size());
  if (ServerState(outcome[0], outcome[1]) != state_) return false;
  for (std::size_t i = 0; i < expected_.size(); ++i) {
    const Reply& reply = outcome[i + 2];
    Texts texts;
    std::transform(reply.elements.begin(), reply.elements.end(), std::back_inserter(texts), textOf);
    if (!reply.isArray()) texts.push_back(textOf(reply));
    if (texts != expected_[i]) return false;
  }
  return true;
}

}  // namespace Kavra::Redis
