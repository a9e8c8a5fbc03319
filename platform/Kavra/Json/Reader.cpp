#include "Kavra/Json/Reader.h"

#include <algorithm>
#include <optional>

#include "Kavra/Json/Base64.h"
#include "Qel/Limits.h"

namespace Kavra::Json {

namespace {

constexpr std::size_t kMostProblemBytes = 240;
constexpr char kBase64[] = "base64";

// The parser's text without the tag that it begins with, as "[json.exception.parse_error.101] ".
std::string withoutTag(std::string_view text) {
  const std::size_t end = text.starts_with('[') ? text.find("] ") : std::string_view::npos;
  return std::string(end == std::string_view::npos ? text : text.substr(end + 2));
}

}  // namespace

bool Reader::null() { return put({}); }
bool Reader::boolean(bool value) { return put(value); }
bool Reader::number_integer(std::int64_t value) { return put(value); }
bool Reader::number_unsigned(std::uint64_t value) { return put(value); }

bool Reader::number_float(double value, const std::string& text) {
  // The parser falls back to a double for an integer that does not fit.
  if (text.find_first_of(".eE") == std::string::npos) {
    return fail("integer " + text + " has more than 64 bits");
  }
  return put(value);
}

bool Reader::string(std::string& value) {
  // It may stand for a text of other octets; the end of the map will tell.
  const bool mayStand = !levels_.empty() && levels_.back().isMap && levels_.back().map.empty() &&
                        levels_.back().name == kBase64;
  return mayStand ? keep(Qel::String(value)) : put(Qel::String(value));
}

bool Reader::binary(nlohmann::json::binary_t& /*value*/) {
  return fail("binary values are no JSON");
}

bool Reader::start_object(std::size_t /*members*/) { return open(true); }
bool Reader::start_array(std::size_t /*items*/) { return open(false); }

bool Reader::key(std::string& name) {
  Level& level = levels_.back();
  const auto known = names_.lower_bound(std::string_view(name));
  const bool isKnown = known != names_.end() && known->view() == name;
  level.name = isKnown ? *known : *names_.emplace_hint(known, name);
  return !standsTwice(level) || fail("member stands twice");
}

bool Reader::standsTwice(Level& level) {
  constexpr std::size_t kMany = 16;
  const auto hasName = [&level](const auto& member) { return member.first == level.name; };
  if (level.map.size() < kMany) return std::ranges::any_of(level.map, hasName);
  if (level.names.empty()) {
    for (const auto& [name, value] : level.map) level.names.insert(name.charPtr());
  }
  return !level.names.insert(level.name.charPtr()).second;
}

bool Reader::end_object() {
  Qel::Document::Map map = std::move(levels_.back().map);
  levels_.pop_back();
  const bool mayStand = !map.empty() && map.front().first == kBase64;
  const auto* text = mayStand ? map.front().second.as<Qel::String>() : nullptr;
  if (text == nullptr) return put(std::move(map));
  if (map.size() > 1) {
    if (!size_.add(map.front().first.bytes() + text->bytes())) return fail(size_.problem());
    return put(std::move(map));
  }
  const auto octets = ofBase64(text->view());
  return octets ? put(Qel::String(*octets)) : fail("not the base64 form of a text");
}

bool Reader::end_array() {
  Qel::Document::List list = std::move(levels_.back().list);
  levels_.pop_back();
  return put(std::move(list));
}

bool Reader::parse_error(std::size_t /*position*/, const std::string& /*token*/,
                         const nlohmann::json::exception& error) {
  problem_ = withoutTag(error.what());
  // The parser quotes what it read last, however long that is.
  if (problem_.size() > kMostProblemBytes) problem_ = problem_.substr(0, kMostProblemBytes) + "...";
  // Only syntax errors carry their line and column.
  if (problem_.find(" at line ") == std::string::npos) problem_ = place() + ": " + problem_;
  return false;
}

bool Reader::put(Qel::Document value) {
  const bool isMember = !levels_.empty() && levels_.back().isMap;
  const std::size_t nameOctets = isMember ? levels_.back().name.bytes() : 0;
  if (!size_.add(nameOctets + octetsOf(value))) return fail(size_.problem());
  return keep(std::move(value));
}

bool Reader::keep(Qel::Document value) {
  if (levels_.empty()) {
    root_ = std::move(value);
  } else if (Level& level = levels_.back(); level.isMap) {
    level.map.emplace_back(level.name, std::move(value));
  } else {
    level.list.push_back(std::move(value));
  }
  return true;
}

bool Reader::open(bool isMap) {
  if (levels_.size() == Qel::Limits::kMostLevels) {
    return fail("nested deeper than " + std::to_string(Qel::Limits::kMostLevels) + " levels");
  }
  levels_.push_back(Level{.isMap = isMap});
  return true;
}

bool Reader::fail(const std::string& problem) {
  problem_ = place() + ": " + problem;
  return false;
}

std::string Reader::place() const {
  std::string place;
  for (const Level& level : levels_) {
    place += "/";
    place += level.isMap ? level.name.stdString() : std::to_string(level.list.size());
  }
  return place.empty() ? "/" : place;
}

}  // namespace Kavra::Json
