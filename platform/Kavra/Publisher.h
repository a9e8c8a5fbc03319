#pragma once

#include <set>
#include <string>

#include "Kavra/BackOff.h"
#include "Kavra/CheckedDocument.h"
#include "Kavra/Feed.h"
#include "Kavra/Follow.h"
#include "Kavra/Store.h"
#include "Qel/EventLoop.h"
#include "Qel/Ptr.h"
#include "Qel/PtrInterface.h"
#include "Qel/String.h"

namespace Kavra {

// Keeps a state database equal to another one that is followed: what the source says is published
// in the target at once, and again after the target lost it. It looks once a second.
//
// It owns the paths that the source ever had while it lived, and leaves all others alone. A
// document that does not fit is not published; the last good one stays. A target that cannot be
// written is tried again after a growing pause of a second at most; the first failure and the
// recovery are traced (level 0). The target is written synchronously: for a program that does
// nothing else.
class Publisher final : public Qel::PtrInterface {
 public:
  // `loop` must outlive it.
  Publisher(const Qel::Ptr<Feed>& source, const Qel::Ptr<Store>& target, Qel::EventLoop& loop);

 private:
  static constexpr double kLookEvery = 1.0;

  Qel::String handleDocument(const Qel::String& path, const CheckedDocument* checked);
  void publishIn(double seconds);
  void publish();

  const Qel::Ptr<Store> target_;
  Qel::EventLoop& loop_;
  std::set<Qel::String> paths_;  // all that the source ever had
  Store::Documents documents_;   // what it has now
  BackOff backOff_;
  std::string problem_;  // empty when all is well
  Qel::Ptr<Qel::EventWatch> timer_;
  const Qel::Ptr<Follow> follow_;
};

}  // namespace Kavra
