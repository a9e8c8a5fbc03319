#pragma once

#include "NorvekGeneralMIB/NetSnmp.h"

// The callbacks by which net-snmp's table iterator walks the rows of the model in key order.
//
// A loop context is a RowIterator on the heap, made by get_first and freed by free_loop_context;
// a data context is a copy of one, made for a row that net-snmp keeps. Each holds its row, so rows
// may come and go between two calls. Nothing is ever thrown: a failure ends the walk.
extern "C" {

// *loop_context is null or the request's netsnmp_table_request_info: when its three indexes name a
// row, the walk starts there, else at the first row. It is replaced by the new loop context in
// every case. Returns put_index_data, filled with the indexes of the row, or null at the end.
netsnmp_variable_list* norvekReloadCauseTable_get_first_data_point(
    void** loop_context, void** data_context, netsnmp_variable_list* put_index_data,
    netsnmp_iterator_info* iinfo);

// Moves to the next row that the table holds now; a data context that is given follows.
netsnmp_variable_list* norvekReloadCauseTable_get_next_data_point(
    void** loop_context, void** data_context, netsnmp_variable_list* put_index_data,
    netsnmp_iterator_info* iinfo);

void* norvekReloadCauseTable_make_data_context(void* loop_context, netsnmp_iterator_info* iinfo);

// Each allows null.
void norvekReloadCauseTable_free_data_context(void* data_context, netsnmp_iterator_info* iinfo);
void norvekReloadCauseTable_free_loop_context_at_end(void* loop_context,
                                                     netsnmp_iterator_info* iinfo);
}
