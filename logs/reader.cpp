// logs/reader.cpp: the log reader's C entries, its input in large blocks and
// the telling of a log's format by its first bytes. The formats themselves
// are in candump.cpp, asc.cpp, trc.cpp and blf.cpp.
#include "reader.h"

#include <cerrno>
#include <charconv>
#include <cstdarg>
#include <cstring>
#include <new>

#if defined(_WIN32)
#include <fcntl.h>
#include <io.h>
#else
#include <poll.h>
#include <unistd.h>
#endif

namespace {

constexpr std::size_t kBlock = 1 << 20;
// A line or object longer than this is not read whole: a log is not made of
// such, and a broken one must not take all memory.
constexpr std::size_t kMostBuffered = std::size_t(1) << 28;

// Up to size bytes of the reader's input into buffer: how many, 0 at the
// end, -1 on an error.
long ReadInput(tavlo_log_reader_t& reader, char* buffer, std::size_t size) {
    if (reader.memory != nullptr || reader.memorySize != 0) {
        const std::uint64_t used = reader.bufferOffset + reader.end;
        const std::size_t left = used < reader.memorySize
                                     ? reader.memorySize - static_cast<std::size_t>(used)
                                     : 0;
        const std::size_t count = left < size ? left : size;
        std::memcpy(buffer, reader.memory + used, count);
        return static_cast<long>(count);
    }
    if (reader.file != nullptr) {
        if (reader.idle != nullptr) {
            reader.idle(reader.idleContext);
        }
        const std::size_t got = std::fread(buffer, 1, size, reader.file);
        if (got == 0 && std::ferror(reader.file)) {
            return -1;
        }
        return static_cast<long>(got);
    }
    const unsigned int most = size > (1u << 30) ? (1u << 30) : static_cast<unsigned int>(size);
    if (reader.idle != nullptr) {
#if defined(_WIN32)
        reader.idle(reader.idleContext);
#else
        pollfd ready{reader.fd, POLLIN, 0};
        if (poll(&ready, 1, 0) == 0) {
            reader.idle(reader.idleContext);
        }
#endif
    }
    for (;;) {
#if defined(_WIN32)
        const int got = _read(reader.fd, buffer, most);
#else
        const ssize_t got = read(reader.fd, buffer, most);
#endif
        if (got < 0 && errno == EINTR) {
            continue;
        }
        return static_cast<long>(got);
    }
}

bool EndsWith(std::string_view text, std::string_view end) {
    if (text.size() < end.size()) {
        return false;
    }
    for (std::size_t i = 0; i < end.size(); ++i) {
        const char c = text[text.size() - end.size() + i];
        if ((c >= 'A' && c <= 'Z' ? c - 'A' + 'a' : c) != end[i]) {
            return false;
        }
    }
    return true;
}

bool StartsWith(std::string_view text, std::string_view start) {
    return text.substr(0, start.size()) == start;
}

// The format by the first bytes: "LOGG" is BLF; a first line of ';' is TRC
// (as is "1)" numbering without its header); ASC opens with its header words
// or a time; candump lines with "(" or an interface name. The extension
// decides only for a log with nothing in it.
// Only what is needed is waited for, so that live input is told by its
// first line: the bytes at hand, and more only until a line with a word in
// it is complete (or 4 KB are there, or the log ends).
int Detect(tavlo_log_reader_t& reader) {
    const auto head = [&reader] {
        return std::string_view(reader.buffer.data() + reader.start, reader.end - reader.start);
    };
    reader.Need(4);
    if (StartsWith(head(), "LOGG")) {
        return TAVLO_LOG_BLF;
    }
    const auto lineWithWord = [](std::string_view text) {
        const std::size_t newline = text.find('\n', text.find_first_not_of(" \t\r\n"));
        return newline != std::string_view::npos;
    };
    while (!reader.eof && reader.end - reader.start < 4096 && !lineWithWord(head())) {
        reader.Need(reader.end - reader.start + 1);
    }
    const std::string_view text = head();
    std::size_t at = 0;
    while (at < text.size()) {
        std::size_t lineEnd = text.find('\n', at);
        if (lineEnd == std::string_view::npos) {
            lineEnd = text.size();
        }
        const std::string_view line = text.substr(at, lineEnd - at);
        std::size_t wordAt = 0;
        const std::string_view word = tavlo::logs::Word(line, wordAt);
        at = lineEnd + 1;
        if (word.empty()) {
            continue;
        }
        if (word[0] == ';' || (word.size() > 1 && word.back() == ')' && word[0] >= '0' &&
                               word[0] <= '9')) {
            return TAVLO_LOG_TRC;
        }
        if (word[0] == '(') {
            return TAVLO_LOG_CANDUMP;
        }
        if (word == "date" || word == "base" || StartsWith(word, "//") || word == "Begin" ||
            word == "internal" || word == "no") {
            return TAVLO_LOG_ASC;
        }
        double time = 0;
        return tavlo::logs::ParseTime(word, time) && word.find('.') != std::string_view::npos
                   ? TAVLO_LOG_ASC
                   : TAVLO_LOG_CANDUMP;
    }
    if (EndsWith(reader.name, ".asc")) {
        return TAVLO_LOG_ASC;
    }
    if (EndsWith(reader.name, ".blf")) {
        return TAVLO_LOG_BLF;
    }
    if (EndsWith(reader.name, ".trc")) {
        return TAVLO_LOG_TRC;
    }
    return TAVLO_LOG_CANDUMP;
}

int Open(tavlo_log_reader_t* made, const char* name, int format, tavlo_log_reader_t** reader) {
    if (made == nullptr) {
        return TAVLO_LOG_NO_MEMORY;
    }
    try {
        made->name = name != nullptr ? name : "";
        made->buffer.resize(kBlock);
        made->error.reserve(256);
    } catch (const std::bad_alloc&) {
        delete made;
        return TAVLO_LOG_NO_MEMORY;
    }
    made->format = format;
    *reader = made;
    return TAVLO_LOG_OK;
}

bool BadFormat(int format) { return format < TAVLO_LOG_DETECT || format > TAVLO_LOG_TRC; }

}  // namespace

