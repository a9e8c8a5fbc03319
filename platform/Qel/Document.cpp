#include "Qel/Document.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <limits>

namespace Qel {

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

void DocumentReader::fail(std::string_view problem) const {
  throw DocumentException(place_, problem);
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
  for (std::size_t i = 0; i < list->size(); ++i) {
    readers.push_back(child(fmt::format("{}", i), (*list)[i]));
  }
  return readers;
}

std::vector<std::pair<String, DocumentReader>> DocumentReader::readMap(
    std::size_t mostMembers) const {
  const auto* map = document_->as<Document::Map>();
  if (map == nullptr) fail(fmt::format("expected a map but found {}", document_->kind()));
  if (map->size() > mostMembers) {
    fail(fmt::format("map of {} members is larger than {}", map->size(), mostMembers));
  }
  std::vector<std::pair<String, DocumentReader>> readers;
  readers.reserve(map->size());
  for (const auto& [name, value] : *map) readers.emplace_back(name, child(name.view(), value));
  return readers;
}

DocumentReader DocumentReader::member(std::string_view name) const {
  if (document_->as<Document::Map>() == nullptr) {
    fail(fmt::format("expected a map but found {}", document_->kind()));
  }
  const Document* value = document_->member(name);
  if (value == nullptr) fail(fmt::format("member '{}' is missing", name));
  return child(name, *value);
}

const Document* DocumentReader::optionalMember(std::string_view name) const {
  return document_->member(name);
}

DocumentReader DocumentReader::child(std::string_view name, const Document& value) const {
  DocumentReader reader(value);
  reader.place_ = fmt::format("{}/{}", place_, name);
  return reader;
}

void DocumentReader::needOnly(std::initializer_list<std::string_view> names) const {
  for (const auto& [name, reader] : readMap(std::numeric_limits<std::size_t>::max())) {
    if (std::find(names.begin(), names.end(), name.view()) == names.end()) {
      fail(fmt::format("unknown member '{}'", name.view()));
    }
  }
}

}  // namespace Qel
