// manager/writelookup.cpp: the write manager's lookups and iterators, those of
// the read manager with non-const results.
