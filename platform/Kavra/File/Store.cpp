#include "Kavra/File/Store.h"

#include <algorithm>
#include <map>
#include <utility>

#include "Kavra/CheckedDocument.h"
#include "Kavra/File/DatabaseFile.h"
#include "Kavra/FileDescriptor.h"

namespace Kavra::File {

namespace {

// Puts what `edited` holds of `paths` in the place of what `documents` holds of them.
void merge(Kavra::Store::Documents& documents, const std::vector<Qel::String>& paths,
           Kavra::Store::Documents edited) {
  for (const Qel::String& path : paths) documents.erase(path);
  documents.merge(edited);
}

}  // namespace

Store::Store(const std::string& path, const Qel::Ptr<Qel::Clock const>& clock)
    : path_(path), clock_(clock) {
  [[maybe_unused]] const DatabaseFile file(path_);
}

Kavra::Store::Documents Store::documents(const Qel::String& prefix) {
  Documents documents = DatabaseFile(path_).read();
  std::erase_if(documents, [&prefix](const auto& entry) {
    return !entry.first.view().starts_with(prefix.view());
  });
  return documents;
}

void Store::transact(const std::vector<Qel::String>& paths, const Edit& edit) {
  const DatabaseFile file(path_);
  const FileDescriptor lock = file.lock();
  const Documents before = file.read();
  Documents edited;
  for (const Qel::String& path : paths) {
    if (const auto found = before.find(path); found != before.end()) edited.insert(*found);
  }
  edit(edited);
  Documents after = before;
  merge(after, paths, std::move(edited));
  if (after != before) file.write(after);
}

Status Store::status() {
  Status status;
  try {
    const DatabaseFile file(path_);
    const auto content = file.readContent();
    status.reachable = true;
    if (!content) return status;
    status.age = std::max(0.0, clock_->now() - content->modified);
    for (const auto& [path, document] : file.parse(content->text)) {
      const CheckedDocument checked(path, document);
      if (!checked.fits()) status.quarantined.push_back({path, checked.misfit});
    }
  } catch (const StoreException& error) {
    status.reachable = false;
    status.problem = error.text();
  }
  return status;
}

}  // namespace Kavra::File
