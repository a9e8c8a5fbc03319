#include "Kavra/Mirror.h"

#include <fmt/format.h>

#include <utility>

#include "Kavra/Feed.h"
#include "Kavra/KavraTrace.h"
#include "Qel/Name.h"

namespace Kavra {

Mirror::Mirror(const Qel::Ptr<Feed>& feed, const Qel::String& path, const Qel::String& typeName,
               Call call)
    : path_(path),
      typeName_(typeName),
      call_(std::move(call)),
      entity_(codecOf(typeName).newEntity(Qel::Name(path))),
      follow_(feed->followIs(path, [this](const Qel::String&, const CheckedDocument* checked) {
        return handleDocument(checked);
      })) {}

Qel::String Mirror::handleDocument(const CheckedDocument* checked) {
  if (checked == nullptr || checked->type.empty()) return {};
  // Handlers may let go of whoever holds this mirror.
  const Qel::Ptr<Mirror> alive(this);
  if (checked->type != typeName_) {
    if (call_) {
      std::exchange(call_, nullptr)(nullptr);
      return {};
    }
    // One that does not even fit its own type is in quarantine already.
    if (!checked->fits()) return {};
    return fmt::format("of type '{}' where '{}' is followed", checked->type.view(),
                       typeName_.view());
  }
  if (!checked->fits()) return {};
  // One handler's fault must not cost the others the rest of the document.
  checked->change(*entity_, [this](const auto& step) { traceFailure(path_, step); });
  if (call_) std::exchange(call_, nullptr)(entity_);
  return {};
}

}  // namespace Kavra
