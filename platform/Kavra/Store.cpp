#include "Kavra/Store.h"

#include <algorithm>

#include "Kavra/Path.h"
#include "Kavra/Publication.h"
#include "Qel/Strep.h"

namespace Kavra {

namespace {

void needAllowed(const Store::Documents& before, const Store::Documents& after,
                 const std::vector<Qel::String>& paths) {
  for (const auto& [path, document] : after) {
    if (std::find(paths.begin(), paths.end(), path) == paths.end()) {
      Qel::throwRangeException(Qel::valueToStrep(path) + " is not among the paths of the update");
    }
    const auto present = before.find(path);
    if (present != before.end() && present->second == document) continue;
    const Publication publication(path, document);
    if (!publication.fits()) throw StoreException(path + ": " + publication.misfit);
  }
}

}  // namespace

StoreException::~StoreException() = default;

bool Store::documentsAre(const std::vector<Qel::String>& paths, const Documents& documents) {
  bool published = false;
  update(paths, [&](Documents& present) {
    published = present != documents;
    present = documents;
  });
  return published;
}

void Store::update(const std::vector<Qel::String>& paths, const Edit& edit) {
  for (const Qel::String& path : paths) needPath(path);
  transact(paths, [&](Documents& documents) {
    const Documents before = documents;
    edit(documents);
    needAllowed(before, documents, paths);
  });
}

}  // namespace Kavra
