// A plug-in of norvek-snmpd, loaded beside the product's: the anchors serve as many rows as the
// reload-cause table does in the same process. BENCH_CAUSES tells how many causes that are.
#include <cstdlib>
#include <memory>
#include <vector>

#include "Qel/Number.h"
#include "Snmp/AutoRegistree.h"
#include "Snmp/HandlerRegistration.h"
#include "Snmp/MibContext.h"
#include "bench/anchors/Anchor.h"

extern "C" [[gnu::visibility("default")]] void unregister_BenchAnchors(Qel::String context);

namespace {

constexpr char kModule[] = "BenchAnchors";

U32 causes() {
  const char* const count = std::getenv("BENCH_CAUSES");
  return Qel::numberOf<U32>(count != nullptr ? count : "").value_or(2);
}

std::vector<Bench::Row> rows;
std::vector<std::unique_ptr<Bench::Anchor>> anchors;

class Registration final : public Snmp::HandlerRegistration {
 public:
  void initHandler(Qel::String context) override {
    if (!context.empty()) return;
    rows = Bench::rowsOf(causes());
    for (const auto make :
         {Bench::tdata, Bench::sortedIterator, Bench::mapIterator, Bench::scalars}) {
      anchors.push_back(make(rows));
    }
    Snmp::registerMibContext(context, kModule);
  }
};

Registration registration;
const Snmp::AutoRegistree registree(&registration);

}  // namespace

void unregister_BenchAnchors(Qel::String context) {
  anchors.clear();
  Snmp::unregisterMibContext(context, kModule);
}