tavlo_log_reader_t::~tavlo_log_reader_t() {
    tavlo::logs::FreeBlf(*this);
    if (ownsFile) {
        std::fclose(file);
    }
}

bool tavlo_log_reader_t::Need(std::size_t count) {
    while (end - start < count) {
        if (eof) {
            return false;
        }
        if (start > 0) {
            std::memmove(buffer.data(), buffer.data() + start, end - start);
            end -= start;
            bufferOffset += start;
            start = 0;
        }
        if (end == buffer.size()) {
            if (buffer.size() >= kMostBuffered) {
                return false;
            }
            try {
                buffer.resize(buffer.size() * 2);
            } catch (const std::bad_alloc&) {
                return false;
            }
        }
        const long got = ReadInput(*this, buffer.data() + end, buffer.size() - end);
        if (got <= 0) {
            readFailed = got < 0;
            eof = true;
            return end - start >= count;
        }
        end += static_cast<std::size_t>(got);
    }
    return true;
}

bool tavlo_log_reader_t::NextLine(std::string_view& next) {
    std::size_t searched = start;
    for (;;) {
        const char* first = buffer.data() + start;
        const void* newline = std::memchr(buffer.data() + searched, '\n', end - searched);
        if (newline != nullptr || (eof && start < end)) {
            const char* stop = newline != nullptr ? static_cast<const char*>(newline)
                                                  : buffer.data() + end;  // the last line, unended
            next = std::string_view(first, static_cast<std::size_t>(stop - first));
            ++line;
            offset = bufferOffset + start;
            start = static_cast<std::size_t>(stop - buffer.data()) + (newline != nullptr ? 1 : 0);
            text = next;
            return true;
        }
        if (eof) {
            return false;
        }
        const std::size_t had = end - start;
        if (!Need(had + 1) && !eof) {
            // A line longer than the reader takes: cut, as one bad line.
            next = std::string_view(buffer.data() + start, had);
            ++line;
            offset = bufferOffset + start;
            start = end;
            text = next;
            return true;
        }
        searched = start + had;
    }
}

int tavlo_log_reader_t::Fail(int code, const char* format, ...) {
    char message[512];
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(message, sizeof message, format, arguments);
    va_end(arguments);
    error.assign(message);
    if (code == TAVLO_LOG_BAD_RECORD) {
        ++bad;
    }
    return code;
}

int tavlo_log_reader_t::BadLine(const char* what) {
    std::string_view shown = text;
    while (!shown.empty() && tavlo::logs::IsBlank(shown.back())) {
        shown.remove_suffix(1);
    }
    ++bad;
    error.assign(what);
    error.append(": ");
    error.append(shown.data(), shown.size());
    return TAVLO_LOG_BAD_RECORD;
}

