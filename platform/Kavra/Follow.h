#pragma once

#include <cstdint>
#include <functional>
#include <memory>

#include "Kavra/CheckedDocument.h"
#include "Kavra/Status.h"
#include "Qel/ActivityManager.h"
#include "Qel/Ptr.h"
#include "Qel/PtrInterface.h"
#include "Qel/String.h"

namespace Kavra {

class Feed;

// A standing request to a feed. Letting go of it ends it, also from inside its own call. It keeps
// its feed.
class Follow final : public Qel::PtrInterface {
 public:
  using Number = std::uint64_t;
  // Called with a document, or with null when the path was unpublished. Returns why the follower
  // cannot use what it was told, or an empty text.
  using Call = std::function<Qel::String(const Qel::String& path, const CheckedDocument* checked)>;
  enum class Scope { path, prefix };

  // Made by Feed::followIs and Feed::followPrefixIs.
  Follow(const Qel::Ptr<Feed>& feed, Number number, Scope scope, const Qel::String& text,
         Call call);
  ~Follow() override;

  Scope scope() const noexcept { return scope_; }
  // The path or the prefix.
  const Qel::String& text() const noexcept { return text_; }
  bool covers(const Qel::String& path) const noexcept;
  // Whether it was told of what stood when it came; until then it need not be told of changes.
  bool hasBegun() const noexcept { return hasBegun_; }

  // Calls the follower. What it raises is traced; a refusal is traced and remembered.
  void deliver(const Qel::String& path, const std::shared_ptr<const CheckedDocument>& checked);
  // The last refusal, while it holds; its path is empty when there is none.
  const Quarantine& refusal() const noexcept { return refusal_; }
  // Whether its one path was unpublished after it was told of something of use there.
  bool isWithdrawn() const noexcept { return withdrawn_; }

 private:
  void begin();

  const Qel::Ptr<Feed> feed_;
  const Number number_;
  const Scope scope_;
  const Qel::String text_;
  const Call call_;
  bool hasBegun_ = false;
  Quarantine refusal_;
  bool isServing_ = false;  // what it was told was of use once
  bool withdrawn_ = false;
  Qel::Ptr<Qel::Activity> beginning_;
};

}  // namespace Kavra
