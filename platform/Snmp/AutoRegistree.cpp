#include "Snmp/AutoRegistree.h"

#include <algorithm>
#include <vector>

namespace Snmp {

namespace {

// Leaked: modules withdraw during static destruction, in whatever order that comes.
std::vector<AutoRegistree*>& registrees() {
  static auto* const all = new std::vector<AutoRegistree*>;
  return *all;
}

bool isPresent(const AutoRegistree* registree) {
  const auto& all = registrees();
  return std::find(all.begin(), all.end(), registree) != all.end();
}

}  // namespace

AutoRegistree::AutoRegistree(HandlerRegistration* registration) : registration_(registration) {
  registrees().push_back(this);
}

AutoRegistree::~AutoRegistree() { std::erase(registrees(), this); }

void contextIs(const Qel::String& context) {
  // A module may load or unload others while it registers itself.
  const std::vector<AutoRegistree*> present = registrees();
  for (AutoRegistree* registree : present) {
    if (isPresent(registree) && registree->contexts_.insert(context).second) {
      registree->registration_->initHandler(context);
    }
  }
}

void contextDel(const Qel::String& context) {
  for (AutoRegistree* registree : registrees()) registree->contexts_.erase(context);
}

}  // namespace Snmp