namespace tavlo::logs {

bool ParseNumber(std::string_view text, int base, std::uint32_t& value) {
    if (text.empty()) {
        return false;
    }
    const std::from_chars_result read =
        std::from_chars(text.data(), text.data() + text.size(), value, base);
    return read.ec == std::errc() && read.ptr == text.data() + text.size();
}

bool ParseTime(std::string_view text, double& value) {
    // Digits and at most one point: no signs, exponents, "inf" or "nan".
    std::size_t digits = 0;
    std::size_t points = 0;
    std::size_t decimals = 0;
    std::uint64_t mantissa = 0;  // meaningful for at most 19 digits
    for (const char c : text) {
        const auto digit = static_cast<unsigned int>(static_cast<unsigned char>(c) - '0');
        if (digit < 10) {
            mantissa = mantissa * 10 + digit;
            ++digits;
            decimals += points;
        } else if (c == '.' && points == 0) {
            ++points;
        } else {
            return false;
        }
    }
    if (digits == 0) {
        return false;
    }
    // Every digit in an exact double, divided by an exact power of ten: one
    // rounding, the correct one, as from_chars would give (times in logs
    // have at most 16 digits, so this is the way nearly always).
    static constexpr double kTens[] = {1,    1e1,  1e2,  1e3,  1e4,  1e5,  1e6,  1e7,
                                       1e8,  1e9,  1e10, 1e11, 1e12, 1e13, 1e14, 1e15,
                                       1e16, 1e17, 1e18, 1e19, 1e20, 1e21, 1e22};
    if (digits <= 19 && mantissa <= (std::uint64_t{1} << 53) && decimals <= 22) {
        value = static_cast<double>(mantissa) / kTens[decimals];
        return true;
    }
    const std::from_chars_result read =
        std::from_chars(text.data(), text.data() + text.size(), value);
    return read.ec == std::errc() && read.ptr == text.data() + text.size();
}

void SetChannel(tavlo_log_frame_t& frame, std::string_view text) {
    const std::size_t length = text.size() < sizeof frame.channel - 1 ? text.size()
                                                                        : sizeof frame.channel - 1;
    if (length > 0) {  // an empty view may have no address, which memcpy must not get
        std::memcpy(frame.channel, text.data(), length);
    }
    frame.channel[length] = '\0';
}

void ClearFrame(tavlo_log_frame_t& frame) { std::memset(&frame, 0, sizeof frame); }

unsigned int FdLength(unsigned int dlc) {
    static const unsigned char kLengths[16] = {0, 1, 2, 3, 4, 5, 6, 7, 8, 12, 16, 20, 24, 32, 48, 64};
    return kLengths[dlc & 15];
}

}  // namespace tavlo::logs

