// manager/kept.cpp: the statements kept when a shared database was read,
// in a side table by database object (the object's layout stays as
// clients know it), and their accessor.
#include "manager/kept.h"

#include <map>
#include <vector>

#include "tavloms/load.h"
#include "tavloms/manager.h"

namespace tavlo::manager {

namespace {

std::map<const TavloDatabase*, dbfile::KeptStatements>& Table() {
    static std::map<const TavloDatabase*, dbfile::KeptStatements> table;
    return table;
}

}  // namespace

void SetKeptStatements(const TavloDatabase* db, std::vector<dbfile::KeptText>& kept) {
    ForgetKeptStatements(db);
    if (kept.empty()) {
        return;
    }
    Table().emplace(db, dbfile::KeptStatements(kept));
}

void ForgetKeptStatements(const TavloDatabase* db) {
    Table().erase(db);
}

}  // namespace tavlo::manager

const tavlo_kept_t* TavloGetKeptStatements(const TavloManager& manager, const char* dbName,
                                           size_t* count) {
    if (count != nullptr) {
        *count = 0;
    }
    const TavloDatabase* db = dbName != nullptr ? manager.ListFindDatabase(dbName) : nullptr;
    const auto& table = tavlo::manager::Table();
    const auto found = table.find(db);
    if (db == nullptr || found == table.end()) {
        return nullptr;
    }
    if (count != nullptr) {
        *count = found->second.statements.size();
    }
    return found->second.statements.data();
}
