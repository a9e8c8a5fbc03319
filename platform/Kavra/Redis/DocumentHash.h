#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include "Kavra/Redis/Reply.h"
#include "Qel/Document.h"
#include "Qel/Limits.h"
#include "Qel/String.h"

// How a document is kept in a Redis server: a hash under "kavra:e:" and its path, with the flat
// fields of its type beside these:
//
//   _v  the version of this form, "1"; always there, so that an empty document has a field, too
//   _t  the type, where the end of the path does not tell it (see DocumentCodec::pathEnd)
//   _c  a check over all other fields, where there are any but _v: 16 hexadecimal digits
//
// A hash without _c is taken as it is, so that one can be written by hand.
namespace Kavra::Redis {

inline constexpr char kVersionField[] = "_v";
inline constexpr char kVersion[] = "1";
inline constexpr char kCheckField[] = "_c";

// The most fields that a document of the greatest size has, as of Qel/Limits.h: four for each
// cause, of which a document has three values at least, and those beside.
inline constexpr std::size_t kMostFields = Qel::Limits::kMostDocumentValues / 3 * 4 + 8;

// The key of the document at `path`, and the path of a key; nothing for a key of another kind.
std::string keyOf(const Qel::String& path);
std::optional<Qel::String> pathOfKey(std::string_view key);

// The hash of a document that fits its type; the check, where there is one, is the last field.
Qel::DocumentCodec::Fields fieldsOf(const Qel::String& path, const Qel::Document& document);

// What a server holds of a document.
struct DocumentHash {
  // Reads the reply to HGETALL. Never raises.
  DocumentHash(const Qel::String& path, Reply hash);

  bool isPublished() const noexcept { return document || !problem.empty(); }

  std::optional<Qel::Document> document;
  bool hasCheck = false;
  Qel::String problem;  // why it cannot be read: key, field and what is wrong there
};

}  // namespace Kavra::Redis
