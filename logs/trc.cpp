// logs/trc.cpp: PEAK TRC logs. Comment lines start with ';'; the header's
// ";$FILEVERSION=x.y" says which layout the lines have (none: 1.0) and, in
// 2.x, ";$COLUMNS=N,O,T,B,I,d,R,L,D" which column holds what. Times are
// milliseconds since the measurement's start.
//   1.0:     1)      1841  0001  8  00 11 22 33 44 55 66 77
//   1.1:     1)      1841.2  Rx  0001  8  00 11 ...          (RTR for data: remote)
//   1.3:     1)      1841.234 1  Rx  0001 -  8  00 11 ...
//   2.x:     1      1841.234 DT 1  0001 Rx -  8  00 11 ...   (FD, FB, FE, BI: FD; RR: remote;
//                                                            ER: error frame)
// Lines of other kinds (bus statuses, error counters, events) are skipped.
#include <cstring>

#include "reader.h"

namespace tavlo::logs {
namespace {

// The columns a 2.x line may have. Keep in the order of the column indexes
// of tavlo_log_reader_t::trcColumn.
constexpr char kColumnLetters[] = "NOTBIdRLlD";
enum Column { kNumber, kOffset, kType, kBus, kId, kDirection, kReserved, kLength, kDlc, kData };
constexpr int kColumns = 10;

// The columns of a version that has no $COLUMNS line.
void DefaultColumns(tavlo_log_reader_t& reader, const char* letters) {
    for (int& column : reader.trcColumn) {
        column = -1;
    }
    reader.trcColumnCount = 0;
    for (const char* at = letters; *at != '\0'; ++at) {
        const char* found = std::strchr(kColumnLetters, *at);
        if (found != nullptr) {
            reader.trcColumn[found - kColumnLetters] = reader.trcColumnCount;
        }
        ++reader.trcColumnCount;
    }
}

void HeaderLine(tavlo_log_reader_t& reader, std::string_view line) {
    constexpr std::string_view kVersion = ";$FILEVERSION=";
    constexpr std::string_view kColumnsLine = ";$COLUMNS=";
    while (!line.empty() && IsBlank(line.back())) {
        line.remove_suffix(1);
    }
    if (line.substr(0, kVersion.size()) == kVersion) {
        const std::string_view version = line.substr(kVersion.size());
        if (version.size() == 3 && version[1] == '.' && version[0] >= '1' && version[0] <= '2' &&
            version[2] >= '0' && version[2] <= '9') {
            reader.trcVersion = (version[0] - '0') * 10 + (version[2] - '0');
        }
        if (reader.trcVersion >= 20 && reader.trcColumnCount == 0) {
            DefaultColumns(reader, reader.trcVersion == 20 ? "NOTIdlD" : "NOTBIdRLD");
        }
    } else if (line.substr(0, kColumnsLine.size()) == kColumnsLine) {
        std::string_view letters = line.substr(kColumnsLine.size());
        char order[kColumns + 1] = {};
        std::size_t count = 0;
        for (const char c : letters) {
            if (c != ',' && !IsBlank(c) && count < kColumns) {
                order[count++] = c;
            }
        }
        DefaultColumns(reader, order);
    }
}

// The data bytes of words, as many as length; "RTR" makes a remote frame.
bool ParseData(const std::string_view* words, std::size_t count, unsigned int length,
               tavlo_log_frame_t& frame) {
    if (count > 0 && words[0] == "RTR") {
        frame.flags |= TAVLO_LOG_REMOTE;
        return true;
    }
    if (length > 64 || count < length) {
        return false;
    }
    for (unsigned int i = 0; i < length; ++i) {
        std::uint32_t value = 0;
        if (words[i].size() != 2 || !ParseNumber(words[i], 16, value)) {
            return false;
        }
        frame.data[i] = static_cast<unsigned char>(value);
    }
    frame.length = length;
    return true;
}

bool ParseTrcId(std::string_view text, tavlo_log_frame_t& frame) {
    std::uint32_t id = 0;
    if (!ParseNumber(text, 16, id) || id > 0x1FFFFFFFu) {
        return false;
    }
    // PEAK writes standard identifiers with 4 digits, extended ones with 8.
    if (text.size() > 4 || id > 0x7FF) {
        frame.flags |= TAVLO_LOG_EXTENDED;
        id |= 0x80000000u;
    }
    frame.id = id;
    return true;
}

constexpr std::size_t kMostWords = 80;

// A 1.x line: "N) O [B] [T] I [-] DLC DATA...".
int Version1Line(tavlo_log_reader_t& reader, const std::string_view* words, std::size_t count,
                 tavlo_log_frame_t& frame) {
    const int version = reader.trcVersion;
    std::size_t at = 2;
    if (version >= 12) {
        SetChannel(frame, words[at++]);
    }
    if (version >= 11 && at < count) {
        const std::string_view type = words[at++];
        if (type == "Error") {
            frame.flags |= TAVLO_LOG_ERROR_FRAME;
        } else if (type != "Rx" && type != "Tx") {
            ++reader.skipped;  // a bus status ("Warng")
            return TAVLO_LOG_BAD_RECORD;
        }
    }
    if (at < count && words[at] == "FFFFFFFF" && version == 10) {
        ++reader.skipped;  // 1.0 writes a bus status as a frame of this identifier
        return TAVLO_LOG_BAD_RECORD;
    }
    if (at >= count || !ParseTrcId(words[at++], frame)) {
        return reader.BadLine("not a TRC frame");
    }
    if (version >= 13 && at < count && words[at] == "-") {
        ++at;
    }
    std::uint32_t dlc = 0;
    if (at >= count || !ParseNumber(words[at++], 10, dlc) || dlc > 15 ||
        !ParseData(words + at, count - at, dlc > 8 ? 8 : dlc, frame)) {
        return reader.BadLine("not a TRC frame");
    }
    return TAVLO_LOG_OK;
}

// A 2.x line, by its columns.
int Version2Line(tavlo_log_reader_t& reader, const std::string_view* words, std::size_t count,
                 tavlo_log_frame_t& frame) {
    const int* column = reader.trcColumn;
    const auto word = [&](Column which) {
        const int index = column[which];
        return index >= 0 && static_cast<std::size_t>(index) < count ? words[index]
                                                                      : std::string_view();
    };
    const std::string_view type = word(kType);
    bool fd = false;
    if (type == "FD" || type == "FB" || type == "FE" || type == "BI") {
        fd = true;
        frame.flags |= TAVLO_LOG_FD | (type == "FB" || type == "BI" ? TAVLO_LOG_BRS : 0u) |
                       (type == "FE" || type == "BI" ? TAVLO_LOG_ESI : 0u);
    } else if (type == "RR") {
        frame.flags |= TAVLO_LOG_REMOTE;
    } else if (type == "ER") {
        frame.flags |= TAVLO_LOG_ERROR_FRAME;
    } else if (type != "DT") {
        ++reader.skipped;  // statuses, error counters, events
        return TAVLO_LOG_BAD_RECORD;
    }
    SetChannel(frame, word(kBus));
    const std::string_view id = word(kId);
    const bool error = (frame.flags & TAVLO_LOG_ERROR_FRAME) != 0;
    if (!(error && (id.empty() || id == "-")) && !ParseTrcId(id, frame)) {
        return reader.BadLine("not a TRC frame");
    }
    std::uint32_t length = 0;
    const std::string_view lengthWord = word(kLength);
    const std::string_view dlcWord = word(kDlc);
    bool counted = true;
    if (!lengthWord.empty()) {
        counted = ParseNumber(lengthWord, 10, length);
    } else if (!dlcWord.empty()) {
        counted = ParseNumber(dlcWord, 10, length) && length <= 15;
        length = fd ? FdLength(length) : length > 8 ? 8 : length;
    }
    const int dataColumn = column[kData];
    const std::size_t dataAt =
        dataColumn >= 0 && static_cast<std::size_t>(dataColumn) < count ? dataColumn : count;
    if (!counted) {
        return reader.BadLine("not a TRC frame");
    }
    if ((frame.flags & TAVLO_LOG_REMOTE) != 0) {
        return TAVLO_LOG_OK;
    }
    if (error) {
        length = static_cast<std::uint32_t>(count - dataAt);  // its error fields, as given
    }
    if (!ParseData(words + dataAt, count - dataAt, length, frame)) {
        return reader.BadLine("not a TRC frame");
    }
    return TAVLO_LOG_OK;
}

}  // namespace

int NextTrc(tavlo_log_reader_t& reader, tavlo_log_frame_t& frame) {
    std::string_view line;
    std::string_view words[kMostWords];
    while (reader.NextLine(line)) {
        std::size_t at = 0;
        std::size_t count = 0;
        while (count < kMostWords) {
            const std::string_view word = Word(line, at);
            if (word.empty()) {
                break;
            }
            words[count++] = word;
        }
        if (count == 0) {
            continue;
        }
        if (words[0][0] == ';') {
            HeaderLine(reader, line.substr(line.find(';')));
            continue;
        }
        ClearFrame(frame);
        const bool version1 = reader.trcVersion < 20;
        std::string_view number = version1 ? words[0] : std::string_view();
        if (version1 && (number.empty() || number.back() != ')')) {
            return reader.BadLine("not a TRC line");
        }
        const int offsetColumn = version1 ? 1 : reader.trcColumn[kOffset];
        if (offsetColumn < 0 || static_cast<std::size_t>(offsetColumn) >= count ||
            !ParseTime(words[offsetColumn], frame.time)) {
            return reader.BadLine("not a TRC line");
        }
        frame.time /= 1000;
        frame.has_time = 1;
        const unsigned long badBefore = reader.bad;
        const int result = version1 ? Version1Line(reader, words, count, frame)
                                    : Version2Line(reader, words, count, frame);
        if (result == TAVLO_LOG_BAD_RECORD && reader.bad == badBefore) {
            continue;  // skipped, not bad
        }
        return result;
    }
    return TAVLO_LOG_END;
}

}  // namespace tavlo::logs
