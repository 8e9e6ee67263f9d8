// manager/names.h: the character rules of database names, shared by the
// module frame (checking names) and the database object (making them).
#ifndef TAVLOMS_MANAGER_NAMES_H
#define TAVLOMS_MANAGER_NAMES_H

namespace tavlo::manager {

// Character classes as the C locale has them, whatever locale the client
// set: names mean the same everywhere.
inline bool IsLetter(char c) { return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z'); }
inline bool IsDigit(char c) { return c >= '0' && c <= '9'; }
inline bool IsNameChar(char c) { return IsLetter(c) || IsDigit(c) || c == '_'; }
inline char LowerAscii(char c) { return (c >= 'A' && c <= 'Z') ? static_cast<char>(c - 'A' + 'a') : c; }

// Makes a database name of src in dst: at most limit - 1 characters and a
// terminating zero. Until the first character that can begin a name, every
// character that cannot becomes '_' (so "12-ab" gives "___ab"); after it,
// characters that cannot be part of a name are dropped ("my-db" gives
// "mydb"). dst may be src.
void MakeDatabaseName(char* dst, const char* src, unsigned int limit);

}  // namespace tavlo::manager

#endif  // TAVLOMS_MANAGER_NAMES_H
