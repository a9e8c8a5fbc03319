#pragma once

#include <functional>
#include <map>
#include <optional>
#include <set>
#include <vector>

#include "Kavra/Claim.h"
#include "Kavra/Status.h"
#include "Qel/Document.h"
#include "Qel/Exception.h"
#include "Qel/PtrInterface.h"
#include "Qel/String.h"

namespace Kavra {

// What went wrong with a state database or with what was to be published there, in one line that
// names the place.
class StoreException : public Qel::Exception {
 public:
  using Exception::Exception;
  ~StoreException() override;
};

// An edit of what a publisher answers for; names it.
class OwnedException : public StoreException {
 public:
  using StoreException::StoreException;
  ~OwnedException() override;
};

// A state database as publishers and the command line use it: whole documents, synchronously. Every
// operation takes effect completely, or raises StoreException and changes nothing.
class Store : public Qel::PtrInterface {
 public:
  using Documents = std::map<Qel::String, Qel::Document>;
  using Edit = std::function<void(Documents&)>;
  // When each path was published, in seconds since 1970 UTC, as far as that is known.
  using Listing = std::map<Qel::String, std::optional<double>>;
  // What a publisher keeps in a database.
  struct Publication {
    Claim claim;
    Documents documents;           // that fit their types, within the claim
    std::set<Qel::String> spared;  // paths within the claim that stay as they are there
  };

  // The documents whose paths begin with `prefix`, whether they fit their types or not. In the
  // place of one that cannot be read stands {"unreadable": why}.
  virtual Documents documents(const Qel::String& prefix) = 0;

  // The paths that begin with `prefix`.
  virtual Listing listing(const Qel::String& prefix) = 0;

  // Reads the documents of `paths` (one that is not published is absent), lets `edit` change, add
  // and erase among them, and publishes the outcome in one step that no other writer comes between,
  // in its canonical form (see canonicalFormOf).
  // `edit` is called again when another writer was faster, and gives up by raising. Raises
  // StoreException for a changed document that does not fit its type, RangeException for a path
  // that is not well formed or was not asked for, OwnedException for a path that a living publisher
  // answers for, unless updates are forced.
  void update(const std::vector<Qel::String>& paths, const Edit& edit);
  // Whether updates are forced; false at first.
  bool force() const noexcept { return force_; }
  void forceIs(bool force) noexcept { force_ = force; }
  // Whether the last change made the database, which was not there before.
  virtual bool wasCreated() const noexcept { return false; }

  // Publishes `document` at `path`, in its canonical form, in the place of whatever stands there,
  // readable or not. Raises as update() does.
  void documentIs(const Qel::String& path, const Qel::Document& document);
  // Takes back whatever stands at `path`, readable or not, and be that no path. False when there is
  // nothing.
  bool documentDel(const Qel::String& path) { return replace(path, nullptr); }

  // Makes the database hold the documents and nothing else within the claim, where it does not
  // already; a store that lost what it held before is made good. Returns whether anything had to be
  // published. For the one who publishes them, again and again, and whose claim others find here as
  // long as it looks (where the store has a place for claims). Raises StoreException where another
  // living publisher has a claim to some of it.
  virtual bool publicationIs(const Publication& publication);
  // Whether the database is as the last publicationIs() left it, as far as a short look tells; the
  // claim lives on. False where that cannot be told for less than the whole.
  virtual bool isAsPublished() { return false; }
  // The claim of the last publicationIs() ends; what it published stays.
  virtual void claimDel() {}

  // How the database stands at the moment.
  virtual Status status() = 0;

 protected:
  // The documents, which fit their types, as the store gives them back.
  static Documents canonical(const Documents& documents);
  // What documents() gives where some could not be read, for the reasons in `unreadable`.
  using Problems = std::map<Qel::String, Qel::String>;
  static Documents withUnreadable(Documents documents, const Problems& unreadable);
  // Adds to a status what of the database is refused, and why.
  static void addQuarantined(Status& status, const Documents& documents,
                             const Problems& unreadable);
  // documentIs() for a document in its canonical form, or documentDel() where it is null.
  virtual bool replace(const Qel::String& path, const Qel::Document* document) = 0;
  // update(), whose `edit` checks what it leaves and brings it into its canonical form.
  virtual void transact(const std::vector<Qel::String>& paths, const Edit& edit) = 0;

 private:
  bool force_ = false;
};

}  // namespace Kavra
