#include "Kavra/Publisher.h"

#include <algorithm>

#include "Kavra/KavraTrace.h"

namespace Kavra {

Publisher::Publisher(const Qel::Ptr<Feed>& source, const Qel::Ptr<Store>& target,
                     Qel::EventLoop& loop)
    : target_(target),
      loop_(loop),
      follow_(source->followPrefixIs(
          {}, [this](const Qel::String& path, const CheckedDocument* checked) {
            return handleDocument(path, checked);
          })) {
  publishIn(kLookEvery);
}

Qel::String Publisher::handleDocument(const Qel::String& path, const CheckedDocument* checked) {
  if (checked == nullptr) {
    documents_.erase(path);
  } else if (checked->fits()) {
    paths_.insert(path);
    documents_.insert_or_assign(path, checked->document);
  }
  // Several may change at once; they are published together.
  publishIn(0.0);
  return {};
}

void Publisher::publishIn(double seconds) {
  timer_ = loop_.timerIs(seconds, [this] { publish(); });
}

void Publisher::publish() {
  try {
    target_->documentsAre({paths_.begin(), paths_.end()}, documents_);
    if (!problem_.empty()) trace(0, "publishing again");
    problem_.clear();
    backOff_.reset();
    publishIn(kLookEvery);
  } catch (const StoreException& error) {
    if (problem_.empty()) trace(0, "cannot publish: " + error.text().stdString());
    problem_ = error.what();
    publishIn(std::min(backOff_.next(), kLookEvery));
  }
}

}  // namespace Kavra
