// tools/tavlo/monitor_screen.h: the monitor subcommand's full-screen view
// (ncurses, Linux only; built where TAVLO_HAVE_MONITOR is defined).
#pragma once

#include <string>

namespace tavlo::tool::monitor {

struct Request {
    std::string database;
    std::string input;  // a log, or "-" for standard input
    std::string bus;    // a SocketCAN interface to read instead, or ""
    bool replay = false;
};

// Shows the view until q; the exit status.
int RunScreen(const Request& request);

}  // namespace tavlo::tool::monitor
