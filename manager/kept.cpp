// manager/kept.cpp: the statements kept when a shared database was read,
// in a side table by database object (the object's layout stays as
// clients know it), and their accessor.
#include "manager/kept.h"

#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "tavloms/load.h"
#include "tavloms/manager.h"

namespace tavlo::manager {

namespace {

struct Kept {
    std::vector<std::string> texts;
    std::vector<tavlo_kept_t> statements;
};

std::map<const TavloDatabase*, Kept>& Table() {
    static std::map<const TavloDatabase*, Kept> table;
    return table;
}

}  // namespace

void SetKeptStatements(const TavloDatabase* db, std::vector<dbfile::KeptText>& kept) {
    ForgetKeptStatements(db);
    if (kept.empty()) {
        return;
    }
    Kept& entry = Table()[db];
    entry.texts.reserve(kept.size());
    for (dbfile::KeptText& statement : kept) {
        entry.texts.push_back(std::move(statement.text));
        entry.statements.push_back(tavlo_kept_t{entry.texts.back().c_str(), statement.line});
    }
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
