#include "System/ResetCauseHistoryCodec.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <map>
#include <numeric>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "Qel/FieldReader.h"
#include "Qel/Limits.h"
#include "Qel/Number.h"
#include "Qel/String.h"
#include "Qel/Types.h"
#include "System/ResetCause.h"
#include "System/ResetCauseHistory.h"
#include "System/ResetInstance.h"

namespace System {

namespace {

constexpr char kType[] = "System::ResetCauseHistory";

using Qel::Limits::kMostCauses;
using Qel::Limits::kMostDescriptionOctets;
using Qel::Limits::kMostReloads;
using Qel::Limits::kMostTextOctets;

using Causes = std::vector<ResetCause>;
using Reloads = std::map<U32, Causes>;

Qel::String readOptionalText(const Qel::DocumentReader& cause, std::string_view name) {
  const auto text = cause.optionalMember(name);
  return text ? text->readText(kMostTextOctets) : Qel::String();
}

ResetCause readCause(const Qel::DocumentReader& cause) {
  cause.needOnly({"description", "time", "recommendedAction", "detail"});
  const Qel::DocumentReader time = cause.member("time");
  const double seconds = time.readFiniteNumber();
  if (std::abs(seconds) > ResetCauseHistoryCodec::kMostTime)
    time.fail("outside the range of times");
  return {cause.member("description").readText(kMostDescriptionOctets), seconds,
          readOptionalText(cause, "recommendedAction"), readOptionalText(cause, "detail")};
}

// Nothing unless the text is the number's own, or two names could mean one reload.
std::optional<U32> indexOf(std::string_view name) {
  const auto index = Qel::numberOf<U32>(name);
  return index && fmt::format("{}", *index) == name ? index : std::nullopt;
}

U32 readIndex(std::string_view name, const Qel::DocumentReader& reload) {
  const auto index = indexOf(name);
  if (!index) reload.fail("the name is not a reload index, an unsigned 32-bit number");
  return *index;
}

Causes readCauses(const Qel::DocumentReader& reload) {
  reload.needOnly({"causeQ"});
  Causes causes;
  for (const auto& cause : reload.member("causeQ").readList(kMostCauses)) {
    causes.push_back(readCause(cause));
  }
  return causes;
}

Reloads readReloads(const Qel::Document& document) {
  const Qel::DocumentReader reader(document);
  reader.needOnly({"type", "rebootHistory"});
  Reloads reloads;
  for (const auto& [name, reload] : reader.member("rebootHistory").readMap(kMostReloads)) {
    if (!reloads.emplace(readIndex(name.view(), reload), readCauses(reload)).second) {
      reload.fail("stands twice");
    }
  }
  return reloads;
}

using RunStep = Qel::DocumentCodec::RunStep;

void delAbsent(ResetCauseHistory& history, const Reloads& reloads, const RunStep& run) {
  auto it = history.rebootHistory().iteratorConst();
  while (it) {
    const U32 index = it.key();
    it.advance();
    if (!reloads.contains(index)) run([&] { history.rebootHistoryDel(index); });
  }
}

void putReload(ResetCauseHistory& history, U32 index, const Causes& causes) {
  if (const auto present = history.rebootHistory(index)) {
    present->causeQIs(causes);
    return;
  }
  // Filled before it is stored, so that whoever hears of it sees its causes.
  const auto instance = Qel::make<ResetInstance>(index);
  instance->causeQIs(causes);
  history.rebootHistoryIs(instance);
}

void apply(ResetCauseHistory& history, const Reloads& reloads, const RunStep& run) {
  delAbsent(history, reloads, run);
  for (const auto& reload : reloads) {
    run([&] { putReload(history, reload.first, reload.second); });
  }
}

std::string_view takeText(Qel::FieldReader& fields, const std::string& name, std::size_t most) {
  const std::string_view text = fields.takeText(name);
  if (text.size() <= most) return text;
  throw Qel::DocumentException(
      name, fmt::format("text of {} bytes is longer than {}", text.size(), most));
}

ResetCause takeCause(Qel::FieldReader& fields, const std::string& prefix) {
  const std::string_view description = takeText(fields, prefix + "d", kMostDescriptionOctets);
  const double time = fields.takeFiniteNumber(prefix + "t");
  const std::string_view recommendedAction = takeText(fields, prefix + "a", kMostTextOctets);
  return {description, time, recommendedAction, takeText(fields, prefix + "b", kMostTextOctets)};
}

Causes takeCauses(Qel::FieldReader& fields, U32 index) {
  const std::string countName = fmt::format("{}:n", index);
  const U32 count = fields.takeU32(countName);
  if (count > kMostCauses) {
    throw Qel::DocumentException(countName, "more causes than a reload may have");
  }
  Causes causes;
  for (U32 i = 0; i < count; ++i) {
    causes.push_back(takeCause(fields, fmt::format("{}:{}:", index, i)));
  }
  return causes;
}

// A text that may be left out is left out when it is empty, as publishers do.
Qel::Document documentOf(const ResetCause& cause) {
  static const Qel::String kDescription = "description", kTime = "time",
                           kRecommendedAction = "recommendedAction", kDetail = "detail";
  Qel::Document::Map map{{kDescription, cause.description()}, {kTime, cause.time()}};
  const auto addOptional = [&map](const Qel::String& name, const Qel::String& text) {
    if (!text.empty()) map.emplace_back(name, text);
  };
  addOptional(kRecommendedAction, cause.recommendedAction());
  addOptional(kDetail, cause.detail());
  return map;
}

// A map of one member. A list of initializers would copy the value.
Qel::Document::Map mapOf(const Qel::String& name, Qel::Document value) {
  Qel::Document::Map map;
  map.emplace_back(name, std::move(value));
  return map;
}

Qel::Document documentOf(const Reloads& reloads) {
  Qel::Document::Map map;
  for (const auto& [index, causes] : reloads) {
    Qel::Document::List list;
    list.reserve(causes.size());
    for (const ResetCause& cause : causes) list.push_back(documentOf(cause));
    map.emplace_back(fmt::format("{}", index), mapOf("causeQ", std::move(list)));
  }
  Qel::Document::Map document = mapOf("type", kType);
  document.emplace_back("rebootHistory", std::move(map));
  return document;
}

// The reload indexes that have a count, "R:n", in ascending order: fields come in any.
std::vector<U32> indexesOf(const Qel::DocumentCodec::Fields& fields) {
  std::vector<U32> indexes;
  for (const auto& [name, value] : fields) {
    if (!name.ends_with(":n")) continue;
    const auto index = indexOf(std::string_view(name).substr(0, name.size() - 2));
    if (!index) throw Qel::DocumentException(name, "unknown field");
    indexes.push_back(*index);
  }
  std::sort(indexes.begin(), indexes.end());
  return indexes;
}

}  // namespace

Qel::Ptr<Qel::Entity> ResetCauseHistoryCodec::newEntity(const Qel::Name& name) const {
  return Qel::make<ResetCauseHistory>(name);
}

Qel::DocumentCodec::Change ResetCauseHistoryCodec::decode(const Qel::Document& document) const {
  return [reloads = readReloads(document)](Qel::Entity& entity, const RunStep& run) {
    apply(dynamic_cast<ResetCauseHistory&>(entity), reloads, run);
  };
}

Qel::DocumentCodec::Fields ResetCauseHistoryCodec::fieldsOf(const Qel::Document& document) const {
  const Reloads reloads = readReloads(document);
  Fields fields;
  fields.reserve(std::accumulate(
      reloads.begin(), reloads.end(), std::size_t{1},
      [](std::size_t sum, const auto& reload) { return sum + 1 + 4 * reload.second.size(); }));
  if (!reloads.empty()) fields.emplace_back("n", fmt::format("{}", reloads.size()));
  for (const auto& [index, causes] : reloads) {
    fields.emplace_back(fmt::format("{}:n", index), fmt::format("{}", causes.size()));
    for (std::size_t i = 0; i < causes.size(); ++i) {
      const std::string prefix = fmt::format("{}:{}:", index, i);
      fields.emplace_back(prefix + "d", causes[i].description().view());
      fields.emplace_back(prefix + "t", fmt::format("{}", causes[i].time()));
      fields.emplace_back(prefix + "a", causes[i].recommendedAction().view());
      fields.emplace_back(prefix + "b", causes[i].detail().view());
    }
  }
  return fields;
}

Qel::Document ResetCauseHistoryCodec::documentOf(const Fields& fields) const {
  const std::vector<U32> indexes = indexesOf(fields);
  Qel::FieldReader reader(fields);
  const U32 count = fields.empty() ? 0 : reader.takeU32("n");
  if (count != indexes.size() || count > kMostReloads) {
    throw Qel::DocumentException("n", "is not the number of reloads that stand there");
  }
  Reloads reloads;
  for (const U32 index : indexes) reloads.emplace(index, takeCauses(reader, index));
  reader.needNoMore();
  return System::documentOf(reloads);
}

Qel::Document ResetCauseHistoryCodec::canonicalFormOf(const Qel::Document& document) const {
  return System::documentOf(readReloads(document));
}

}  // namespace System
