#include "Qel/Document.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <limits>

namespace Qel {

namespace {

// Whether `value` is `whole` or in it; then the way to it is in `place`.
bool findPlace(const Document& whole, const Document& value, std::string& place) {
  if (&whole == &value) return true;
  const auto isIn = [&](auto name, const Document& inner) {
    if (!findPlace(inner, value, place)) return false;
    place.insert(0, fmt::format("/{}", name));
    return true;
  };
  if (const auto* map = whole.as<Document::Map>()) {
    return std::any_of(map->begin(), map->end(), [&](const auto& member) {
      return isIn(member.first.view(), member.second);
    });
  }
  const auto* list = whole.as<Document::List>();
  std::size_t index = 0;
  return list != nullptr && std::any_of(list->begin(), list->end(),
                                        [&](const Document& item) { return isIn(index++, item); });
}

}  // namespace

const Document* Document::member(std::string_view name) const noexcept {
  const Map* map = as<Map>();
  if (map == nullptr) return nullptr;
  const auto found = std::find_if(
      map->begin(), map->end(), [name](const auto& member) { return member.first.view() == name; });
  return found == map->end() ? nullptr : &found->second;
}

const char* Document::kind() const noexcept {
  constexpr const char* kKinds[] = {"null",     "a bool", "an integer", "an integer",
                                    "a number", "a text", "a list",     "a map"};
  return kKinds[value_.index()];
}

DocumentException::DocumentException(std::string_view place, std::string_view problem)
    : Exception(String(fmt::format("{}: {}", place.empty() ? "/" : place, problem))) {}

DocumentException::~DocumentException() = default;

std::string DocumentReader::place() const {
  std::string place;
  findPlace(*whole_, *document_, place);
  return place;
}

void DocumentReader::fail(std::string_view problem) const {
  throw DocumentException(place(), problem);
}

bool DocumentReader::readBool() const {
  const bool* value = document_->as<bool>();
  if (value == nullptr) fail(fmt::format("expected a bool but found {}", document_->kind()));
  return *value;
}

U32 DocumentReader::readU32() const {
  constexpr auto kMost = std::numeric_limits<U32>::max();
  if (const auto* value = document_->as<std::uint64_t>(); value != nullptr && *value <= kMost) {
    return static_cast<U32>(*value);
  }
  if (const auto* value = document_->as<std::int64_t>();
      value != nullptr && *value >= 0 && *value <= std::int64_t{kMost}) {
    return static_cast<U32>(*value);
  }
  const bool integer =
      document_->as<std::uint64_t>() != nullptr || document_->as<std::int64_t>() != nullptr;
  if (integer) fail("outside the range 0 to 4294967295");
  fail(fmt::format("expected an integer but found {}", document_->kind()));
}

double DocumentReader::readFiniteNumber() const {
  if (const auto* value = document_->as<std::uint64_t>()) return static_cast<double>(*value);
  if (const auto* value = document_->as<std::int64_t>()) return static_cast<double>(*value);
  const auto* value = document_->as<double>();
  if (value == nullptr) fail(fmt::format("expected a number but found {}", document_->kind()));
  if (!std::isfinite(*value)) fail("not a finite number");
  return *value;
}

String DocumentReader::readText(std::size_t mostBytes) const {
  const auto* value = document_->as<String>();
  if (value == nullptr) fail(fmt::format("expected a text but found {}", document_->kind()));
  if (value->bytes() > mostBytes) {
    fail(fmt::format("text of {} bytes is longer than {}", value->bytes(), mostBytes));
  }
  return *value;
}

std::vector<DocumentReader> DocumentReader::readList(std::size_t mostItems) const {
  const auto* list = document_->as<Document::List>();
  if (list == nullptr) fail(fmt::format("expected a list but found {}", document_->kind()));
  if (list->size() > mostItems) {
    fail(fmt::format("list of {} items is longer than {}", list->size(), mostItems));
  }
  std::vector<DocumentReader> readers;
  readers.reserve(list->size());
  for (const Document& item : *list) readers.push_back(DocumentReader(*whole_, item));
  return readers;
}

const Document::Map& DocumentReader::map() const {
  const auto* map = document_->as<Document::Map>();
  if (map == nullptr) fail(fmt::format("expected a map but found {}", document_->kind()));
  return *map;
}

std::vector<std::pair<String, DocumentReader>> DocumentReader::readMap(
    std::size_t mostMembers) const {
  const Document::Map& map = this->map();
  if (map.size() > mostMembers) {
    fail(fmt::format("map of {} members is larger than {}", map.size(), mostMembers));
  }
  std::vector<std::pair<String, DocumentReader>> readers;
  readers.reserve(map.size());
  for (const auto& [name, value] : map) readers.emplace_back(name, DocumentReader(*whole_, value));
  return readers;
}

DocumentReader DocumentReader::member(std::string_view name) const {
  map();
  const auto found = optionalMember(name);
  if (!found) fail(fmt::format("member '{}' is missing", name));
  return *found;
}

std::optional<DocumentReader> DocumentReader::optionalMember(std::string_view name) const {
  const Document* value = document_->member(name);
  return value == nullptr ? std::nullopt : std::optional(DocumentReader(*whole_, *value));
}

void DocumentReader::needOnly(std::initializer_list<std::string_view> names) const {
  for (const auto& [name, value] : map()) {
    if (std::find(names.begin(), names.end(), name.view()) == names.end()) {
      fail(fmt::format("unknown member '{}'", name.view()));
    }
  }
}

}  // namespace Qel
