// tools/tavlo/monitor.cpp: the monitor subcommand, a full-screen view of
// the messages on a bus or in a log. Its command line is read here; the
// view is monitor_screen.cpp's, built on Linux where ncurses is found. Other
// builds list the subcommand all the same (the help and the usage errors
// are the same everywhere) and say, when it is run, that it was not built.
#include "commands.h"

#if defined(TAVLO_HAVE_MONITOR)
#include "monitor_screen.h"
#endif

namespace tavlo::tool {
namespace {

const char kMonitorHelp[] =
    "usage: tavlo monitor [OPTIONS] DB [LOG|-]\n"
    "       tavlo monitor [OPTIONS] DB --bus INTERFACE\n"
    "Shows the messages seen on a full-screen terminal view, one row each,\n"
    "updated ten times a second as frames arrive: identifier, name, count, rate\n"
    "(frames per second over the last two seconds), age (seconds since its\n"
    "last frame) and the latest value of each of its signals, with unit and\n"
    "value description. Identifiers the database does not know are rows named\n"
    "unknown, with their latest data in hex; error frames are a row named error.\n"
    "\n"
    "Frames come from standard input (no LOG, or '-'), the keys then from the\n"
    "terminal (/dev/tty); or from a log (candump, ASC, BLF or TRC), read as fast\n"
    "as it can be read with rates and ages in the log's own time, or with\n"
    "--replay at the pace of its frames' times; or with --bus from a SocketCAN\n"
    "interface. When the input ends the view stays, saying so, until q.\n"
    "\n"
    "Keys: Up, Down, PgUp, PgDn, Home and End scroll; Left and Right shift the\n"
    "signals sideways; '/' filters the rows by name (type a part of it, Enter\n"
    "applies, Escape clears); 'p' or space pauses and resumes the display (the\n"
    "input is read on); 'q' quits. Lines that are not frames are shown at the\n"
    "bottom and printed on standard error after quitting (exit status 1).\n"
    "\n"
    "Linux only. Needs a terminal: standard output or /dev/tty.\n";

int Monitor(const Invocation& line) {
    const bool bus = line.Given("--bus");
    if (line.operands.empty() || line.operands.size() > (bus ? 1 : 2)) {
        return line.Misused();
    }
#if defined(TAVLO_HAVE_MONITOR)
    monitor::Request request;
    request.database = line.operands[0];
    request.input = line.operands.size() > 1 ? line.operands[1] : "-";
    request.replay = line.Given("--replay");
    request.bus = line.Value("--bus", "");
    return monitor::RunScreen(request);
#else
    std::fputs("tavlo monitor: not built: this tavlo has no terminal view (it needs ncurses, on "
               "Linux)\n",
               stderr);
    return kFailed;
#endif
}

}  // namespace

const Subcommand kMonitor{"monitor", "DB [LOG|-]", "a live terminal view of the messages seen",
                          &Monitor, kMonitorHelp,
                          {{"--replay", nullptr, "replay LOG at the pace of its frames' times", {}},
                           {"-b,--bus", "INTERFACE", "read a SocketCAN interface (Linux)", {}}}};

}  // namespace tavlo::tool
