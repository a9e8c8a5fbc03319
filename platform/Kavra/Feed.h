#pragma once

#include <map>
#include <memory>
#include <set>

#include "Kavra/CheckedDocument.h"
#include "Kavra/Follow.h"
#include "Kavra/Status.h"
#include "Qel/Document.h"
#include "Qel/Ptr.h"
#include "Qel/PtrInterface.h"
#include "Qel/String.h"

namespace Kavra {

// The live side of one state database: its documents as they were last seen to be good, told to
// whoever follows them.
//
// This base knows no database: a store derives from it and hands in what it sees, whole documents
// at a time, from the event loop. An equal document is silent. A document that does not fit its
// type is quarantined: its path keeps the last good one, and one trace (level 0) says what is
// wrong, another that it is mended or gone; the same wrong document is not reported again, and it
// is not kept. What is lost with a connection or a file stays.
//
// All that changed is taken in before anyone is told of any of it. Followers may follow and let go
// from inside a call. An exception that leaves a call ends there, as an error trace that names the
// path; the others are still told.
class Feed : public Qel::PtrInterface {
 public:
  using Documents = std::map<Qel::String, Qel::Document>;
  // Paths whose documents could not be read at all, and why.
  using Problems = std::map<Qel::String, Qel::String>;

  Feed() = default;
  ~Feed() override = default;

  // Follows one path, or every path whose text begins with `prefix`. What is published already is
  // told first, through put-off work: never from inside this call. A document that does not fit is
  // told as well, for its type and its problem; who begins to follow a quarantined path is told of
  // the last good document if there was one. Raises RangeException for a path that is not well
  // formed (see Path.h).
  [[nodiscard]] Qel::Ptr<Follow> followIs(const Qel::String& path, Follow::Call call);
  [[nodiscard]] Qel::Ptr<Follow> followPrefixIs(const Qel::String& prefix, Follow::Call call);

  // These are all the documents that there are now. One that could not be read is quarantined like
  // one that does not fit. `unchanged`: paths of documents that are known to be the good ones that
  // were handed in last.
  void documentsAre(Documents documents, const Problems& unreadable = {},
                    const std::set<Qel::String>& unchanged = {});

  // How the database stands and what is served of it, from what is known already: asks nobody.
  virtual Status status() const;

  // Reads the credentials again by which the database lets its follower in, and connects anew where
  // they changed. Returns whether they did. Raises StoreException, with nothing changed, when they
  // cannot be read. For a store without them nothing.
  virtual bool readCredentialsAgain() { return false; }

 protected:
  // For a store that looks only at what is followed: the paths of those who follow one, and whether
  // somebody follows a prefix.
  std::set<Qel::String> followedPaths() const;
  bool followsPrefixes() const;
  bool isFollowed() const noexcept { return !follows_.empty(); }
  // Whether the document that was handed in last at `path` fitted.
  bool isGood(const Qel::String& path) const;
  // Somebody began or ceased to follow. Called from inside followIs() and wherever follows end: no
  // place to tell followers anything.
  virtual void handleFollows() {}

 private:
  friend class Follow;

  using CheckedDocumentPtr = std::shared_ptr<const CheckedDocument>;
  // What is known of a path.
  struct Entry {
    CheckedDocumentPtr good;    // the last one that fitted, or null
    CheckedDocumentPtr misfit;  // one after it that did not, or null
    const CheckedDocumentPtr& latest() const noexcept { return misfit ? misfit : good; }
    const CheckedDocumentPtr& served() const noexcept { return good ? good : misfit; }
  };

  Qel::Ptr<Follow> newFollow(Follow::Scope scope, const Qel::String& text, Follow::Call call);
  void leave(Follow::Number number) {
    follows_.erase(number);
    handleFollows();
  }
  // True when followers are to be told.
  bool take(const Qel::String& path, Qel::Document document);
  bool takeUnreadable(const Qel::String& path, const Qel::String& why);
  bool quarantine(Entry& entry, const Qel::String& path, CheckedDocument misfit);
  static void release(Entry& entry, const Qel::String& path);
  void tell(const Qel::String& path);
  // Tells one follower of everything that it covers.
  void tellAll(Follow::Number number);

  std::map<Qel::String, Entry> entries_;
  std::map<Follow::Number, Follow*> follows_;
  Follow::Number nextNumber_ = 0;
};

}  // namespace Kavra
