// tools/tavlo/log.h: candump logs read as frames, for the subcommands that
// decode them. Both forms candump writes are read: the file form
// "(1600000000.123456) can0 123#11223344" (FD frames "123##1...", remote
// frames "123#R") and the screen form "can0  123   [4]  11 22 33 44".
#pragma once

#include <functional>
#include <string_view>

#include "common.h"

namespace tavlo::tool {

struct Frame {
    std::string_view time;    // as written, without parentheses; may be empty
    std::string_view idText;  // as written
    unsigned int id = 0;      // as the database keeps it: bit 31 for extended
    unsigned int length = 0;  // data bytes received
    bool remote = false;      // a remote frame: no data
    unsigned char data[64] = {};  // bytes past length are zero
};

// One log line into a frame; false when it is not one. The views in frame
// point into line.
bool ParseLine(std::string_view line, Frame& frame);

// Calls sink with every frame of the logs in order ("-" is standard input;
// no logs is standard input). A line that is not a frame is reported with
// its file and line number and skipped; a log that cannot be read is
// reported. On a terminal, long logs show their progress on standard error.
// kOk, or kFailed after any of those reports.
int ReadFrames(const Arguments& logs, const std::function<void(const Frame&)>& sink);

}  // namespace tavlo::tool
