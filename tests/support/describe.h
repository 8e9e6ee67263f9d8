// tests/support/describe.h: a database as text, every field of every record,
// with references written by the key they are found by (names, category
// numbers). Two databases with the same content describe the same, whatever
// their addresses; tests compare databases through it.
#ifndef TAVLOMS_TESTS_DESCRIBE_H
#define TAVLOMS_TESTS_DESCRIBE_H

#include <string>

#include "tavloms/records.h"

namespace tavlo::test {

// Numbers are given with `digits` significant digits: 17 tells every double
// apart, 11 is what a database file keeps.
std::string DescribeDatabase(const tavlo_root_t& db, int digits = 17);

}  // namespace tavlo::test

#endif  // TAVLOMS_TESTS_DESCRIBE_H
