#pragma once

#include <cstdint>

#include "MiscSnmp/ReloadCauseKey.h"
#include "Qel/Keyed.h"
#include "Qel/Ptr.h"
#include "Qel/PtrInterface.h"
#include "Qel/RbTreeMap.h"
#include "Qel/String.h"
#include "Qel/Types.h"
#include "System/ResetCause.h"
#include "System/ResetInstance.h"

namespace MiscSnmp {

// One row of the reload-cause table: a key, and the reload whose cause the row shows.
//
// Neither ever changes. Description and time are taken from the reload's cause queue at each read,
// so a row shows what the platform holds at that moment, also after it has left the table. A row
// keeps its reload alive.
class ReloadCauseEntry final : public Qel::PtrInterface,
                               public Qel::Keyed<ReloadCauseKey>,
                               public Qel::RbTreeMapLinks {
 public:
  // `resetCause` must not be null: every read goes to it. Rows of a table are made by
  // GeneralMib::reloadCauseTableIs alone.
  ReloadCauseEntry(const ReloadCauseKey& key,
                   const Qel::Ptr<System::ResetInstance const>& resetCause);

  const ReloadCauseKey& fwkKey() const noexcept { return key(); }
  const Qel::Ptr<System::ResetInstance const>& resetCause() const noexcept { return resetCause_; }

  U32 unitIndex() const noexcept { return key().unitIndex(); }
  U32 reloadIndex() const noexcept { return key().instanceIndex(); }
  U32 causeIndex() const noexcept { return key().causeIndex(); }

  // The description as the platform recorded it, any octets; empty when the cause is missing.
  Qel::String causeDesc() const {
    const System::ResetCause* const shown = cause();
    return shown != nullptr ? shown->description() : Qel::String();
  }
  // Seconds since 1970-01-01 UTC without their fraction, the low 32 bits of them. 0 where there is
  // no cause, and for a time that is no number of seconds in 64 bits (infinite, not a number).
  U32 reloadTime() const {
    const System::ResetCause* const shown = cause();
    return shown != nullptr ? wholeSeconds(shown->time()) : 0;
  }

  // Have the processor fetch what a reader of the row will wait for, while there is something else
  // to do: the cause, and later, when that has come, its description.
  void prefetchCause() const noexcept { __builtin_prefetch(cause_); }
  void prefetchDescription() const {
    if (const auto* const shown = cause()) __builtin_prefetch(shown->description().charPtr());
  }

  const Qel::TypeNode* fwkType() const override;

 private:
  // The cause that this row shows, or null. Looked for again when the queue has changed.
  const System::ResetCause* cause() const {
    const System::ResetInstance::CauseQ& queue = resetCause_->causeQ();
    if (version_ != queue.version()) {
      // Managers count causes from 1, the queue from 0; cause index 0 wraps to a key that no queue
      // has.
      cause_ = queue.value(key().causeIndex() - 1U);
      version_ = queue.version();
    }
    return cause_;
  }
  static U32 wholeSeconds(double time) noexcept {
    // C++ defines the conversion for what fits alone.
    constexpr double kEnd = 9223372036854775808.0;  // 2^63
    if (!(time >= -kEnd && time < kEnd)) return 0;
    return static_cast<U32>(static_cast<std::int64_t>(time));
  }

  const Qel::Ptr<System::ResetInstance const> resetCause_;
  mutable const System::ResetCause* cause_ = nullptr;  // in the queue of that version
  mutable std::uint64_t version_ = ~std::uint64_t{0};
};

}  // namespace MiscSnmp
