#pragma once

#include <string>

#include "Kavra/BackOff.h"
#include "Kavra/CheckedDocument.h"
#include "Kavra/Claim.h"
#include "Kavra/Feed.h"
#include "Kavra/Follow.h"
#include "Kavra/Store.h"
#include "Qel/EventLoop.h"
#include "Qel/Ptr.h"
#include "Qel/PtrInterface.h"
#include "Qel/String.h"

namespace Kavra {

// Keeps a state database equal to another one that is followed: what the source says is published
// in the target at once, and again after the target lost it. It takes a short look once a second,
// and compares the whole every 30 s.
//
// It owns what its claim names, and takes away there what the source does not have, also what stood
// there before; a claim without places owns the paths that the source ever had while it lived. All
// else it leaves alone, and refuses to publish. Nothing is published, or taken away, before the
// source was read for the first time.
//
// A document that does not fit is not published; the last good one stays. A target that cannot be
// written, or that another publisher has a claim to, is tried again after a growing pause of a
// second at most; the first failure, who that other one is, and the recovery are traced (level 0).
// The target is written synchronously: for a program that does nothing else.
class Publisher final : public Qel::PtrInterface {
 public:
  // `loop` must outlive it.
  Publisher(const Qel::Ptr<Feed>& source, const Qel::Ptr<Store>& target, Qel::EventLoop& loop,
            const Claim& claim);
  // What it published stays, its claim does not.
  ~Publisher() override;

 private:
  static constexpr double kLookEvery = 1.0;
  static constexpr int kMostLooks = 30;  // between two comparisons of the whole

  Qel::String handleDocument(const Qel::String& path, const CheckedDocument* checked);
  void publishIn(double seconds);
  void handleTimer();
  void publish();
  void handleProblem(const StoreException& error, bool isNew);

  const Qel::Ptr<Feed> source_;
  const Qel::Ptr<Store> target_;
  Qel::EventLoop& loop_;
  const bool ownsWhatItHad_;
  Store::Publication publication_;
  int looks_ = kMostLooks;  // since the whole was compared; none may follow a change
  BackOff backOff_;
  std::string problem_;  // empty when all is well
  Qel::Ptr<Qel::EventWatch> timer_;
  const Qel::Ptr<Follow> follow_;
};

}  // namespace Kavra
