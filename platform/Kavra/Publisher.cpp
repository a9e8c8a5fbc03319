#include "Kavra/Publisher.h"

#include <algorithm>

#include "Kavra/KavraTrace.h"
#include "Qel/Failure.h"

namespace Kavra {

Publisher::Publisher(const Qel::Ptr<Feed>& source, const Qel::Ptr<Store>& target,
                     Qel::EventLoop& loop, const Claim& claim)
    : source_(source),
      target_(target),
      loop_(loop),
      ownsWhatItHad_(claim.places.empty()),
      publication_{claim, {}, {}},
      follow_(source->followPrefixIs(
          {}, [this](const Qel::String& path, const CheckedDocument* checked) {
            return handleDocument(path, checked);
          })) {
  publishIn(kLookEvery);
}

Publisher::~Publisher() {
  // A mark that cannot be taken away expires.
  Qel::failureOf([this] { target_->claimDel(); });
}

Qel::String Publisher::handleDocument(const Qel::String& path, const CheckedDocument* checked) {
  auto& [claim, documents, spared] = publication_;
  const bool fits = checked != nullptr && checked->fits();
  if (ownsWhatItHad_ && fits) claim.places.insert(path);
  if (!ownsWhatItHad_ && !claim.covers(path)) {
    return fits ? "not published: the publisher owns " + *claim.places.begin() + " alone" : "";
  }
  if (checked == nullptr) documents.erase(path);
  if (fits) documents.insert_or_assign(path, checked->document);
  spared.erase(path);
  if (checked != nullptr && !documents.contains(path)) spared.insert(path);
  // Several may change at once; they are published together.
  looks_ = kMostLooks;
  publishIn(0.0);
  return {};
}

void Publisher::publishIn(double seconds) {
  timer_ = loop_.timerIs(seconds, [this] { handleTimer(); });
}

void Publisher::handleTimer() {
  // What the source does not have is known once it was read.
  if (!source_->status().age) {
    publishIn(kLookEvery);
    return;
  }
  try {
    publish();
    if (!problem_.empty()) trace(0, "publishing again");
    problem_.clear();
    backOff_.reset();
    publishIn(kLookEvery);
  } catch (const OwnedException& error) {
    handleProblem(error, problem_ != error.what());
  } catch (const StoreException& error) {
    handleProblem(error, problem_.empty());
  }
}

void Publisher::handleProblem(const StoreException& error, bool isNew) {
  if (isNew) trace(0, "cannot publish: " + error.text().stdString());
  problem_ = error.what();
  looks_ = kMostLooks;
  publishIn(std::min(backOff_.next(), kLookEvery));
}

void Publisher::publish() {
  if (looks_ < kMostLooks && target_->isAsPublished()) {
    ++looks_;
    return;
  }
  target_->publicationIs(publication_);
  if (target_->wasCreated()) trace(0, "the database was not there; it is created");
  looks_ = 0;
}

}  // namespace Kavra
