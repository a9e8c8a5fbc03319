#pragma once

#include <functional>

#include "Kavra/CheckedDocument.h"
#include "Kavra/Follow.h"
#include "Qel/Entity.h"
#include "Qel/Ptr.h"
#include "Qel/PtrInterface.h"
#include "Qel/String.h"

namespace Kavra {

class Feed;

// Keeps an entity of its own equal to the document at a path, in place, from the event loop.
//
// What is unpublished, does not fit or is of another type leaves the entity as it is. An exception
// that leaves a handler of the entity's changes becomes an error trace that names the path, and the
// rest of the document is applied nevertheless.
class Mirror final : public Qel::PtrInterface {
 public:
  // Called once: with the entity after the first good document was applied, or with null when a
  // document of another type stands at the path before that.
  using Call = std::function<void(const Qel::Ptr<Qel::Entity>& entity)>;

  // Raises RangeException for a path that is not well formed and for a type without documents.
  Mirror(const Qel::Ptr<Feed>& feed, const Qel::String& path, const Qel::String& typeName,
         Call call = {});

  const Qel::Ptr<Qel::Entity>& entity() const noexcept { return entity_; }

 private:
  // Returns why the document is refused, or an empty text.
  Qel::String handleDocument(const CheckedDocument* checked);

  const Qel::String path_;
  const Qel::String typeName_;
  Call call_;
  const Qel::Ptr<Qel::Entity> entity_;
  const Qel::Ptr<Follow> follow_;
};

}  // namespace Kavra
