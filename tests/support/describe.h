// tests/support/describe.h: a database as text, every field of every record,
// references by their keys: the same content describes the same, whatever the addresses.
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
