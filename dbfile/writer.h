// dbfile/writer.h: the writer's output buffer and the pieces of the writer
// that are reached from outside TAVLO_WRITE.
//
// The writer produces files of many megabytes, so text is gathered in one
// large block and handed to the file a block at a time, never per field.
#ifndef TAVLOMS_DBFILE_WRITER_H
#define TAVLOMS_DBFILE_WRITER_H

#include <cstddef>
#include <cstdio>
#include <cstring>
#include <memory>

#include "dbfile/number.h"
#include "tavloms/kept.h"
#include "tavloms/records.h"

namespace tavlo::dbfile {

// Text for an open file, gathered in memory. What was put is written out
// when the block is full, on Flush, and when the object goes away; the
// results of the writes are not checked.
class OutputText {
public:
    explicit OutputText(std::FILE* file);
    ~OutputText();
    OutputText(const OutputText&) = delete;
    OutputText& operator=(const OutputText&) = delete;

    void Put(char c) {
        if (used_ == kBlockSize) {
            Flush();
        }
        block_[used_++] = c;
    }
    void Put(const char* text, std::size_t length) {
        if (length > kBlockSize - used_) {
            PutLong(text, length);
            return;
        }
        char* to = block_.get() + used_;
        used_ += length;
        // Names and keywords are short: copied inline in two overlapping
        // moves, reading nothing outside the text.
        if (length >= 8 && length <= 16) {
            std::memcpy(to, text, 8);
            std::memcpy(to + length - 8, text + length - 8, 8);
        } else if (length >= 4 && length < 8) {
            std::memcpy(to, text, 4);
            std::memcpy(to + length - 4, text + length - 4, 4);
        } else if (length < 4) {
            for (std::size_t i = 0; i < length; ++i) {
                to[i] = text[i];
            }
        } else {
            std::memcpy(to, text, length);
        }
    }
    void Put(const char* text) { Put(text, std::strlen(text)); }

    void Number(double value) { used_ += FormatNumber(value, Room()); }  // "%.11G"
    void Unsigned(unsigned long long value) { used_ += FormatUnsigned(value, Room()); }
    void Signed(long long value) { used_ += FormatSigned(value, Room()); }
    void Hex(unsigned int value) { used_ += FormatHex(value, Room()); }  // "%X"

    void Flush();

private:
    static constexpr std::size_t kBlockSize = std::size_t{1} << 20;

    // Space for one number at the end of the block.
    char* Room() {
        if (kBlockSize - used_ < kNumberRoom) {
            Flush();
        }
        return block_.get() + used_;
    }
    void PutLong(const char* text, std::size_t length);

    std::FILE* file_;
    std::unique_ptr<char[]> block_;
    std::size_t used_ = 0;
};

// Writes the value type of an attribute definition with its range or its
// enumeration texts ("INT 0 10", "STRING ", "ENUM  \"a\",\"b\""). A null
// definition is an assertion failure.
void WriteValueType(OutputText& out, const attr_def* attr);

// Writes the database as TAVLO_WRITE does, then the kept statements, each on
// its own; the "NS_" list declares the first symbol of each that is no
// keyword, so that the file reads back to the same records and statements.
// Returns 0, or kMsgCouldNotWrite.
unsigned int WriteWithKept(const char* file, const tavlo_root_t& db, const tavlo_kept_t* kept,
                           std::size_t keptCount);

// Writes the "NS_DESC_ :" statement: every keyword with its description.
// TAVLO_WRITE does not write it.
void WriteNewSymbolDescriptions(OutputText& out);

}  // namespace tavlo::dbfile

#endif  // TAVLOMS_DBFILE_WRITER_H
