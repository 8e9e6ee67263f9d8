// tests/support/read_database.h: reads a database file or a text into a
// root for tests, catching what the reader shows and raises.
#ifndef TAVLOMS_TESTS_READ_DATABASE_H
#define TAVLOMS_TESTS_READ_DATABASE_H

#include <string>
#include <vector>

#include "tavloms/kept.h"
#include "tavloms/records.h"

namespace tavlo::test {

struct ReadOutcome {
    unsigned int result = 0;            // TAVLO_READ's result when it returned
    bool raised = false;                // TavloException came out instead
    std::vector<std::string> messages;  // every message box, in order
};

// Reads `path` into a zeroed `root`, which the caller releases (also after a failed read).
ReadOutcome ReadDatabase(const std::string& path, tavlo_root_t* root);

// Writes `text` to a file of its own (named after the running test) and reads it.
ReadOutcome ReadText(const std::string& text, tavlo_root_t* root);

// A name for a parameterised test made of any text: every character but
// letters and digits becomes '_'.
std::string TestName(const std::string& text);

// A file path of its own for the running test, with `suffix` appended.
std::string TestFilePath(const std::string& suffix);

// The whole content of a text file ("" when it cannot be read), line ends read as "\n".
std::string FileContent(const std::string& path);

// Writes `root` to `path` with TAVLO_WRITE and returns its result.
unsigned int WriteDatabase(const std::string& path, const tavlo_root_t& root);

}  // namespace tavlo::test

#endif  // TAVLOMS_TESTS_READ_DATABASE_H
