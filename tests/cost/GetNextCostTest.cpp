// What a GETNEXT of one varbind has net-snmp's iterator helper call, and what that takes from the
// allocator.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <map>
#include <ostream>
#include <string>

#include "NorvekGeneralMIB/ReloadCauseTableHandler.h"
#include "NorvekGeneralMIB/ReloadCauseTableIteration.h"
#include "cost/Allocations.h"
#include "cost/GetNextWalk.h"

namespace {

using testing::ElementsAre;
using testing::Pair;

struct Cost {
  std::size_t calls = 0;
  std::size_t objects = 0;
  friend bool operator==(const Cost&, const Cost&) = default;
};

void PrintTo(const Cost& cost, std::ostream* out) {
  *out << cost.calls << " calls, " << cost.objects << " objects";
}

std::map<std::string, Cost>& costs() {
  static std::map<std::string, Cost> costs;
  return costs;
}

// Notes a call and what is allocated while it lives.
class Counting {
 public:
  explicit Counting(const char* callback) : cost_(costs()[callback]) {}
  Counting(const Counting&) = delete;
  Counting& operator=(const Counting&) = delete;
  ~Counting() {
    ++cost_.calls;
    cost_.objects += cost::allocations().made - atStart_;
  }

 private:
  Cost& cost_;
  const std::size_t atStart_ = cost::allocations().made;
};

extern "C" {

static netsnmp_variable_list* countedFirst(void** loop, void** data, netsnmp_variable_list* put,
                                           netsnmp_iterator_info* iinfo) {
  const Counting counting("first");
  return norvekReloadCauseTable_get_first_data_point(loop, data, put, iinfo);
}

static netsnmp_variable_list* countedNext(void** loop, void** data, netsnmp_variable_list* put,
                                          netsnmp_iterator_info* iinfo) {
  const Counting counting("next");
  return norvekReloadCauseTable_get_next_data_point(loop, data, put, iinfo);
}

static void* countedMake(void* loop, netsnmp_iterator_info* iinfo) {
  const Counting counting("make");
  return norvekReloadCauseTable_make_data_context(loop, iinfo);
}

static void countedFreeData(void* data, netsnmp_iterator_info* iinfo) {
  const Counting counting("free data");
  norvekReloadCauseTable_free_data_context(data, iinfo);
}

static void countedFreeLoop(void* loop, netsnmp_iterator_info* iinfo) {
  const Counting counting("free loop");
  norvekReloadCauseTable_free_loop_context_at_end(loop, iinfo);
}

static int countedHandler(netsnmp_mib_handler* handler, netsnmp_handler_registration* registration,
                          netsnmp_agent_request_info* reqinfo, netsnmp_request_info* requests) {
  const Counting counting("handler");
  return norvekReloadCauseTable_handler(handler, registration, reqinfo, requests);
}

// The linker's names: __wrap_X stands in the place of X, and __real_X is X.
int __real_netsnmp_register_table_iterator(netsnmp_handler_registration* registration,
                                           netsnmp_iterator_info* info);
int __wrap_netsnmp_register_table_iterator(netsnmp_handler_registration* registration,
                                           netsnmp_iterator_info* info);
int __wrap_netsnmp_register_table_iterator(netsnmp_handler_registration* registration,
                                           netsnmp_iterator_info* info) {
  info->get_first_data_point = &countedFirst;
  info->get_next_data_point = &countedNext;
  info->make_data_context = &countedMake;
  info->free_data_context = &countedFreeData;
  info->free_loop_context_at_end = &countedFreeLoop;
  registration->handler->access_method = &countedHandler;
  return __real_netsnmp_register_table_iterator(registration, info);
}
}

TEST(GetNextCostTest, AVarbindTakesTwoStepsOfTheWalkAndTwoObjects) {
  cost::GetNextWalk walk(100);
  walk.getNext(1);
  costs().clear();
  walk.getNext(150);
  EXPECT_THAT(costs(), ElementsAre(Pair("first", Cost{150, 150}), Pair("free data", Cost{150, 0}),
                                   Pair("free loop", Cost{150, 0}), Pair("handler", Cost{150, 0}),
                                   Pair("make", Cost{150, 150}), Pair("next", Cost{150, 0})));
}

}  // namespace
