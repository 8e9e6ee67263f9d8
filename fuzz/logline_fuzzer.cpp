// libFuzzer target: the log readers of decode and plot (logs/ in the
// library), every format: the first byte picks the format (or detection by
// content), the rest is the log, read from memory to its end. A frame must
// be as logs.h promises: at most 64 data bytes and zeros past them, no data
// in a remote frame, the extended flag as bit 31 of the identifier, a
// channel ended within its field. A broken promise aborts; so does a read
// outside the log (the sanitizers).
//
//     scripts/fuzz.sh [seconds]
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "tavloms/logs.h"

namespace {

void CheckFrame(const tavlo_log_frame_t& frame) {
    const bool extended = (frame.flags & TAVLO_LOG_EXTENDED) != 0;
    if (frame.length > sizeof frame.data ||
        ((frame.flags & TAVLO_LOG_REMOTE) != 0 && frame.length != 0) ||
        extended != ((frame.id & 0x80000000u) != 0) ||
        std::memchr(frame.channel, 0, sizeof frame.channel) == nullptr) {
        std::abort();
    }
    for (std::size_t i = frame.length; i < sizeof frame.data; ++i) {
        if (frame.data[i] != 0) {
            std::abort();
        }
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) {
        return 0;
    }
    tavlo_log_reader_t* reader = nullptr;
    if (tavlo_log_open_memory(data + 1, size - 1, "fuzz", data[0] % 5, &reader) != TAVLO_LOG_OK) {
        std::abort();
    }
    tavlo_log_frame_t frame;
    int result = TAVLO_LOG_OK;
    for (unsigned long calls = 0; result == TAVLO_LOG_OK || result == TAVLO_LOG_BAD_RECORD;
         ++calls) {
        if (calls > size + 16) {
            std::abort();  // more records than bytes: the reader does not move on
        }
        result = tavlo_log_next(reader, &frame);
        if (result == TAVLO_LOG_OK) {
            CheckFrame(frame);
        }
    }
    tavlo_log_close(reader);
    return 0;
}
