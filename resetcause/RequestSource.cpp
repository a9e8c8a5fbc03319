#include "resetcause/RequestSource.h"

#include <string>
#include <utility>

namespace ResetCause {

void RequestSource::look(const Boots& boots, Findings& findings) const {
  if (boots.previousId.empty()) return;
  const std::string path = requests_.path(boots.previousId);
  findings.attempt(name(), path, [&] {
    const auto request = requests_.of(boots.previousId);
    if (!request) return;
    Evidence one{Kind::request, "request", path, request->reason, request->time};
    one.user = request->user;
    findings.add(std::move(one));
  });
}

}  // namespace ResetCause
