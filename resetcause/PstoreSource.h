#pragma once

#include <optional>
#include <string_view>

#include "resetcause/Root.h"
#include "resetcause/Source.h"

namespace ResetCause {

// The kernel's last words: dumps that firmware kept over the reload, in /sys/fs/pstore or where
// systemd-pstore has moved them. Those of earlier reloads stay for days; a dump counts that was not
// there when an earlier boot was judged, by its time, or by when its folder was made.
class PstoreSource : public Source {
 public:
  explicit PstoreSource(const Root& root) : root_(root) {}

  std::string_view name() const noexcept override { return "pstore"; }
  void look(const Boots& boots, Findings& findings) const override;

 private:
  const Root root_;
};

// The second of the crash, from the name of a dump; nothing for any other name.
std::optional<double> timeOfDump(std::string_view fileName);

}  // namespace ResetCause
