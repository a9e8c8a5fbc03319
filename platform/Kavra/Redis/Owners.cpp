#include "Kavra/Redis/Owners.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <optional>

#include "Kavra/Json/Text.h"
#include "Kavra/Redis/MultiExec.h"
#include "Kavra/Redis/Reply.h"
#include "Kavra/Store.h"
#include "Qel/Document.h"

namespace Kavra::Redis {

namespace {

using Qel::Document;

constexpr char kMarkStart[] = "kavra:owner:";
// A publisher looks once a second, and may have to wait for a server for three.
constexpr char kMarkMilliseconds[] = "5000";
constexpr int kMostAttempts = 100;

Qel::String textIn(const Document& mark, const char* name) {
  const auto* text = mark.memberAs<Qel::String>(name);
  return text == nullptr ? Qel::String() : *text;
}

// What a mark says, or nothing where it is none.
std::optional<Claim> claimIn(const Reply& mark) {
  if (!mark.isText()) return {};
  try {
    const Document document = Json::read(mark.text);
    Claim claim{textIn(document, "host"), textIn(document, "boot"), textIn(document, "file"), {}};
    const auto* list = document.memberAs<Document::List>("owns");
    if (list == nullptr) return {};
    for (const Document& place : *list) {
      if (const auto* text = place.as<Qel::String>()) claim.places.insert(*text);
    }
    return claim;
  } catch (const Json::Exception&) {
    return {};
  }
}

[[noreturn]] void refuse(const Qel::String& place, const Claim& owner) {
  throw OwnedException(fmt::format("{} belongs to {}", place.view(), owner.publisher().view()));
}

}  // namespace

std::string markKeyOf(const Claim& claim) { return kMarkStart + claim.name(); }

std::string markOf(const Claim& claim) {
  const Document::List places(claim.places.begin(), claim.places.end());
  return Json::write(
      Document::Map{
          {"host", claim.host}, {"boot", claim.boot}, {"file", claim.file}, {"owns", places}},
      Json::Form::line);
}

Command renewalOf(const Claim& claim) {
  return {"GETEX", markKeyOf(claim), "PX", kMarkMilliseconds};
}

Owners::Owners(Client& client) : client_(client) {
  const auto replies = client.request({{"WATCH", kOwnersKey}, {"HGETALL", kOwnersKey}});
  if (!replies[0].isStatus("OK")) client.fail("WATCH: " + replies[0].description());
  const Reply& names = replies[1];
  if (!names.isArray()) problem_ = fmt::format("key {}: {}", kOwnersKey, names.description());
  if (names.elements.size() < 2) return;
  Command watch{"WATCH"};
  std::vector<Command> commands;
  for (std::size_t i = 0; i + 1 < names.elements.size(); i += 2) {
    watch.push_back(kMarkStart + names.elements[i].text);
    commands.push_back({"GET", watch.back()});
  }
  commands.insert(commands.begin(), watch);
  const auto marks = client.request(commands);
  for (std::size_t i = 1; i < marks.size(); ++i) {
    if (auto claim = claimIn(marks[i])) {
      living_.push_back(std::move(*claim));
    } else if (marks[i].isNil()) {
      dead_.push_back(names.elements[2 * (i - 1)].text);
    }
  }
}

void Owners::needUnowned(const std::vector<Qel::String>& paths) const {
  if (!problem_.empty()) client_.fail(problem_);
  for (const Claim& claim : living_) {
    const auto path = std::find_if(paths.begin(), paths.end(),
                                   [&](const Qel::String& each) { return claim.covers(each); });
    if (path != paths.end()) refuse(*path, claim);
  }
}

bool Owners::claimIs(const Claim& claim) const {
  for (const Claim& other : living_) {
    if (other.name() == claim.name() || !other.overlaps(claim)) continue;
    const auto place =
        std::find_if(claim.places.begin(), claim.places.end(), [&](const Qel::String& each) {
          return other.overlaps(Claim{{}, {}, {}, {each}});
        });
    refuse(*place, other);
  }
  std::vector<Command> commands{{"SET", markKeyOf(claim), markOf(claim), "PX", kMarkMilliseconds}};
  if (!problem_.empty()) commands.push_back({"DEL", kOwnersKey});
  if (!dead_.empty()) {
    Command forget{"HDEL", kOwnersKey};
    forget.insert(forget.end(), dead_.begin(), dead_.end());
    commands.push_back(std::move(forget));
  }
  commands.push_back({"HSET", kOwnersKey, claim.name(), kNamed});
  const auto replies = client_.request(multiExec(commands));
  try {
    return !execReply(replies, commands.size()).isNil();
  } catch (const StoreException& error) {
    client_.fail(error.what());
  }
}

void needClaim(Client& client, const Claim& claim) {
  if (claim.places.empty()) return;
  const auto replies = client.request({renewalOf(claim), {"HGET", kOwnersKey, claim.name()}});
  const bool stands = replies[0].isText() && replies[0].text == markOf(claim);
  if (stands && replies[1].isText()) return;
  for (int attempt = 0; attempt < kMostAttempts; ++attempt) {
    if (Owners(client).claimIs(claim)) return;
  }
  client.fail("other publishers are faster, again and again");
}

void watchClaim(Client& client, const Claim& claim) {
  if (claim.places.empty()) return;
  const std::string key = markKeyOf(claim);
  const auto replies = client.request({{"WATCH", key}, {"GET", key}});
  if (replies[1].isText() && replies[1].text == markOf(claim)) return;
  client.fail("the mark of this publisher expired");
}

}  // namespace Kavra::Redis
