// tools/tavlo/log.cpp: the logs of decode and plot read with the library's
// log readers, frame by frame, without allocating per frame. Frames of
// candump logs keep their time and identifier as written, so that output
// shows them as the log does.
#include "log.h"

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>

#include "system.h"
#include "tavloms/logs.h"

namespace tavlo::tool {
namespace {

// The characters that end a word of a candump line (blanks), and of its
// identifier ('#' too), by table: this runs for every frame of a log.
struct WordEnds {
    bool blank[256] = {};
    bool idEnd[256] = {};
    constexpr WordEnds() {
        for (const char c : {' ', '\t', '\r'}) {
            blank[static_cast<unsigned char>(c)] = true;
            idEnd[static_cast<unsigned char>(c)] = true;
        }
        idEnd[static_cast<unsigned char>('#')] = true;
    }
};
constexpr WordEnds kEnds;

// The time and identifier of a candump line the reader took as a frame:
// "(TIME) DEVICE ID#..." or "DEVICE ID [LEN] ...".
void CandumpTexts(std::string_view line, Frame& frame) {
    const auto blank = [](char c) { return kEnds.blank[static_cast<unsigned char>(c)]; };
    const char* at = line.data();
    const char* const end = at + line.size();
    const auto skipBlanks = [&] {
        while (at < end && blank(*at)) {
            ++at;
        }
    };
    skipBlanks();
    frame.time = std::string_view();
    if (at < end && *at == '(') {
        const char* close = static_cast<const char*>(std::memchr(at, ')', static_cast<std::size_t>(end - at)));
        if (close == nullptr) {
            close = end;
        }
        frame.time = std::string_view(at + 1, static_cast<std::size_t>(close - at - 1));
        at = close < end ? close + 1 : end;
        skipBlanks();
    }
    while (at < end && !blank(*at)) {  // the device
        ++at;
    }
    skipBlanks();
    const char* const id = at;
    while (at < end && !kEnds.idEnd[static_cast<unsigned char>(*at)]) {
        ++at;
    }
    frame.idText = std::string_view(id, static_cast<std::size_t>(at - id));
}

// A channel's length: its text ends within the record's 16 bytes. Read as
// two words, whose first zero byte shows in the lowest bit this sets.
std::size_t Length(const char (&channel)[16]) {
    std::uint64_t words[2];
    std::memcpy(words, channel, sizeof words);
    for (std::size_t i = 0; i < 2; ++i) {
        const std::uint64_t zero =
            (words[i] - 0x0101010101010101u) & ~words[i] & 0x8080808080808080u;
        if (zero != 0) {
            return 8 * i + static_cast<std::size_t>(__builtin_ctzll(zero)) / 8;
        }
    }
    return sizeof channel;
}

// A library frame as the subcommands take it; texts of other formats are
// made in the buffers given.
void ToFrame(const tavlo_log_frame_t& record, int format, std::string_view line, Frame& frame,
             char (&timeText)[32], char (&idText)[16]) {
    frame.channel = std::string_view(record.channel, Length(record.channel));
    if (format == TAVLO_LOG_CANDUMP) {
        CandumpTexts(line, frame);
    } else {
        const int timeLength =
            record.has_time ? std::snprintf(timeText, sizeof timeText, "%.6f", record.time) : 0;
        frame.time = std::string_view(timeText, timeLength > 0 ? timeLength : 0);
        const bool extended = (record.flags & TAVLO_LOG_EXTENDED) != 0;
        const int idLength = std::snprintf(idText, sizeof idText, extended ? "%08X" : "%03X",
                                           static_cast<unsigned int>(record.id & 0x1FFFFFFFu));
        frame.idText = std::string_view(idText, idLength > 0 ? idLength : 0);
    }
    frame.id = record.id;
    frame.remote = (record.flags & TAVLO_LOG_REMOTE) != 0;
    frame.error = (record.flags & TAVLO_LOG_ERROR_FRAME) != 0;
    frame.length = record.length;
    std::memcpy(frame.data, record.data, sizeof frame.data);
}

constexpr unsigned long kProgressLines = 100000;

}  // namespace

int ReadFrames(const Arguments& logs, const std::function<void(const Frame&)>& sink,
               const std::function<void()>& idle) {
    const Arguments standardInput{"-"};
    const bool progress = StandardErrorIsTerminal();
    int status = kOk;
    tavlo_log_frame_t record;
    Frame frame;
    char timeText[32];
    char idText[16];
    for (const std::string& log : logs.empty() ? standardInput : logs) {
        const bool isStdin = log == "-";
        const std::string name = isStdin ? "<standard input>" : log;
        const int file = isStdin ? kStandardInputFile : OpenToRead(log);
        tavlo_log_reader_t* reader = nullptr;
        if (file < 0 || tavlo_log_open_fd(file, log.c_str(), TAVLO_LOG_DETECT, &reader) !=
                            TAVLO_LOG_OK) {
            std::fprintf(stderr, "%s: cannot be read: %s\n", name.c_str(), std::strerror(errno));
            if (file >= 0 && !isStdin) {
                CloseFile(file);
            }
            status = kFailed;
            continue;
        }
        if (idle) {
            tavlo_log_set_idle(
                reader, [](void* context) { (*static_cast<const std::function<void()>*>(context))(); },
                const_cast<std::function<void()>*>(&idle));
        }
        unsigned long shown = 0;
        int format = TAVLO_LOG_DETECT;  // known after the first record
        for (unsigned long records = 1;; ++records) {
            const int result = tavlo_log_next(reader, &record);
            // Where the log is, asked for now and then: it grows by a line or more a record.
            if (progress && records % 1024 == 0) {
                const unsigned long line = tavlo_log_line(reader);
                if (line / kProgressLines != shown / kProgressLines) {
                    shown = line / kProgressLines * kProgressLines;
                    std::fprintf(stderr, "\r%s: %lu lines", name.c_str(), shown);
                }
            }
            if (result == TAVLO_LOG_OK) {
                format = format == TAVLO_LOG_DETECT ? tavlo_log_format(reader) : format;
                std::size_t length = 0;
                const char* text =
                    format == TAVLO_LOG_CANDUMP ? tavlo_log_text(reader, &length) : nullptr;
                ToFrame(record, format, std::string_view(text, length), frame, timeText, idText);
                sink(frame);
            } else if (result == TAVLO_LOG_BAD_RECORD) {
                std::fprintf(stderr, "%s:%lu: %s\n", name.c_str(), tavlo_log_line(reader),
                             tavlo_log_error(reader));
                status = kFailed;
            } else {
                if (result == TAVLO_LOG_READ_FAILED) {
                    std::fprintf(stderr, "%s: %s\n", name.c_str(), tavlo_log_error(reader));
                    status = kFailed;
                }
                break;
            }
        }
        if (progress && shown >= kProgressLines) {
            std::fprintf(stderr, "\r%s: %lu lines\n", name.c_str(), tavlo_log_line(reader));
        }
        tavlo_log_close(reader);
        if (!isStdin) {
            CloseFile(file);
        }
    }
    return status;
}

}  // namespace tavlo::tool
