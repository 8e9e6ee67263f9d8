// tools/tavlo/log.h: CAN logs read as frames, for the subcommands that
// decode them: candump logs (both forms), Vector ASC and BLF, PEAK TRC, read
// by the library's log readers (tavloms/logs.h), which tell the format by
// the log's content.
#pragma once

#include <functional>
#include <string>
#include <string_view>

#include "common.h"

namespace tavlo::tool {

struct Frame {
    std::string_view time;    // as written, without parentheses (candump; other logs: the
                              // seconds with six decimals); may be empty
    std::string_view idText;  // as written (candump; other logs: as candump writes it)
    std::string_view channel; // as the log names it ("can0", "1"); may be empty
    unsigned int id = 0;      // as the database keeps it: bit 31 for extended
    unsigned int length = 0;  // data bytes received
    bool remote = false;      // a remote frame: no data
    bool error = false;       // an error frame: id and data as the bus or log gave them
    unsigned char data[64] = {};  // bytes past length are zero
};

// Calls sink with every frame of the logs in order ("-" is standard input;
// no logs is standard input). A line that is not a frame is reported with
// its file and line number and skipped; a log that cannot be read is
// reported. On a terminal, long logs show their progress on standard error.
// kOk, or kFailed after any of those reports. idle, when given, is called
// whenever the input has nothing more ready and is waited for (a pipe, a
// terminal), so that live output can be written out there.
int ReadFrames(const Arguments& logs, const std::function<void(const Frame&)>& sink,
               const std::function<void()>& idle = {});

// Calls sink with every frame the network interface `device` (SocketCAN, on
// Linux) receives from now on, until reading fails (kFailed, said on
// standard error) or the process is stopped; idle as for ReadFrames. A bus
// that cannot be opened is reported: kFailed.
int ReadBus(const std::string& device, const std::function<void(const Frame&)>& sink,
            const std::function<void()>& idle = {});

}  // namespace tavlo::tool
