/* tavloms/logs.h: CAN logs read as frames, one record at a time.
 *
 * A reader reads candump logs (both forms), Vector ASC and BLF, and PEAK TRC
 * (1.0 to 2.1), telling the format by the first bytes of the log rather than
 * by its name. It reads in large blocks and does not allocate per frame, so a
 * log of millions of frames reads in a second or two; it never seeks, so
 * pipes and standard input read like files. A bad line or object is reported
 * and skipped and reading goes on. These functions live in the library
 * tavloms_logs (pkg-config tavloms_logs; CMake tavloms::tavloms_logs), not in
 * tavloms itself. Compiles as C99; C++ clients also get tavlo::LogReader at
 * the end of this header. */
#ifndef TAVLOMS_LOGS_H
#define TAVLOMS_LOGS_H

#include <stddef.h>
#include <stdint.h>
#include <stdio.h>

#include "export.h"

TAVLO_BEGIN_C

/* Result codes of the readers' functions. */
#define TAVLO_LOG_OK 0
#define TAVLO_LOG_END 1          /* no more frames */
#define TAVLO_LOG_BAD_RECORD 2   /* a line or object was skipped: tavlo_log_error says why and
                                    tavlo_log_line where; the next call goes on after it */
#define TAVLO_LOG_READ_FAILED 3  /* the log cannot be read on (a read error, a truncated or broken
                                    binary log): tavlo_log_error says why; later calls end */
#define TAVLO_LOG_CANNOT_OPEN 4  /* errno says why */
#define TAVLO_LOG_BAD_ARGUMENT 5 /* a null pointer, an unknown format */
#define TAVLO_LOG_NO_MEMORY 6

/* Formats; TAVLO_LOG_DETECT tells it from the log's first bytes (the name's
 * extension only when they say nothing, as in an empty log). Keep in step
 * with the names of tavlo_log_format_name. */
#define TAVLO_LOG_DETECT 0
#define TAVLO_LOG_CANDUMP 1
#define TAVLO_LOG_ASC 2
#define TAVLO_LOG_BLF 3
#define TAVLO_LOG_TRC 4

/* tavlo_log_frame_t.flags */
#define TAVLO_LOG_EXTENDED 0x01u    /* a 29-bit identifier; bit 31 of id is set as well */
#define TAVLO_LOG_REMOTE 0x02u      /* a remote frame: no data, length 0 */
#define TAVLO_LOG_ERROR_FRAME 0x04u /* id and data as the log gives them (often none) */
#define TAVLO_LOG_FD 0x08u          /* a CAN FD frame */
#define TAVLO_LOG_BRS 0x10u         /* FD: the data phase's bit rate was switched */
#define TAVLO_LOG_ESI 0x20u         /* FD: the sender was error passive */

/* One frame of a log. */
typedef struct tavlo_log_frame_t {
    double time;           /* seconds as the log counts them: since 1970 in candump logs,
                              since the measurement's start in ASC, BLF and TRC logs */
    int has_time;          /* 0: the line had no time (candump's screen form); time is 0 */
    uint32_t id;           /* the identifier; bit 31 set for an extended one */
    unsigned int flags;    /* TAVLO_LOG_EXTENDED ... TAVLO_LOG_ESI */
    unsigned int length;   /* data bytes, 0 to 64 */
    char channel[16];      /* as the log writes it ("can0"; "1" in ASC, BLF and TRC), ""
                              when it names none; cut to 15 bytes */
    unsigned char data[64]; /* bytes past length are zero */
} tavlo_log_frame_t;

typedef struct tavlo_log_reader_t tavlo_log_reader_t;

/* Opens the log at path ("-": standard input) as format (TAVLO_LOG_DETECT to
 * tell it from the content). *reader is null on failure: TAVLO_LOG_CANNOT_OPEN
 * (errno says why), TAVLO_LOG_BAD_ARGUMENT or TAVLO_LOG_NO_MEMORY. */
TAVLO_API int tavlo_log_open(const char* path, int format, tavlo_log_reader_t** reader);
/* The same over a file already open for reading, or an open file descriptor;
 * it is read from where it stands and not closed by tavlo_log_close. name is
 * used for the extension only and may be null. */
TAVLO_API int tavlo_log_open_file(FILE* file, const char* name, int format,
                                  tavlo_log_reader_t** reader);
TAVLO_API int tavlo_log_open_fd(int fd, const char* name, int format, tavlo_log_reader_t** reader);
/* The same over size bytes in memory, which must stay as they are until
 * tavlo_log_close. */
TAVLO_API int tavlo_log_open_memory(const void* data, size_t size, const char* name, int format,
                                    tavlo_log_reader_t** reader);
/* Frees the reader; null is ignored. */
TAVLO_API void tavlo_log_close(tavlo_log_reader_t* reader);

