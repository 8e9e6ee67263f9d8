// tools/tavlo/log.cpp: candump logs read in large blocks and cut into lines
// and frames without copying; a million-frame log is decoded in about a
// second, so reading must not allocate per line.
#include "log.h"

#include <cerrno>
#include <cstring>
#include <vector>

#include "system.h"

namespace tavlo::tool {
namespace {

// The value of each byte as a hex digit, -1 for the others: a table, since
// every byte of a log passes through here.
struct HexTable {
    signed char value[256];
    constexpr HexTable() : value() {
        for (int c = 0; c < 256; ++c) {
            value[c] = c >= '0' && c <= '9'   ? static_cast<signed char>(c - '0')
                       : c >= 'a' && c <= 'f' ? static_cast<signed char>(c - 'a' + 10)
                       : c >= 'A' && c <= 'F' ? static_cast<signed char>(c - 'A' + 10)
                                              : -1;
        }
    }
};
constexpr HexTable kHex;

int HexDigit(char c) { return kHex.value[static_cast<unsigned char>(c)]; }

bool IsBlank(char c) { return c == ' ' || c == '\t' || c == '\r'; }

std::string_view::size_type SkipBlanks(std::string_view line, std::string_view::size_type at) {
    while (at < line.size() && IsBlank(line[at])) {
        ++at;
    }
    return at;
}

// The next blank-separated word from at; at moves past it.
std::string_view Word(std::string_view line, std::string_view::size_type& at) {
    at = SkipBlanks(line, at);
    const std::string_view::size_type start = at;
    while (at < line.size() && !IsBlank(line[at])) {
        ++at;
    }
    return line.substr(start, at - start);
}

bool ParseId(std::string_view text, Frame& frame) {
    if (text.empty() || text.size() > 8) {
        return false;
    }
    unsigned int id = 0;
    for (const char c : text) {
        const int digit = HexDigit(c);
        if (digit < 0) {
            return false;
        }
        id = id << 4 | static_cast<unsigned int>(digit);
    }
    frame.idText = text;
    // More than three digits (or a value above 11 bits) name an extended
    // identifier.
    frame.id = text.size() > 3 || id > 0x7FF ? id | kExtendedFlag : id;
    return true;
}

// Hex byte pairs, separated by blanks where spaced.
bool ParseBytes(std::string_view text, bool spaced, Frame& frame) {
    // Nothing of an earlier frame may show through a shorter one.
    std::memset(frame.data, 0, frame.length);
    frame.length = 0;
    std::string_view::size_type at = 0;
    while (at < text.size()) {
        if (IsBlank(text[at])) {
            if (!spaced && text[at] != '\r') {
                return false;
            }
            ++at;
            continue;
        }
        const int high = HexDigit(text[at]);
        const int low = high >= 0 && at + 1 < text.size() ? HexDigit(text[at + 1]) : -1;
        if (low < 0 || frame.length >= sizeof frame.data) {
            return false;
        }
        frame.data[frame.length++] = static_cast<unsigned char>(high << 4 | low);
        at += 2;
    }
    return true;
}

// Seconds as candump writes them: digits, a point, digits.
bool IsTime(std::string_view text) {
    std::string_view::size_type digits = 0;
    std::string_view::size_type points = 0;
    for (const char c : text) {
        if (c >= '0' && c <= '9') {
            ++digits;
        } else if (c == '.' && points == 0 && digits > 0) {
            ++points;
        } else {
            return false;
        }
    }
    return digits > 0 && text.back() != '.';
}

// Lines of an open file, read in large blocks.
class LineReader {
public:
    explicit LineReader(int file) : file_(file), buffer_(1 << 20) {}

    // The next line without its end; false at the end or on a read error.
    bool Next(std::string_view& line) {
        for (;;) {
            const char* begin = buffer_.data() + start_;
            const void* newline = std::memchr(begin, '\n', end_ - start_);
            if (newline != nullptr) {
                const char* stop = static_cast<const char*>(newline);
                line = std::string_view(begin, static_cast<std::size_t>(stop - begin));
                start_ = static_cast<std::size_t>(stop - buffer_.data()) + 1;
                return true;
            }
            if (eof_) {
                if (start_ == end_) {
                    return false;
                }
                line = std::string_view(begin, end_ - start_);  // the last line, unended
                start_ = end_;
                return true;
            }
            Fill();
        }
    }

    bool Failed() const { return failed_; }

private:
    void Fill() {
        std::memmove(buffer_.data(), buffer_.data() + start_, end_ - start_);
        end_ -= start_;
        start_ = 0;
        if (end_ == buffer_.size()) {
            buffer_.resize(buffer_.size() * 2);  // a line longer than the buffer
        }
        const long got = ReadSome(file_, buffer_.data() + end_, buffer_.size() - end_);
        if (got <= 0) {
            failed_ = got < 0;
            eof_ = true;
            return;
        }
        end_ += static_cast<std::size_t>(got);
    }

