#include "Kavra/File/Store.h"

#include <algorithm>
#include <cstddef>
#include <limits>
#include <map>
#include <optional>
#include <utility>

#include "Kavra/File/DatabaseFile.h"
#include "Kavra/FileDescriptor.h"
#include "Kavra/Json/Members.h"

namespace Kavra::File {

namespace {

// What is too large for its readers must still be made smaller.
constexpr Json::MostMembers kAnyNumber{std::numeric_limits<std::size_t>::max(),
                                       std::numeric_limits<std::size_t>::max()};

// What the file holds, for somebody who is to change it.
struct Held {
  explicit Held(const DatabaseFile& file) : content(file.readContent()) {
    if (content) parsed = file.parse(content->text, kAnyNumber);
  }

  std::optional<DatabaseFile::Content> content;
  DatabaseFile::Parsed parsed;  // refers to the content
};

// Takes the documents of the paths out, and tells why others of them cannot be read.
Kavra::Store::Documents take(DatabaseFile::Parsed& parsed, const std::vector<Qel::String>& paths,
                             std::map<Qel::String, Qel::String>& problems) {
  Kavra::Store::Documents taken;
  for (const Qel::String& path : paths) {
    taken.insert(parsed.documents.extract(path));
    const auto member = parsed.unreadable.find(path);
    if (member != parsed.unreadable.end()) problems.emplace(path, member->second.problem);
  }
  return taken;
}

}  // namespace

Store::Store(const std::string& path, const Qel::Ptr<Qel::Clock const>& clock)
    : path_(path), clock_(clock) {
  [[maybe_unused]] const DatabaseFile file(path_);
}

Kavra::Store::Documents Store::documents(const Qel::String& prefix) {
  const DatabaseFile file(path_);
  const auto content = file.readContent();
  if (!content) return {};
  DatabaseFile::Parsed parsed = file.parse(content->text);
  Documents documents = withUnreadable(std::move(parsed.documents), parsed.problems());
  std::erase_if(documents, [&prefix](const auto& entry) {
    return !entry.first.view().starts_with(prefix.view());
  });
  return documents;
}

Kavra::Store::Listing Store::listing(const Qel::String& prefix) {
  Listing listing;
  const DatabaseFile file(path_);
  const auto content = file.readContent();
  if (!content) return listing;
  const DatabaseFile::Parsed parsed = file.parse(content->text);
  const auto list = [&](const Qel::String& path) {
    if (path.view().starts_with(prefix.view())) listing.emplace(path, content->modified);
  };
  for (const auto& [path, document] : parsed.documents) list(path);
  for (const auto& [path, member] : parsed.unreadable) list(path);
  return listing;
}

void Store::transact(const std::vector<Qel::String>& paths, const Edit& edit) {
  const DatabaseFile file(path_);
  const FileDescriptor lock = file.lock();
  Held held(file);
  auto& [documents, unreadable] = held.parsed;
  Problems problems;
  Documents taken = take(held.parsed, paths, problems);
  const Documents before = withUnreadable(std::move(taken), problems);
  Documents after = before;
  edit(after);
  created_ = false;
  if (after == before) return;
  for (const auto& [path, problem] : problems) {
    const auto found = after.find(path);
    if (found != after.end() && found->second == before.at(path)) {
      // What could not be read stays as it stood, unless it was edited.
      after.erase(found);
    } else {
      unreadable.erase(path);
    }
  }
  documents.merge(after);
  file.needSize(held.parsed);
  file.write(documents, unreadable);
  created_ = !held.content;
}

bool Store::replace(const Qel::String& path, const Qel::Document* document) {
  const DatabaseFile file(path_);
  const FileDescriptor lock = file.lock();
  Held held(file);
  created_ = false;
  auto& [documents, unreadable] = held.parsed;
  const auto found = documents.find(path);
  const bool stood = unreadable.erase(path) > 0 || found != documents.end();
  if (document == nullptr) {
    if (!stood) return false;
    documents.erase(path);
  } else {
    if (found != documents.end() && found->second == *document) return true;
    documents.insert_or_assign(path, *document);
    file.needSize(held.parsed);
  }
  file.write(documents, unreadable);
  created_ = !held.content;
  return true;
}

Status Store::status() {
  Status status;
  try {
    const DatabaseFile file(path_);
    const auto content = file.readContent();
    status.reachable = true;
    if (!content) {
      // Whoever writes makes it.
      status.problem = file.url() + ": is not there yet";
      return status;
    }
    status.age = std::max(0.0, clock_->now() - content->modified);
    const DatabaseFile::Parsed parsed = file.parse(content->text);
    addQuarantined(status, parsed.documents, parsed.problems());
  } catch (const StoreException& error) {
    status.reachable = false;
    status.problem = error.text();
  }
  return status;
}

}  // namespace Kavra::File
