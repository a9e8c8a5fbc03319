#include "Kavra/Follow.h"

#include <utility>

#include "Kavra/Feed.h"
#include "Kavra/KavraTrace.h"

namespace Kavra {

Follow::Follow(const Qel::Ptr<Feed>& feed, Number number, Scope scope, const Qel::String& text,
               Call call)
    : feed_(feed), number_(number), scope_(scope), text_(text), call_(std::move(call)) {
  beginning_ = Qel::activityManager()->activityIs([this] { begin(); });
}

Follow::~Follow() { feed_->leave(number_); }

bool Follow::covers(const Qel::String& path) const noexcept {
  return scope_ == Scope::path ? path == text_ : path.view().starts_with(text_.view());
}

void Follow::begin() {
  hasBegun_ = true;
  // The first call may end this follow, and with it the last reference to the feed.
  const Qel::Ptr<Feed> feed = feed_;
  feed->tellAll(number_);
}

void Follow::deliver(const Qel::String& path,
                     const std::shared_ptr<const CheckedDocument>& checked) {
  Qel::String why;
  traceFailure(path, [&] { why = call_(path, checked.get()); });
  withdrawn_ = checked == nullptr && isServing_ && scope_ == Scope::path;
  if (checked != nullptr && checked->fits() && why.empty()) isServing_ = true;
  if (why.empty()) {
    if (refusal_.path != path) return;
    refusal_ = {};
    // One that fits no type is refused by the feed now.
    if (!checked || checked->fits()) traceNoLongerRefused(path, checked != nullptr);
    return;
  }
  const Quarantine refusal{path, why};
  if (refusal == refusal_) return;
  refusal_ = refusal;
  traceRefused(path, why);
}

}  // namespace Kavra