    int file_;
    std::vector<char> buffer_;
    std::size_t start_ = 0;
    std::size_t end_ = 0;
    bool eof_ = false;
    bool failed_ = false;
};

constexpr unsigned long kProgressLines = 100000;

}  // namespace

bool ParseLine(std::string_view line, Frame& frame) {
    std::string_view::size_type at = SkipBlanks(line, 0);
    frame.time = std::string_view();
    frame.remote = false;
    if (at < line.size() && line[at] == '(') {
        const std::string_view::size_type close = line.find(')', at);
        if (close == std::string_view::npos) {
            return false;
        }
        frame.time = line.substr(at + 1, close - at - 1);
        if (!IsTime(frame.time)) {
            return false;
        }
        at = close + 1;
    }
    // The interface (can0), unused; not named so: <windows.h> makes
    // "interface" a macro.
    const std::string_view device = Word(line, at);
    const std::string_view next = Word(line, at);
    if (device.empty() || next.empty()) {
        return false;
    }
    const std::string_view::size_type hash = next.find('#');
    if (hash != std::string_view::npos) {  // file form: ID#DATA, ID##FDATA, ID#R
        if (!ParseId(next.substr(0, hash), frame)) {
            return false;
        }
        std::string_view data = next.substr(hash + 1);
        if (!data.empty() && data[0] == '#') {
            if (data.size() < 2 || HexDigit(data[1]) < 0) {
                return false;  // FD frames carry a flags digit
            }
            data.remove_prefix(2);
        } else if (!data.empty() && (data[0] == 'R' || data[0] == 'r')) {
            ParseBytes(std::string_view(), false, frame);
            frame.remote = true;  // possibly with a length digit after the R
            return true;
        }
        return ParseBytes(data, false, frame);
    }
    // Screen form: ID [LEN] BYTES...
    if (!ParseId(next, frame)) {
        return false;
    }
    at = SkipBlanks(line, at);
    if (at >= line.size() || line[at] != '[') {
        return false;
    }
    const std::string_view::size_type close = line.find(']', at);
    if (close == std::string_view::npos || close == at + 1) {
        return false;
    }
    unsigned int length = 0;
    for (std::string_view::size_type i = at + 1; i < close; ++i) {
        if (line[i] < '0' || line[i] > '9' || length > 64) {
            return false;
        }
        length = length * 10 + static_cast<unsigned int>(line[i] - '0');
    }
    return ParseBytes(line.substr(close + 1), true, frame) && frame.length == length;
}

int ReadFrames(const Arguments& logs, const std::function<void(const Frame&)>& sink) {
    const Arguments standardInput{"-"};
    const bool progress = StandardErrorIsTerminal();
    int status = kOk;
    Frame frame;
    for (const std::string& log : logs.empty() ? standardInput : logs) {
        const bool isStdin = log == "-";
        const std::string name = isStdin ? "<standard input>" : log;
        const int file = isStdin ? kStandardInputFile : OpenToRead(log);
        if (file < 0) {
            std::fprintf(stderr, "%s: cannot be read: %s\n", name.c_str(), std::strerror(errno));
            status = kFailed;
            continue;
        }
        LineReader reader(file);
        unsigned long lineNumber = 0;
        std::string_view line;
        while (reader.Next(line)) {
            ++lineNumber;
            if (progress && lineNumber % kProgressLines == 0) {
                std::fprintf(stderr, "\r%s: %lu lines", name.c_str(), lineNumber);
            }
            if (SkipBlanks(line, 0) == line.size()) {
                continue;
            }
            if (!ParseLine(line, frame)) {
                while (!line.empty() && IsBlank(line.back())) {
                    line.remove_suffix(1);
                }
                std::fprintf(stderr, "%s:%lu: not a CAN frame: %.*s\n", name.c_str(), lineNumber,
                             static_cast<int>(line.size()), line.data());
                status = kFailed;
                continue;
            }
            sink(frame);
        }
        if (progress && lineNumber >= kProgressLines) {
            std::fprintf(stderr, "\r%s: %lu lines\n", name.c_str(), lineNumber);
        }
        if (reader.Failed()) {
            std::fprintf(stderr, "%s: cannot be read: %s\n", name.c_str(), std::strerror(errno));
            status = kFailed;
        }
        if (!isStdin) {
            CloseFile(file);
        }
    }
    return status;
}

}  // namespace tavlo::tool
