// Writes the input of bench/decode_speed.sh: the generated database of
// 2,000 messages of 8 signals, and a candump log of frames of its messages,
// identifiers drawn at random, 8 random data bytes each, 100 µs apart.
//
//   tavloms_make_decode_input DB_FILE LOG_FILE FRAMES
//
// The same arguments always give the same files.
#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>
#include <vector>

#include "generated_database.h"
#include "tavloms/tavloms.h"

int main(int argc, char** argv) {
    if (argc != 4) {
        std::fputs("usage: tavloms_make_decode_input DB_FILE LOG_FILE FRAMES\n", stderr);
        return 2;
    }
    const unsigned long frames = std::strtoul(argv[3], nullptr, 10);
    std::FILE* db = std::fopen(argv[1], "wb");
    if (db == nullptr) {
        std::perror(argv[1]);
        return 1;
    }
    const std::string text = tavloms_bench::GenerateDatabaseText(2000);
    const bool dbWritten = std::fwrite(text.data(), 1, text.size(), db) == text.size();
    if (std::fclose(db) != 0 || !dbWritten) {
        std::perror(argv[1]);
        return 1;
    }
    tavlo_root_t root{};
    TAVLO_READ(argv[1], &root.nodes, &root.messages, &root.envvars, &root.bit_timings,
               &root.attr_defs, &root.db_attrs, &root.categories, &root.filter, &root.comment,
               &root.version, &root.sig_types, &root.value_tables);
    std::vector<unsigned int> ids;
    for (const msgblk* m = root.messages; m != nullptr; m = m->next) {
        ids.push_back(m->id);
    }
    TAVLO_FREE_ROOT(&root);
    std::FILE* log = std::fopen(argv[2], "wb");
    if (log == nullptr || ids.empty()) {
        std::perror(argv[2]);
        return 1;
    }
    std::mt19937 random(1);
    for (unsigned long i = 0; i < frames; ++i) {
        const unsigned int id = ids[random() % ids.size()];
        const unsigned long micros = 100 * i;
        if ((id & 0x80000000u) != 0) {
            std::fprintf(log, "(%lu.%06lu) can0 %08X#", 1600000000 + micros / 1000000,
                         micros % 1000000, id & 0x1FFFFFFFu);
        } else {
            std::fprintf(log, "(%lu.%06lu) can0 %03X#", 1600000000 + micros / 1000000,
                         micros % 1000000, id);
        }
        for (int b = 0; b < 8; ++b) {
            std::fprintf(log, "%02X", static_cast<unsigned int>(random() & 0xFF));
        }
        std::fputc('\n', log);
    }
    if (std::fclose(log) != 0) {
        std::perror(argv[2]);
        return 1;
    }
    return 0;
}
