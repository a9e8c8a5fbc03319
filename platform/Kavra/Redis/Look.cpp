#include "Kavra/Redis/Look.h"

#include <algorithm>
#include <iterator>
#include <utility>

#include "Kavra/Redis/DocumentHash.h"
#include "Kavra/Redis/Owners.h"
#include "Qel/Assert.h"

namespace Kavra::Redis {

namespace {

std::optional<std::string> checkOf(const Qel::String& path, const Qel::Document& document) {
  const auto fields = fieldsOf(path, document);
  const auto& [name, value] = fields.back();
  return name == kCheckField ? std::optional(value) : std::nullopt;
}

std::optional<std::string> textOf(const Reply& reply) {
  return reply.isText() ? std::optional(reply.text) : std::nullopt;
}

}  // namespace

Look::Look(const Claim& claim, const Store::Documents& documents,
           const std::map<Qel::String, std::string>& index, const ServerState& state,
           const Checks& checks)
    : state_(state), commands_{ServerState::epochCommand(), ServerState::logCommand()} {
  if (!claim.places.empty()) {
    expect(renewalOf(claim), {markOf(claim)});
    expect({"HGET", kOwnersKey, claim.name()}, {kNamed});
  }
  for (const auto& [path, document] : documents) {
    expect({"HGET", kIndexKey, path.stdString()}, {index.at(path)});
    const std::string key = keyOf(path);
    const auto known = checks.find(key);
    expect({"HMGET", key, kVersionField, kCheckField},
           {kVersion, known == checks.end() ? checkOf(path, document) : known->second});
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