/* The next frame into *frame: TAVLO_LOG_OK, TAVLO_LOG_END, TAVLO_LOG_BAD_RECORD
 * (*frame is unspecified; call again to go on) or TAVLO_LOG_READ_FAILED. */
TAVLO_API int tavlo_log_next(tavlo_log_reader_t* reader, tavlo_log_frame_t* frame);
/* Up to capacity frames into frames, *count of them: TAVLO_LOG_OK with at
 * least one, TAVLO_LOG_END with none, or the code of the bad record or failed
 * read that stopped the batch (with the frames before it in *count). */
TAVLO_API int tavlo_log_read(tavlo_log_reader_t* reader, tavlo_log_frame_t* frames,
                             size_t capacity, size_t* count);

/* The format being read; TAVLO_LOG_DETECT before the first frame is asked
 * for when the log is not yet told. */
TAVLO_API int tavlo_log_format(const tavlo_log_reader_t* reader);
/* "candump", "ASC", "BLF", "TRC"; "?" for another number. */
TAVLO_API const char* tavlo_log_format_name(int format);
/* The one-line reason of the last TAVLO_LOG_BAD_RECORD or
 * TAVLO_LOG_READ_FAILED, "" before any; it lives until the next call. */
TAVLO_API const char* tavlo_log_error(const tavlo_log_reader_t* reader);
/* Where the last frame or bad record is: its line number in a text log, its
 * number among the objects of a BLF log (counting those inside containers). */
TAVLO_API unsigned long tavlo_log_line(const tavlo_log_reader_t* reader);
/* The byte offset of that line, or of the BLF object (or container) that
 * holds it, in the log. */
TAVLO_API uint64_t tavlo_log_offset(const tavlo_log_reader_t* reader);
/* The text of that line without its end, in a text log ("" in a BLF log);
 * it lives until the next call. */
TAVLO_API const char* tavlo_log_text(const tavlo_log_reader_t* reader, size_t* length);
/* How many lines or objects that are not frames (events, statuses, other
 * objects) were passed over, and how many bad ones were reported. Comments
 * and header lines count in neither. */
TAVLO_API unsigned long tavlo_log_skipped(const tavlo_log_reader_t* reader);
TAVLO_API unsigned long tavlo_log_bad(const tavlo_log_reader_t* reader);

/* Has idle(context) called whenever the reader has used the input it has
 * and is about to wait for more: before a read from a file descriptor with
 * nothing ready (a pipe, terminal, socket or character device; a disk file
 * is always ready), and before every read from a FILE or, on Windows, from a
 * descriptor. A program decoding live input writes out its output there, so
 * that what it made of the frames so far is seen while it waits. A null
 * idle removes it. TAVLO_LOG_OK, or TAVLO_LOG_BAD_ARGUMENT for a null reader. */
TAVLO_API int tavlo_log_set_idle(tavlo_log_reader_t* reader, void (*idle)(void* context),
                                 void* context);

TAVLO_END_C

#ifdef __cplusplus
#include <string_view>
#include <utility>

namespace tavlo {

/* A reader for C++: owns its tavlo_log_reader_t; moves, does not copy. */
class LogReader {
public:
    LogReader() = default;
    explicit LogReader(const char* path, int format = TAVLO_LOG_DETECT) {
        opened_ = tavlo_log_open(path, format, &reader_);
    }
    LogReader(LogReader&& other) noexcept
        : reader_(other.reader_), opened_(other.opened_) { other.reader_ = nullptr; }
    LogReader& operator=(LogReader&& other) noexcept {
        std::swap(reader_, other.reader_);
        std::swap(opened_, other.opened_);
        return *this;
    }
    LogReader(const LogReader&) = delete;
    LogReader& operator=(const LogReader&) = delete;
    ~LogReader() { tavlo_log_close(reader_); }

    explicit operator bool() const { return reader_ != nullptr; }
    int OpenResult() const { return opened_; }
    tavlo_log_reader_t* get() const { return reader_; }

    int Next(tavlo_log_frame_t& frame) { return tavlo_log_next(reader_, &frame); }
    int Format() const { return tavlo_log_format(reader_); }
    const char* Error() const { return tavlo_log_error(reader_); }
    unsigned long Line() const { return tavlo_log_line(reader_); }
    std::string_view Text() const {
        std::size_t length = 0;
        const char* text = tavlo_log_text(reader_, &length);
        return std::string_view(text, length);
    }
    unsigned long Skipped() const { return tavlo_log_skipped(reader_); }
    unsigned long Bad() const { return tavlo_log_bad(reader_); }
    int SetIdle(void (*idle)(void* context), void* context) {
        return tavlo_log_set_idle(reader_, idle, context);
    }

private:
    tavlo_log_reader_t* reader_ = nullptr;
    int opened_ = TAVLO_LOG_BAD_ARGUMENT;
};

}  // namespace tavlo
#endif /* __cplusplus */

#endif /* TAVLOMS_LOGS_H */
