// tests/logs/logs_test.cpp: the log readers. Text logs of every format and
// BLF logs built here byte by byte read to the frames, skips and errors
// they hold; and a candump log written again as ASC, BLF and TRC by an
// outside writer (Debian's python3-can, tests/logs/write_logs.py) reads to
// the same frames in every format.
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <zlib.h>

#include "tavloms/logs.h"

namespace {

using Bytes = std::vector<unsigned char>;

// A path of its own among the temporary files, for this run alone.
std::string TemporaryPath(const std::string& name) {
    const std::string unique = std::to_string(std::random_device()());
    return (std::filesystem::temp_directory_path() / ("tavloms_logs_" + unique + "_" + name))
        .string();
}

// A frame in a line: "TIME CHANNEL ID FLAGS [DATA]", the id in hex with its
// bit 31, the flags as letters (x extended, r remote, e error, f FD, b BRS,
// s ESI), "-" for no time, channel or flags.
std::string Describe(const tavlo_log_frame_t& frame) {
    char text[64];
    std::string flags;
    const char* letters = "xrefbs";
    for (unsigned int bit = 0; bit < 6; ++bit) {
        if ((frame.flags & (1u << bit)) != 0) {
            flags += letters[bit];
        }
    }
    std::snprintf(text, sizeof text, frame.has_time ? "%.6f" : "-", frame.time);
    std::string line = text;
    line += std::string(" ") + (frame.channel[0] != '\0' ? frame.channel : "-");
    std::snprintf(text, sizeof text, " %X %s ", static_cast<unsigned int>(frame.id),
                  flags.empty() ? "-" : flags.c_str());
    line += text;
    for (unsigned int i = 0; i < frame.length; ++i) {
        std::snprintf(text, sizeof text, "%02X", frame.data[i]);
        line += text;
    }
    for (unsigned int i = frame.length; i < sizeof frame.data; ++i) {
        if (frame.data[i] != 0) {
            line += " (bytes past the length)";
            break;
        }
    }
    return line;
}

// Everything a reader gives: frames described, bad records as "LINE: error",
// the end as "end" or "failed: error", and the skipped count.
std::vector<std::string> ReadAll(tavlo_log_reader_t* reader) {
    std::vector<std::string> out;
    tavlo_log_frame_t frame;
    std::memset(&frame, 0xA5, sizeof frame);  // nothing of this may show through
    for (;;) {
        const int result = tavlo_log_next(reader, &frame);
        if (result == TAVLO_LOG_OK) {
            out.push_back(Describe(frame));
        } else if (result == TAVLO_LOG_BAD_RECORD) {
            out.push_back(std::to_string(tavlo_log_line(reader)) + ": " + tavlo_log_error(reader));
        } else {
            out.push_back(result == TAVLO_LOG_END ? "end"
                                                  : std::string("failed: ") + tavlo_log_error(reader));
            break;
        }
    }
    out.push_back("skipped " + std::to_string(tavlo_log_skipped(reader)));
    return out;
}

std::vector<std::string> ReadMemory(const void* data, std::size_t size, const char* name,
                                    int* format = nullptr) {
    tavlo_log_reader_t* reader = nullptr;
    EXPECT_EQ(tavlo_log_open_memory(data, size, name, TAVLO_LOG_DETECT, &reader), TAVLO_LOG_OK);
    std::vector<std::string> out = ReadAll(reader);
    if (format != nullptr) {
        *format = tavlo_log_format(reader);
    }
    tavlo_log_close(reader);
    return out;
}

struct TextCase {
    const char* name;
    int format;  // as detected
    const char* log;
    std::vector<std::string> expected;
};

const TextCase kTextCases[] = {
    {"candump, both forms, FD, remote, error frame, bad lines", TAVLO_LOG_CANDUMP,
     "(1600000000.000100) can0 123#1122\n"
     "  vcan1  1F334455   [2]  01 02\n"
     "this is not a frame\n"
     "(1.5) can0 456##3AABB\r\n"
     "(2.0) can0 7FF#R\n"
     "(3.0) can0 20000004#0000080000000000\n"
     "(4.) can0 100#00\n"
     "(5.0) can0 100#001",
     {"1600000000.000100 can0 123 - 1122", "- vcan1 9F334455 x 0102",
      "3: not a CAN frame: this is not a frame", "1.500000 can0 456 fbs AABB",
      "2.000000 can0 7FF r ", "3.000000 can0 80000004 xe 0000080000000000",
      "7: not a CAN frame: (4.) can0 100#00", "8: not a CAN frame: (5.0) can0 100#001", "end",
      "skipped 0"}},
    {"ASC, hex, absolute: frames, events skipped, a broken frame", TAVLO_LOG_ASC,
     "date Tue Nov 24 03:03:03.175 AM 2026\n"
     "base hex  timestamps absolute\n"
     "internal events logged\n"
     "// version 9.0.0\n"
     "Begin Triggerblock Sun Sep 13 12:26:40.000 PM 2020\n"
     " 0.000000 Start of measurement\n"
     " 0.001000 1  123             Rx   d 8 11 22 33 44 55 66 77 88\n"
     " 0.002000 2  1ABCDEF0x       Tx   d 2 01 02  Length = 0 BitCount = 0 ID = 1\n"
     " 0.003000 1  321             Rx   r 4\n"
     " 0.004000 1  ErrorFrame\n"
     " 0.005000 CANFD   1 Rx        456                                   1 0 9 12 00 01 02 "
     "03 04 05 06 07 08 09 0A 0B        0    0     3000        0        0        0\n"
     " 0.006000 CANFD   3 Tx   12x  Engine_Data  0 1 2 2 AA BB   0 0 5000 0 0 0 0 0\n"
     " 0.007000 CANFD   1 Rx   55  0 0 2 2 AA BB   0 0 0 0 0 0 0 0\n"
     " 0.008000 1  Statistic: D 0 R 0 XD 0 XR 0 E 0 O 0 B 0.00%\n"
     " 0.009000 1  124             Rx   d 8 11 22\n"
     "End TriggerBlock\n",
     {"0.001000 1 123 - 1122334455667788", "0.002000 2 9ABCDEF0 x 0102", "0.003000 1 321 r ",
      "0.004000 1 0 e ", "0.005000 1 456 fb 000102030405060708090A0B",
      "0.006000 3 80000012 xfs AABB", "0.007000 1 55 - AABB",
      "15: not an ASC frame:  0.009000 1  124             Rx   d 8 11 22", "end",
      "skipped 2"}},
    {"ASC, decimal, relative times", TAVLO_LOG_ASC,
     "base dec  timestamps relative\n"
     "0.5 1  291 Rx d 2 17 255\n"
     "0.25 1  291x Rx d 1 1\n",
     {"0.500000 1 123 - 11FF", "0.750000 1 80000123 x 01", "end", "skipped 0"}},
    {"TRC 1.0 without header, a bus status skipped", TAVLO_LOG_TRC,
     "     1)      1841  0001  8  00 11 22 33 44 55 66 77\n"
     "     2)      1842  FFFFFFFF  4  00 00 00 08\n"
     "     3)      1843  00000123  1  AB\n",
     {"1.841000 - 1 - 0011223344556677", "1.843000 - 80000123 x AB", "end", "skipped 1"}},
    {"TRC 1.1: remote, warning skipped, a short frame", TAVLO_LOG_TRC,
     ";$FILEVERSION=1.1\n"
     ";$STARTTIME=43894.6\n"
     "     1)      1059.9  Rx         0300  8  00 00 00 00 04 00 00 00\n"
     "     2)      1060.0  Rx         0400  4  RTR\n"
     "     3)      1061.0  Warng  FFFFFFFF  4  00 00 00 08  BUSHEAVY\n"
     "     4)      1062.0  Tx         0500  8  01 02\n",
     {"1.059900 - 300 - 0000000004000000", "1.060000 - 400 r ",
      "6: not a TRC frame:      4)      1062.0  Tx         0500  8  01 02", "end",
      "skipped 1"}},
    {"TRC 1.3: bus column", TAVLO_LOG_TRC,
     ";$FILEVERSION=1.3\n"
     "     1)      1059.900 2  Rx        0300 -  2    01 02\n",
     {"1.059900 2 300 - 0102", "end", "skipped 0"}},
    {"TRC 2.0: default columns, FD by DLC, status skipped", TAVLO_LOG_TRC,
     ";$FILEVERSION=2.0\n"
     "      1        59.900 DT     0300 Rx 2    01 02\n"
     "      2        60.000 FB 12345678 Tx 9    00 01 02 03 04 05 06 07 08 09 0A 0B\n"
     "      3        61.000 ST          Rx    00 00 00 08\n",
     {"0.059900 - 300 - 0102", "0.060000 - 92345678 xfb 000102030405060708090A0B", "end",
      "skipped 1"}},
    {"TRC 2.1: its columns, remote, error frame, a bad identifier", TAVLO_LOG_TRC,
     ";$FILEVERSION=2.1\n"
     ";$COLUMNS=N,O,T,B,I,d,R,L,D\n"
     "      1         0.250 DT  1 1ABCDEF0 Rx -  2    01 02\n"
     "      2         1.000 RR  1     0123 Rx -  4\n"
     "      3         2.000 ER  2        - Rx -  5    04 00 02 00 00\n"
     "      4         3.000 BI  1     0124 Tx -  2    AA BB\n"
     "      5         4.000 DT  1     XYZ0 Rx -  1    00\n",
     {"0.000250 1 9ABCDEF0 x 0102", "0.001000 1 123 r ", "0.002000 2 0 e 0400020000",
      "0.003000 1 124 fbs AABB", "7: not a TRC frame:       5         4.000 DT  1     XYZ0 Rx -  1    00",
      "end", "skipped 0"}},
};

TEST(LogReaders, TextLogsReadToTheirFrames) {
    for (const TextCase& test : kTextCases) {
        SCOPED_TRACE(test.name);
        int format = TAVLO_LOG_DETECT;
        // A misleading name: the content decides.
        EXPECT_EQ(ReadMemory(test.log, std::strlen(test.log), "misleading.blf", &format),
                  test.expected);
        EXPECT_EQ(format, test.format);
    }
}

// BLF logs, built as writers build them.
Bytes Object(std::uint32_t type, const Bytes& body, unsigned int version = 1,
             std::uint32_t timeFlags = 2, std::uint64_t time = 0) {
    const std::size_t header = version == 1 ? 32 : 40;
    Bytes object(header);
    std::memcpy(object.data(), "LOBJ", 4);
    const std::uint32_t size = static_cast<std::uint32_t>(header + body.size());
    const auto put = [&object](std::size_t at, std::uint64_t value, std::size_t bytes) {
        for (std::size_t i = 0; i < bytes; ++i) {
            object[at + i] = static_cast<unsigned char>(value >> (8 * i));
        }
    };
    put(4, header, 2);
    put(6, version, 2);
    put(8, size, 4);
    put(12, type, 4);
    put(16, timeFlags, 4);
    put(24, time, 8);
    object.insert(object.end(), body.begin(), body.end());
    object.resize(object.size() + object.size() % 4);  // padding as writers put it
    return object;
}

Bytes Container(const Bytes& data, bool compressed) {
    Bytes packed = data;
    if (compressed) {
        uLongf size = compressBound(static_cast<uLong>(data.size()));
        packed.resize(size);
        EXPECT_EQ(compress(packed.data(), &size, data.data(), static_cast<uLong>(data.size())), Z_OK);
        packed.resize(size);
    }
    Bytes header{0, 0, 0, 0, 0, 0, 0, 0, static_cast<unsigned char>(data.size()),
                 static_cast<unsigned char>(data.size() >> 8), 0, 0, 0, 0, 0, 0};
    header[0] = compressed ? 2 : 0;
    Bytes object = Object(10, header, 1);
    object.resize(16);  // a container has only the base header before its fields
    object.insert(object.end(), header.begin(), header.end());
    object.insert(object.end(), packed.begin(), packed.end());
    const std::uint32_t size = static_cast<std::uint32_t>(object.size());
    std::memcpy(object.data() + 8, &size, 4);  // little endian, as the test machines
    object.resize(object.size() + size % 4);
    return object;
}

Bytes File(const std::vector<Bytes>& objects) {
    Bytes file(144);
    std::memcpy(file.data(), "LOGG", 4);
    file[4] = 144;
    for (const Bytes& object : objects) {
        file.insert(file.end(), object.begin(), object.end());
    }
    return file;
}

template <class T>
std::vector<T> Join(std::vector<T> a, const std::vector<T>& b) {
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

// CAN_MESSAGE bodies: channel 1, flags, DLC, id, 8 bytes.
Bytes CanBody(std::uint32_t id, unsigned char flags, unsigned char dlc) {
    return {1, 0, flags, dlc, static_cast<unsigned char>(id), static_cast<unsigned char>(id >> 8),
            static_cast<unsigned char>(id >> 16), static_cast<unsigned char>(id >> 24),
            0x11, 0x22, 0x33, 0x44, 0x55, 0x66, 0x77, 0x88};
}

Bytes Fd64Body() {
    Bytes body(40 + 12);
    body[0] = 2;                      // channel
    body[1] = 9;                      // DLC
    body[2] = 12;                     // valid bytes
    body[4] = 0x56;                   // id 0x456
    body[5] = 0x04;
    body[13] = 0x10 | 0x20;           // flags: EDL (0x1000), BRS (0x2000)
    for (int i = 0; i < 12; ++i) {
        body[40 + i] = static_cast<unsigned char>(i);
    }
    return body;
}

struct BlfCase {
    const char* name;
    Bytes log;
    std::vector<std::string> expected;
};

// candump -L's own lines are read a quicker way than other lines; the same
// line with a second blank after its time is read the general way. Over
// random lines, good and bad (times without a point or fraction, long
// times, identifiers of 1 to 9 digits, odd or long data, remote and FD
// frames, short and long devices, a stray character or line end, a
// character at the edge of digits, letters or blanks anywhere), both ways
// must give the same frame, time to the bit, or both reject the line.
TEST(LogReaders, CandumpLinesReadAlikeEitherWay) {
    std::mt19937 random(11);
    const auto pick = [&random](const char* from, std::size_t n) {
        std::string text;
        for (std::size_t i = 0; i < n; ++i) {
            text += from[random() % std::strlen(from)];
        }
        return text;
    };
    std::string quick;
    std::string general;
    for (int i = 0; i < 4000; ++i) {
        std::string time = pick("0123456789", 1 + random() % 12);
        if (random() % 8 != 0) {
            time += "." + pick("0123456789", random() % 10);
        }
        const std::string id = pick("0123456789ABCDEFabcdef", 1 + random() % 9);
        std::string data = pick("0123456789ABCDEFabcdef", random() % 2 == 0 ? 16 : random() % 131);
        const unsigned int change = random() % 16;
        data = change == 0 ? "R" : change == 1 ? "#1" + data : change == 2 ? data + "G" : data;
        data += change == 3 ? "\r" : change == 4 ? " x" : "";
        const char* const devices[] = {"can0", "c", "vcan1234", "vcan12345", "ca\xE9n"};
        std::string rest = devices[i % 5] + (" " + id) + "#" + data;
        std::string& changed = random() % 2 == 0 ? time : rest;
        if (change >= 12 && !changed.empty()) {
            changed[random() % changed.size()] = pick("/:@G`g\x7F\x80\xFF\x1F\t", 1)[0];
        }
        quick += "(" + time + ") " + rest + "\n";
        general += "(" + time + ")  " + rest + "\n";
    }
    tavlo_log_reader_t* readers[2] = {};
    ASSERT_EQ(tavlo_log_open_memory(quick.data(), quick.size(), "", TAVLO_LOG_CANDUMP, &readers[0]),
              TAVLO_LOG_OK);
    ASSERT_EQ(tavlo_log_open_memory(general.data(), general.size(), "", TAVLO_LOG_CANDUMP,
                                    &readers[1]),
              TAVLO_LOG_OK);
    std::size_t frames = 0;
    for (int result = TAVLO_LOG_OK; result != TAVLO_LOG_END;) {
        tavlo_log_frame_t frame[2];
        result = tavlo_log_next(readers[0], &frame[0]);
        const unsigned long line = tavlo_log_line(readers[0]);
        ASSERT_EQ(tavlo_log_next(readers[1], &frame[1]), result) << line;
        if (result == TAVLO_LOG_OK) {
            ++frames;
            EXPECT_EQ(Describe(frame[0]), Describe(frame[1])) << line;
            EXPECT_EQ(std::memcmp(&frame[0].time, &frame[1].time, sizeof frame[0].time), 0) << line;
        }
    }
    tavlo_log_close(readers[0]);
    tavlo_log_close(readers[1]);
    EXPECT_GT(frames, 1000u);
}

TEST(LogReaders, BlfLogsReadToTheirFrames) {
    const Bytes standard = Object(1, CanBody(0x123, 0, 4), 1, 1, 150);  // 1.5 ms in 10 µs
    const Bytes extended = Object(86, Join(CanBody(0x80000456u, 0, 8), Bytes(8)), 2, 2, 2000000);
    const Bytes remote = Object(1, CanBody(0x7FF, 0x80, 2), 1, 2, 3000000);
    const Bytes fd64 = Object(101, Fd64Body(), 1, 2, 4000000);
    Bytes errorBody(32);
    errorBody[0] = 1;
    errorBody[10] = 1;  // DLC
    errorBody[24] = 0x42;
    const Bytes error = Object(73, errorBody, 1, 2, 5000000);
    const Bytes marker = Object(96, Bytes(44), 1, 2, 0);
    Bytes fdBody(84);
    fdBody[0] = 1;
    fdBody[3] = 2;
    fdBody[4] = 0x21;
    fdBody[13] = 1 | 4;  // EDL, ESI
    fdBody[14] = 2;
    fdBody[20] = 0xAB;
    fdBody[21] = 0xCD;
    const Bytes fd = Object(100, fdBody, 1, 2, 6000000);
    const Bytes all = Join(Join(Join(standard, extended), Join(remote, fd64)), Join(error, fd));
    const std::size_t half = fd64.size() / 2;
    const Bytes broken = Object(1, Bytes(4));  // too short for its fields
    const Bytes full = File({Container(all, true)});
    const std::vector<std::string> frames = {
        "0.001500 1 123 - 11223344", "0.002000 1 80000456 x 1122334455667788",
        "0.003000 1 7FF r ", "0.004000 2 456 fb 000102030405060708090A0B",
        "0.005000 1 0 e 42", "0.006000 1 21 fs ABCD"};
    const BlfCase cases[] = {
        {"one compressed container", full, Join(frames, std::vector<std::string>{"end", "skipped 0"})},
        {"uncompressed containers, an object spanning two, unknown objects counted",
         File({Container(Join(marker, Bytes(fd64.begin(), fd64.begin() + half)), false),
               Container(Bytes(fd64.begin() + half, fd64.end()), true),
               Container(marker, false)}),
         {frames[3], "end", "skipped 2"}},
        {"objects outside containers, a broken one skipped",
         File({standard, broken, Container(remote, false)}),
         {frames[0], "2: object 2 of type 1: 36 bytes, 48 needed", frames[2], "end",
          "skipped 0"}},
        {"truncated in a container",
         Bytes(full.begin(), full.end() - 5),
         {"failed: truncated: the object at byte 144 has " +
              std::to_string(full[152] | full[153] << 8) +
              " bytes, the log " + std::to_string(full.size() - 5),
          "skipped 0"}},
        {"broken compressed data, then reading goes on",
         File({[&] { Bytes c = Container(all, true); c[40] ^= 0xFF; return c; }(),
               Container(standard, false)}),
         {"1: the container at byte 144: broken compressed data", frames[0], "end",
          "skipped 0"}},
        {"cut in the middle of an object at the end",
         File({Container(Bytes(fd64.begin(), fd64.begin() + half), false)}),
         {"failed: truncated: the last object is cut off after " + std::to_string(half) +
              " bytes",
          "skipped 0"}},
        {"no file header", Bytes{'L', 'O', 'G', 'G', 200, 0, 0, 0, 1},
         {"failed: truncated: a file header of 200 bytes", "skipped 0"}},
    };
    for (const BlfCase& test : cases) {
        SCOPED_TRACE(test.name);
        int format = TAVLO_LOG_DETECT;
        EXPECT_EQ(ReadMemory(test.log.data(), test.log.size(), "misleading.asc", &format),
                  test.expected);
        EXPECT_EQ(format, TAVLO_LOG_BLF);
    }

    // From a file, with a misleading name, in batches.
    const std::string path = TemporaryPath("log.trc");
    std::ofstream(path, std::ios::binary)
        .write(reinterpret_cast<const char*>(full.data()), static_cast<std::streamsize>(full.size()));
    tavlo_log_reader_t* reader = nullptr;
    ASSERT_EQ(tavlo_log_open(path.c_str(), TAVLO_LOG_DETECT, &reader), TAVLO_LOG_OK);
    tavlo_log_frame_t batch[4];
    std::size_t count = 0;
    std::vector<std::string> read;
    while (tavlo_log_read(reader, batch, 4, &count) == TAVLO_LOG_OK) {
        EXPECT_TRUE(count == 4 || read.size() == 4) << count;
        for (std::size_t i = 0; i < count; ++i) {
            read.push_back(Describe(batch[i]));
        }
    }
    EXPECT_EQ(count, 0u);
    EXPECT_EQ(read, frames);
    tavlo_log_close(reader);
    std::remove(path.c_str());
    EXPECT_EQ(tavlo_log_open(path.c_str(), TAVLO_LOG_DETECT, &reader), TAVLO_LOG_CANNOT_OPEN);
    EXPECT_EQ(reader, nullptr);
}

// Frames of a log with their times since its first frame, the way the
// formats other than candump count them.
[[maybe_unused]] std::vector<tavlo_log_frame_t> ReadFile(const std::string& path, int format) {
    tavlo::LogReader reader(path.c_str());
    EXPECT_TRUE(reader) << path;
    std::vector<tavlo_log_frame_t> frames;
    tavlo_log_frame_t frame;
    int result = TAVLO_LOG_OK;
    while (reader && (result = reader.Next(frame)) == TAVLO_LOG_OK) {
        frames.push_back(frame);
    }
    EXPECT_EQ(result, TAVLO_LOG_END) << path << ": " << reader.Error();
    EXPECT_EQ(reader.Format(), format) << path;
    for (std::size_t i = frames.size(); i-- > 0;) {
        frames[i].time -= frames[0].time;
    }
    return frames;
}

TEST(LogReaders, EveryFormatOfAnOutsideWriterReadsToTheSameFrames) {
#if defined(_WIN32)
    GTEST_SKIP() << "the writer runs with /usr/bin/python3, which a Windows build has not";
#else
    const std::string folder = TemporaryPath("written");
    const std::string source = std::string(TAVLOMS_LOGS_DATA_DIR) + "/frames.log";
    std::filesystem::create_directories(folder);
    const std::string command = std::string("/usr/bin/python3 '") +
                                TAVLOMS_LOGS_WRITER + "' '" + source + "' '" + folder +
                                "' >'" + folder + "/out.txt' 2>&1";
    const int status = std::system(command.c_str());
    if (status != 0) {
        std::ifstream out(folder + "/out.txt");
        const std::string said((std::istreambuf_iterator<char>(out)), std::istreambuf_iterator<char>());
        if (said.find("python3-can cannot be imported") != std::string::npos || status == 127 << 8) {
            GTEST_SKIP() << (status == 127 << 8 ? "no /usr/bin/python3" : said);
        }
        FAIL() << command << " failed: " << said;
    }
    const std::vector<tavlo_log_frame_t> candump = ReadFile(source, TAVLO_LOG_CANDUMP);
    ASSERT_EQ(candump.size(), 11u);
    const struct {
        const char* file;
        int format;
        bool dataFramesOnly;  // the TRC writer writes no others
    } written[] = {{"frames.asc", TAVLO_LOG_ASC, false},
                   {"frames.blf", TAVLO_LOG_BLF, false},
                   {"frames_plain.blf", TAVLO_LOG_BLF, false},
                   {"frames.trc", TAVLO_LOG_TRC, true}};
    for (const auto& log : written) {
        SCOPED_TRACE(log.file);
        std::vector<tavlo_log_frame_t> expected;
        for (const tavlo_log_frame_t& frame : candump) {
            if (!log.dataFramesOnly || (frame.flags & ~TAVLO_LOG_EXTENDED) == 0) {
                expected.push_back(frame);
            }
        }
        const std::vector<tavlo_log_frame_t> frames = ReadFile(folder + "/" + log.file, log.format);
        ASSERT_EQ(frames.size(), expected.size());
        for (std::size_t i = 0; i < frames.size(); ++i) {
            tavlo_log_frame_t want = expected[i];
            want.time -= expected[0].time;
            std::strcpy(want.channel, "1");  // can0, numbered from 1
            if ((want.flags & TAVLO_LOG_ERROR_FRAME) != 0) {
                // ASC writes an error frame without identifier or data.
                EXPECT_NE(frames[i].flags & TAVLO_LOG_ERROR_FRAME, 0u);
                EXPECT_LT(std::fabs(frames[i].time - want.time), 2e-6);
                continue;
            }
            EXPECT_LT(std::fabs(frames[i].time - want.time), 2e-6) << i;
            want.time = frames[i].time;
            EXPECT_EQ(Describe(frames[i]), Describe(want)) << i;
        }
    }
    std::filesystem::remove_all(folder);
#endif
}

}  // namespace