extern "C" {

TAVLO_API int tavlo_log_open(const char* path, int format, tavlo_log_reader_t** reader) {
    if (path == nullptr || reader == nullptr || BadFormat(format)) {
        return TAVLO_LOG_BAD_ARGUMENT;
    }
    *reader = nullptr;
    std::FILE* file = nullptr;
    const bool standardInput = std::strcmp(path, "-") == 0;
    if (standardInput) {
        file = stdin;
#if defined(_WIN32)
        _setmode(_fileno(stdin), _O_BINARY);  // a log's bytes as they are, BLF's above all
#endif
    } else {
        file = std::fopen(path, "rb");
        if (file == nullptr) {
            return TAVLO_LOG_CANNOT_OPEN;
        }
    }
    tavlo_log_reader_t* made = new (std::nothrow) tavlo_log_reader_t;
    if (made != nullptr) {
        made->file = file;
        made->ownsFile = !standardInput;
    } else if (!standardInput) {
        std::fclose(file);
    }
    return Open(made, path, format, reader);
}

TAVLO_API int tavlo_log_open_file(FILE* file, const char* name, int format,
                                  tavlo_log_reader_t** reader) {
    if (file == nullptr || reader == nullptr || BadFormat(format)) {
        return TAVLO_LOG_BAD_ARGUMENT;
    }
    *reader = nullptr;
    tavlo_log_reader_t* made = new (std::nothrow) tavlo_log_reader_t;
    if (made != nullptr) {
        made->file = file;
    }
    return Open(made, name, format, reader);
}

TAVLO_API int tavlo_log_open_fd(int fd, const char* name, int format, tavlo_log_reader_t** reader) {
    if (fd < 0 || reader == nullptr || BadFormat(format)) {
        return TAVLO_LOG_BAD_ARGUMENT;
    }
    *reader = nullptr;
    tavlo_log_reader_t* made = new (std::nothrow) tavlo_log_reader_t;
    if (made != nullptr) {
        made->fd = fd;
    }
    return Open(made, name, format, reader);
}

TAVLO_API int tavlo_log_open_memory(const void* data, size_t size, const char* name, int format,
                                    tavlo_log_reader_t** reader) {
    if ((data == nullptr && size != 0) || reader == nullptr || BadFormat(format)) {
        return TAVLO_LOG_BAD_ARGUMENT;
    }
    *reader = nullptr;
    tavlo_log_reader_t* made = new (std::nothrow) tavlo_log_reader_t;
    if (made != nullptr) {
        static const char kNothing = 0;
        made->memory = data != nullptr ? static_cast<const char*>(data) : &kNothing;
        made->memorySize = size;
    }
    return Open(made, name, format, reader);
}

TAVLO_API void tavlo_log_close(tavlo_log_reader_t* reader) { delete reader; }

TAVLO_API int tavlo_log_next(tavlo_log_reader_t* reader, tavlo_log_frame_t* frame) {
    if (reader == nullptr || frame == nullptr) {
        return TAVLO_LOG_BAD_ARGUMENT;
    }
    if (reader->finished) {
        return TAVLO_LOG_END;
    }
    if (reader->format == TAVLO_LOG_DETECT) {
        reader->format = Detect(*reader);
    }
    int result = TAVLO_LOG_END;
    switch (reader->format) {
        case TAVLO_LOG_CANDUMP: result = tavlo::logs::NextCandump(*reader, *frame); break;
        case TAVLO_LOG_ASC: result = tavlo::logs::NextAsc(*reader, *frame); break;
        case TAVLO_LOG_TRC: result = tavlo::logs::NextTrc(*reader, *frame); break;
        default: result = tavlo::logs::NextBlf(*reader, *frame); break;
    }
    if (result == TAVLO_LOG_END && reader->readFailed) {
        result = reader->Fail(TAVLO_LOG_READ_FAILED, "cannot be read: %s", std::strerror(errno));
    }
    reader->finished = result == TAVLO_LOG_END || result == TAVLO_LOG_READ_FAILED;
    return result;
}

TAVLO_API int tavlo_log_read(tavlo_log_reader_t* reader, tavlo_log_frame_t* frames,
                             size_t capacity, size_t* count) {
    if (reader == nullptr || frames == nullptr || count == nullptr) {
        return TAVLO_LOG_BAD_ARGUMENT;
    }
    *count = 0;
    while (*count < capacity) {
        const int result = tavlo_log_next(reader, &frames[*count]);
        if (result != TAVLO_LOG_OK) {
            return result == TAVLO_LOG_END && *count > 0 ? TAVLO_LOG_OK : result;
        }
        ++*count;
    }
    return capacity > 0 ? TAVLO_LOG_OK : TAVLO_LOG_BAD_ARGUMENT;
}

TAVLO_API int tavlo_log_format(const tavlo_log_reader_t* reader) {
    return reader != nullptr ? reader->format : TAVLO_LOG_DETECT;
}

TAVLO_API const char* tavlo_log_format_name(int format) {
    // Keep in the order of the TAVLO_LOG_* format numbers.
    static const char* const kNames[] = {"?", "candump", "ASC", "BLF", "TRC"};
    return format > 0 && format <= TAVLO_LOG_TRC ? kNames[format] : kNames[0];
}

TAVLO_API const char* tavlo_log_error(const tavlo_log_reader_t* reader) {
    return reader != nullptr ? reader->error.c_str() : "";
}

TAVLO_API unsigned long tavlo_log_line(const tavlo_log_reader_t* reader) {
    return reader != nullptr ? reader->line : 0;
}

TAVLO_API uint64_t tavlo_log_offset(const tavlo_log_reader_t* reader) {
    return reader != nullptr ? reader->offset : 0;
}

TAVLO_API const char* tavlo_log_text(const tavlo_log_reader_t* reader, size_t* length) {
    const std::string_view text = reader != nullptr ? reader->text : std::string_view();
    if (length != nullptr) {
        *length = text.size();
    }
    return text.empty() ? "" : text.data();
}

TAVLO_API unsigned long tavlo_log_skipped(const tavlo_log_reader_t* reader) {
    return reader != nullptr ? reader->skipped : 0;
}

TAVLO_API int tavlo_log_set_idle(tavlo_log_reader_t* reader, void (*idle)(void* context),
                                 void* context) {
    if (reader == nullptr) {
        return TAVLO_LOG_BAD_ARGUMENT;
    }
    reader->idle = idle;
    reader->idleContext = context;
    return TAVLO_LOG_OK;
}

TAVLO_API unsigned long tavlo_log_bad(const tavlo_log_reader_t* reader) {
    return reader != nullptr ? reader->bad : 0;
}

}  // extern "C"
