#include "Kavra/Store.h"

#include <algorithm>

#include "Kavra/CheckedDocument.h"
#include "Kavra/Path.h"
#include "Qel/Strep.h"

namespace Kavra {

namespace {

// The canonical form of a document that is to be published.
Qel::Document settled(const Qel::String& path, const Qel::Document& document) {
  const CheckedDocument checked(path, document);
  if (!checked.fits()) throw StoreException(path + ": " + checked.misfit);
  return canonicalFormOf(document);
}

// Checks what `edit` has changed, and brings it into its canonical form.
void settle(const Store::Documents& before, Store::Documents& after,
            const std::vector<Qel::String>& paths) {
  for (auto& [path, document] : after) {
    if (std::find(paths.begin(), paths.end(), path) == paths.end()) {
      Qel::throwRangeException(Qel::valueToStrep(path) + " is not among the paths of the update");
    }
    const auto present = before.find(path);
    if (present != before.end() && present->second == document) continue;
    document = settled(path, document);
  }
}

}  // namespace

StoreException::~StoreException() = default;
OwnedException::~OwnedException() = default;

bool Store::publicationIs(const Publication& publication) {
  const Documents wanted = canonical(publication.documents);
  std::set<Qel::String> paths;
  for (const auto& [path, document] : wanted) paths.insert(path);
  for (const Qel::String& place : publication.claim.places) {
    if (isPath(place.view())) {
      paths.insert(place);
      continue;
    }
    for (const auto& [path, time] : listing(place)) {
      if (isPath(path.view())) paths.insert(path);
    }
  }
  for (const Qel::String& path : publication.spared) paths.erase(path);
  bool published = false;
  update({paths.begin(), paths.end()}, [&](Documents& present) {
    published = present != wanted;
    present = wanted;
  });
  return published;
}

void Store::documentIs(const Qel::String& path, const Qel::Document& document) {
  needPath(path);
  const Qel::Document canonical = settled(path, document);
  (void)replace(path, &canonical);
}

Store::Documents Store::withUnreadable(Documents documents, const Problems& unreadable) {
  for (const auto& [path, why] : unreadable) {
    documents.emplace(path, Qel::Document::Map{{"unreadable", why}});
  }
  return documents;
}

void Store::addQuarantined(Status& status, const Documents& documents, const Problems& unreadable) {
  for (const auto& [path, document] : documents) {
    const CheckedDocument checked(path, document);
    if (!checked.fits()) status.quarantined.push_back({path, checked.misfit});
  }
  for (const auto& [path, why] : unreadable) status.quarantined.push_back({path, why});
}

Store::Documents Store::canonical(const Documents& documents) {
  Documents canonical;
  for (const auto& [path, document] : documents) {
    canonical.emplace(path, canonicalFormOf(document));
  }
  return canonical;
}

void Store::update(const std::vector<Qel::String>& paths, const Edit& edit) {
  for (const Qel::String& path : paths) needPath(path);
  transact(paths, [&](Documents& documents) {
    const Documents before = documents;
    edit(documents);
    settle(before, documents, paths);
  });
}

}  // namespace Kavra
