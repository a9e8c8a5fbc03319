#pragma once

#include <array>
#include <string>
#include <vector>

#include "NorvekGeneralMIB/NetSnmp.h"
#include "Qel/Types.h"

namespace Bench {

// Unit, reload and cause: the indexes of the reload-cause table, in their order.
using Key = std::array<U32, 3>;

// What the reload-cause table shows of one cause, ready to be put into an answer.
struct Row {
  Key key;
  std::string description;
  std::array<u_char, 11> time;
};

// The rows of a supervisor whose last reload had so many causes: each under unit 0 and under unit
// 1, in the order of the table. bench/suite writes the same causes into the state database.
std::vector<Row> rowsOf(U32 causes);

// Puts the column that the request asks for into it; without a row, that there is none.
void answer(netsnmp_request_info* request, const Row* row);

// The key of what a manager asked for, with 0 for each index that it left out. A table takes it
// from its helper.
Key keyOf(const netsnmp_table_request_info& asked);

// Puts the key into the three varbinds, which allocates nothing.
void indexesAre(netsnmp_variable_list* indexes, const Key& key);

}  // namespace Bench
