#pragma once

#include <cstddef>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "Qel/Document.h"
#include "Qel/Limits.h"
#include "Qel/String.h"

namespace Kavra::Json {

// A member of a map of documents, as it was read.
struct Member {
  Qel::String name;
  Qel::Document document;  // null where it could not be kept
  std::string problem;     // why not: the place in the document and what is wrong there, or empty
  std::string_view text;   // as it stands in the text that was read
  std::size_t values = 0;  // in it; of one that could not be kept, give or take one
};

// What a map of documents may hold; by itself as much as an embedded file.
struct MostMembers {
  std::size_t documents = Qel::Limits::kMostFileDocuments;
  std::size_t values = Qel::Limits::kMostFileValues;  // in all of them
};

// Reads the text of a map of documents, and keeps of a member that is no document (see Text.h) or
// is too large for one (see Qel/Limits.h) only why. Raises Exception for what is no JSON, no map,
// or holds a name twice or more than `most`: reading ends there.
std::vector<Member> readMembers(std::string_view text, const MostMembers& most);

// The text of a map with these members, a line each, from their own texts. Raises Exception for a
// name that is not UTF-8.
std::string writeMembers(const std::map<Qel::String, std::string>& texts);

}  // namespace Kavra::Json
