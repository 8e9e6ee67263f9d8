// Writes the generated benchmark database with the given number of messages,
// for seeding the fuzzer with small files of every kind of line.
//
//     generate_database <messages> <file>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "generated_database.h"

int main(int argc, char** argv) {
    if (argc != 3) {
        std::fprintf(stderr, "usage: %s <messages> <file>\n", argv[0]);
        return 2;
    }
    const unsigned long messages = std::strtoul(argv[1], nullptr, 10);
    const std::string text =
        tavloms_bench::GenerateDatabaseText(static_cast<unsigned int>(messages));
    FILE* file = std::fopen(argv[2], "wb");
    if (!file) {
        std::perror(argv[2]);
        return 1;
    }
    const bool written = std::fwrite(text.data(), 1, text.size(), file) == text.size();
    if (std::fclose(file) != 0 || !written) {
        std::perror(argv[2]);
        return 1;
    }
    return 0;
}
