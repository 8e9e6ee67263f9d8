// libFuzzer target: the candump log-line parser of tavlo decode and plot
// (ParseLine in tools/tavlo/log.cpp). The input is cut into lines at line
// feeds, and every line is parsed into the same frame, as the log reader
// does. A line taken as a frame must leave the frame as log.h promises: at
// most 64 data bytes and zeros past them, views into the line, and no data
// in a remote frame. A broken promise aborts.
//
//     scripts/fuzz.sh [seconds]
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "tools/tavlo/log.h"

namespace {

bool Within(std::string_view part, std::string_view line) {
    return part.empty() ||
           (part.data() >= line.data() && part.data() + part.size() <= line.data() + line.size());
}

void CheckFrame(const tavlo::tool::Frame& frame, std::string_view line) {
    if (frame.length > sizeof frame.data || (frame.remote && frame.length != 0)) {
        std::abort();
    }
    for (std::size_t i = frame.length; i < sizeof frame.data; ++i) {
        if (frame.data[i] != 0) {
            std::abort();
        }
    }
    if (!Within(frame.time, line) || !Within(frame.idText, line) || frame.idText.empty()) {
        std::abort();
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    tavlo::tool::Frame frame;
    for (std::size_t start = 0; start <= text.size();) {
        std::size_t end = text.find('\n', start);
        if (end == std::string_view::npos) {
            end = text.size();
        }
        const std::string_view line = text.substr(start, end - start);
        if (tavlo::tool::ParseLine(line, frame)) {
            CheckFrame(frame, line);
        }
        start = end + 1;
    }
    return 0;
}
