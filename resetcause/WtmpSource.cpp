#include "resetcause/WtmpSource.h"

#include <string>

#include "resetcause/Wtmp.h"

namespace ResetCause {

void WtmpSource::look(const Boots& boots, Findings& findings) const {
  const std::string path = root_.path("/var/log/wtmp");
  findings.attempt(name(), path, [&] {
    const auto before = beforeBoot(wtmpOf(root_), boots.start, boots.previousStart);
    if (!before.shutdown) return;
    findings.add({Kind::wtmpShutdown, "wtmp", path, "shutdown", *before.shutdown});
  });
}

}  // namespace ResetCause
