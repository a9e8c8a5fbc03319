#include "Kavra/Redis/DocumentHash.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

#include "Kavra/CheckedDocument.h"
#include "Qel/Escape.h"
#include "Qel/Exception.h"
#include "Qel/TypeNode.h"

namespace Kavra::Redis {

namespace {

using Fields = Qel::DocumentCodec::Fields;

constexpr std::string_view kKeyStart = "kavra:e:";
constexpr char kTypeField[] = "_t";

bool endsInNames(std::string_view path, std::string_view end) noexcept {
  if (end.empty() || !path.ends_with(end)) return false;
  return path.size() == end.size() || path[path.size() - end.size() - 1] == '/';
}

// The name of the type that stands by convention at `path`, or empty.
Qel::String usualTypeOf(const Qel::String& path) {
  for (const Qel::TypeNode* node : Qel::typeNodes()) {
    const Qel::DocumentCodec* codec = node->documentCodec();
    if (codec != nullptr && endsInNames(path.view(), codec->pathEnd())) return node->name();
  }
  return {};
}

// FNV-1a with 64 bits: no secret, but no accident leaves it as it was.
class Check {
 public:
  void add(std::string_view text) noexcept {
    // The size goes in first, or the same octets could be split otherwise.
    for (std::uint64_t size = text.size(), i = 0; i < sizeof(size); ++i, size >>= 8) octet(size);
    for (const char c : text) octet(static_cast<unsigned char>(c));
  }
  std::string text() const { return fmt::format("{:016x}", value_); }

 private:
  void octet(std::uint64_t value) noexcept {
    constexpr std::uint64_t kPrime = 0x100000001b3;
    value_ = (value_ ^ (value & 0xff)) * kPrime;
  }

  std::uint64_t value_ = 0xcbf29ce484222325;
};

// A field with the first octets of its name as a number: of the names that there are, most differ
// there, and it is the order of the fields that costs.
struct Place {
  explicit Place(const Fields::value_type& it) noexcept : field(&it) {
    for (std::size_t i = 0; i < sizeof(start); ++i) {
      start = start << 8 | (i < it.first.size() ? static_cast<unsigned char>(it.first[i]) : 0U);
    }
  }
  friend bool operator<(const Place& a, const Place& b) noexcept {
    return a.start != b.start ? a.start < b.start : *a.field < *b.field;
  }

  std::uint64_t start = 0;
  const Fields::value_type* field;
};

std::string checkOf(const Fields& fields) {
  std::vector<Place> sorted(fields.begin(), fields.end());
  // In the order in which a codec makes them, std::sort() falls back to its slowest way.
  std::stable_sort(sorted.begin(), sorted.end());
  Check check;
  for (const Place& place : sorted) {
    check.add(place.field->first);
    check.add(place.field->second);
  }
  return check.text();
}

Fields fieldsIn(Reply hash) {
  if (hash.isError()) throw Qel::DocumentException("", hash.text);
  if (!hash.isArray() || hash.elements.size() % 2 != 0) {
    throw Qel::DocumentException("", "expected a hash but found " + hash.description());
  }
  Fields fields;
  fields.reserve(hash.elements.size() / 2);
  for (std::size_t i = 0; i < hash.elements.size(); i += 2) {
    Reply& name = hash.elements[i];
    Reply& value = hash.elements[i + 1];
    if (!name.isText() || !value.isText()) {
      throw Qel::DocumentException("", "a field is not made of texts");
    }
    fields.emplace_back(std::move(name.text), std::move(value.text));
  }
  return fields;
}

std::optional<std::string> takeField(Fields& fields, std::string_view name) {
  const auto found = std::find_if(fields.begin(), fields.end(),
                                  [name](const auto& field) { return field.first == name; });
  if (found == fields.end()) return {};
  std::swap(*found, fields.back());
  std::string value = std::move(fields.back().second);
  fields.pop_back();
  return value;
}

Qel::Document documentIn(const Qel::String& path, Fields fields) {
  const auto check = takeField(fields, kCheckField);
  if (check && *check != checkOf(fields)) {
    throw Qel::DocumentException(kCheckField, "the fields are not those that were published");
  }
  const auto version = takeField(fields, kVersionField);
  if (version != kVersion) {
    throw Qel::DocumentException(kVersionField, version ? "unknown version" : "field is missing");
  }
  const auto named = takeField(fields, kTypeField);
  const Qel::String type = named ? Qel::String(*named) : usualTypeOf(path);
  if (type.empty()) throw Qel::DocumentException(kTypeField, "field is missing");
  try {
    return codecOf(type).documentOf(fields);
  } catch (const Qel::RangeException& error) {
    throw Qel::DocumentException(kTypeField, error.what());
  }
}

}  // namespace

std::string keyOf(const Qel::String& path) { return std::string(kKeyStart) + path.stdString(); }

std::optional<Qel::String> pathOfKey(std::string_view key) {
  if (!key.starts_with(kKeyStart)) return {};
  return Qel::String(key.substr(kKeyStart.size()));
}

Fields fieldsOf(const Qel::String& path, const Qel::Document& document) {
  const Qel::String type = typeOf(document);
  Fields fields = codecOf(type).fieldsOf(document);
  fields.emplace_back(kVersionField, kVersion);
  if (type != usualTypeOf(path)) fields.emplace_back(kTypeField, type.stdString());
  if (fields.size() > 1) fields.emplace_back(kCheckField, checkOf(fields));
  return fields;
}

DocumentHash::DocumentHash(const Qel::String& path, Reply hash) {
  // No such key: HGETALL answers with no field.
  if (hash.isArray() && hash.elements.empty()) return;
  try {
    Fields fields = fieldsIn(std::move(hash));
    // Of the version alone there is none.
    hasCheck = fields.size() == 1 || std::any_of(fields.begin(), fields.end(), [](const auto& it) {
                 return it.first == kCheckField;
               });
    document = documentIn(path, std::move(fields));
  } catch (const Qel::DocumentException& error) {
    // Field names come from the server; whatever they hold stays one line.
    problem = Qel::printableLine(fmt::format("key {}, field {}", keyOf(path), error.what()));
  }
}

}  // namespace Kavra::Redis
