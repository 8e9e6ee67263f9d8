// tests/support/sample_database.h: a database built through the flat
// interface that holds every kind of record and every kind of reference, and
// small helpers to build records in tests.
#ifndef TAVLOMS_TESTS_SAMPLE_DATABASE_H
#define TAVLOMS_TESTS_SAMPLE_DATABASE_H

#include "tavloms/tavloms.h"

namespace tavlo::test {

// A copy of a text in library memory.
char* Text(const char* text);

// Each appends a new entry at the tail of a list and returns the list's head.
attr* AppendAttr(attr* list, attr_def* def, tavlo_attr_value_t value);
attr* AppendTextAttr(attr* list, attr_def* def, const char* text);
attr* AppendNumberAttr(attr* list, attr_def* def, double number);
val* AppendValue(val* list, int value, const char* text);
rxblk* AppendRelation(rxblk* list, symblk* node);

// Every kind of record and reference: attributes of all value and object
// types, with values; multiplexed and typed signals, groups, transmitters,
// data and other variables. Release with TAVLO_FREE_ROOT.
tavlo_root_t BuildSampleDatabase();

}  // namespace tavlo::test

#endif  // TAVLOMS_TESTS_SAMPLE_DATABASE_H
