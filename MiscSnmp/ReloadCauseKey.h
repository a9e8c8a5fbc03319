#pragma once

#include <ostream>

#include "Qel/String.h"
#include "Qel/Types.h"

namespace MiscSnmp {

// The name of a row of the reload-cause table: which unit, which of its reloads, which cause of it.
//
// A plain value. Keys are ordered by unit, then reload, then cause, each as an unsigned number.
// The text form, "Value('MiscSnmp::ReloadCauseKey', ** {...})", and the parsing constructor are
// inverse. Deliberately without a hash: keys live in ordered collections only.
class ReloadCauseKey {
 public:
  // All fields zero.
  constexpr ReloadCauseKey() noexcept = default;
  constexpr ReloadCauseKey(U32 unitIndex, U32 instanceIndex, U32 causeIndex) noexcept
      : unitIndex_(unitIndex), instanceIndex_(instanceIndex), causeIndex_(causeIndex) {}
  // Reads the text form from `pos` on and leaves `pos` behind it, wherever `end` is. Raises
  // Qel::ParseException, naming the field, when the text is anything else.
  ReloadCauseKey(Qel::String::IteratorConst& pos, const Qel::String::IteratorConst& end);

  // The supervisor cell that reloaded.
  constexpr U32 unitIndex() const noexcept { return unitIndex_; }
  // The index of the reload in that history; 0 is the latest.
  constexpr U32 instanceIndex() const noexcept { return instanceIndex_; }
  // The position of the cause in the reload's queue, counted from 1.
  constexpr U32 causeIndex() const noexcept { return causeIndex_; }

  friend constexpr bool operator==(const ReloadCauseKey&, const ReloadCauseKey&) noexcept = default;
  friend constexpr bool operator<(const ReloadCauseKey& a, const ReloadCauseKey& b) noexcept {
    if (a.unitIndex_ != b.unitIndex_) return a.unitIndex_ < b.unitIndex_;
    if (a.instanceIndex_ != b.instanceIndex_) return a.instanceIndex_ < b.instanceIndex_;
    return a.causeIndex_ < b.causeIndex_;
  }

 private:
  U32 unitIndex_ = 0;
  U32 instanceIndex_ = 0;
  U32 causeIndex_ = 0;
};

// The text form of `key`.
Qel::String valueToStrep(const ReloadCauseKey& key);
// Writes the text form.
std::ostream& operator<<(std::ostream& out, const ReloadCauseKey& key);

}  // namespace MiscSnmp
