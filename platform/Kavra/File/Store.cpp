#include "Kavra/File/Store.h"

#include <algorithm>
#include <map>
#include <utility>

#include "Kavra/CheckedDocument.h"
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

Kavra::Store::Documents Store::documents(const Qel::String& prefix) {
  Documents documents = file_.read();
  std::erase_if(documents, [&prefix](const auto& entry) {
    return !entry.first.view().starts_with(prefix.view());
  });
  return documents;
}

Kavra::Store::Listing Store::listing(const Qel::String& prefix) {
  Listing listing;
  const auto content = file_.readContent();
  if (!content) return listing;
  for (const auto& [path, document] : file_.parse(content->text)) {
    if (path.view().starts_with(prefix.view())) listing.emplace(path, content->modified);
  }
  return listing;
}

void Store::transact(const std::vector<Qel::String>& paths, const Edit& edit) {
  const FileDescriptor lock = file_.lock();
  const auto content = file_.readContent();
  const Documents before = content ? file_.parse(content->text) : Documents();
  Documents edited;
  for (const Qel::String& path : paths) {
    if (const auto found = before.find(path); found != before.end()) edited.insert(*found);
  }
  edit(edited);
  Documents after = before;
  merge(after, paths, std::move(edited));
  created_ = false;
  if (after == before) return;
  file_.write(after);
  created_ = !content;
}

Status Store::status() {
  Status status;
  try {
    const auto content = file_.readContent();
    status.reachable = true;
    if (!content) return status;
    status.age = std::max(0.0, clock_->now() - content->modified);
    for (const auto& [path, document] : file_.parse(content->text)) {
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
