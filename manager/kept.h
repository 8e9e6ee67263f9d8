// manager/kept.h: the side table of the statements kept when a shared
// database object was read (manager/kept.cpp).
#ifndef TAVLOMS_MANAGER_KEPT_H
#define TAVLOMS_MANAGER_KEPT_H

#include <vector>

#include "dbfile/session.h"

class TavloDatabase;

namespace tavlo::manager {

// Replaces the statements of `db` by `kept` (whose texts it takes).
void SetKeptStatements(const TavloDatabase* db, std::vector<dbfile::KeptText>& kept);
void ForgetKeptStatements(const TavloDatabase* db);

}  // namespace tavlo::manager

#endif  // TAVLOMS_MANAGER_KEPT_H
