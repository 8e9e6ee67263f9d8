// tests/tools/monitor_test.cpp: tavlo monitor in a real terminal. tmux runs
// it in a detached session of 120 x 30 characters; the test feeds frames
// (through a FIFO as standard input, or a log replayed), reads the screen
// with capture-pane until what it waits for appears (or a time limit runs
// out), types keys with send-keys, and checks the exit status and that the
// terminal was left as it was found. Where the view was not built (no
// ncurses, or not Linux), the command must say so.
#include <gtest/gtest.h>

#if !defined(_WIN32)
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#endif

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "support/read_database.h"
#include "tools/run_tavlo.h"

namespace tavlo::test {
namespace {

const std::string kDatabase = std::string(TAVLOMS_MANAGER_DATA_DIR) + "/powertrain.dbc";

#if defined(TAVLO_HAVE_MONITOR)

using std::chrono::steady_clock;
constexpr auto kPatience = std::chrono::seconds(30);  // sanitizer builds are slow to start

bool Succeeds(const std::string& command) { return std::system(command.c_str()) == 0; }

// A line of the screen that holds text, "" when none does.
std::string LineWith(const std::string& screen, const std::string& text) {
    std::istringstream lines(screen);
    for (std::string line; std::getline(lines, line);) {
        if (line.find(text) != std::string::npos) {
            return line;
        }
    }
    return "";
}

// The blank-separated words of a message's row: identifier, name, count, ...
std::vector<std::string> Row(const std::string& screen, const std::string& name) {
    std::istringstream in(LineWith(screen, "  " + name + " "));
    std::vector<std::string> words;
    for (std::string word; in >> word;) {
        words.push_back(word);
    }
    return words;
}

std::string Count(const std::string& screen, const std::string& name) {
    const std::vector<std::string> words = Row(screen, name);
    return words.size() > 2 ? words[2] : "";
}

// A tmux server of the test's own, with one session running a shell script:
// the monitor, then its exit status and the terminal's settings into files.
class Terminal : public testing::Test {
protected:
    void SetUp() override {
        if (!Succeeds("tmux -V >/dev/null 2>&1")) {
            GTEST_SKIP() << "tmux is not installed (scripts/deps.sh installs it)";
        }
    }

    void TearDown() override {
        if (started_) {
            Tmux("kill-server >/dev/null 2>&1");
        }
        for (const std::string& path : {socket_, script_, status_, status_ + ".part", errors_, fifo_, log_}) {
            std::remove(path.c_str());
        }
        if (writer_ >= 0) {
            close(writer_);
        }
    }

    // Starts `tavlo ARGUMENTS` (shell words) in a session; a Ctrl-C
    // reaches it, not the script, which goes on to write the status.
    void Start(const std::string& arguments) {
        std::FILE* script = std::fopen(script_.c_str(), "w");
        ASSERT_NE(script, nullptr);
        std::fprintf(script,
                     "trap 'echo interrupted' INT\n"
                     "%s %s 2>%s\n"
                     "echo $? >%s\n"
                     "stty -a >>%s\n"
                     "mv %s %s\n",
                     TAVLO_COMMAND, arguments.c_str(), ShellQuoted(errors_).c_str(),
                     ShellQuoted(status_ + ".part").c_str(), ShellQuoted(status_ + ".part").c_str(),
                     ShellQuoted(status_ + ".part").c_str(), ShellQuoted(status_).c_str());
        std::fclose(script);
        started_ = true;
        ASSERT_TRUE(Tmux("new-session -d -x 120 -y 30 " + ShellQuoted("sh " + ShellQuoted(script_))));
    }

    bool Tmux(const std::string& arguments) {
        return Succeeds("env -u TMUX tmux -S " + ShellQuoted(socket_) + " -f /dev/null " + arguments);
    }

    std::string Screen() {
        const std::string command = "tmux -S " + ShellQuoted(socket_) + " capture-pane -p 2>/dev/null";
        std::FILE* pane = popen(command.c_str(), "r");
        std::string screen;
        if (pane != nullptr) {
            char block[4096];
            for (std::size_t n; (n = std::fread(block, 1, sizeof block, pane)) > 0;) {
                screen.append(block, n);
            }
            pclose(pane);
        }
        return screen;
    }

    void Keys(const std::string& keys) { ASSERT_TRUE(Tmux("send-keys " + keys)); }

    // Polls the screen until `shows` holds of it; the last screen seen.
    std::string WaitFor(const std::function<bool(const std::string&)>& shows) {
        const auto until = steady_clock::now() + kPatience;
        std::string screen = Screen();
        while (!shows(screen) && steady_clock::now() < until && !Exists(status_)) {
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
            screen = Screen();
        }
        return screen;
    }
    std::string WaitFor(const std::string& text) {
        return WaitFor([&text](const std::string& s) { return s.find(text) != std::string::npos; });
    }

    // The monitor's exit status, after which the script wrote the
    // terminal's settings; -1 when it did not end in time.
    int Ended(std::string& settings) {
        const auto until = steady_clock::now() + kPatience;
        while (!Exists(status_) && steady_clock::now() < until) {
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
        }
        if (!Exists(status_)) {
            return -1;
        }
        const std::string written = FileBytes(status_);
        settings = written.substr(written.find('\n') + 1);
        return std::atoi(written.c_str());
    }

    static bool Exists(const std::string& path) {
        struct stat info {};
        return stat(path.c_str(), &info) == 0;
    }

    // Opens the FIFO for writing once the monitor reads it.
    void OpenFifo() {
        const auto until = steady_clock::now() + kPatience;
        while ((writer_ = open(fifo_.c_str(), O_WRONLY | O_NONBLOCK)) < 0 && steady_clock::now() < until) {
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        }
        ASSERT_GE(writer_, 0) << "the monitor did not open its input; screen:\n" << Screen();
        fcntl(writer_, F_SETFL, 0);
    }

    void Write(const std::string& lines) {
        ASSERT_EQ(write(writer_, lines.data(), lines.size()), static_cast<ssize_t>(lines.size()));
    }

    static void ExpectTerminalRestored(const std::string& settings) {
        EXPECT_NE(settings.find(" icanon "), std::string::npos) << settings;
        EXPECT_NE(settings.find(" echo "), std::string::npos) << settings;
    }

    // q: it ends with status 0, having said nothing, the terminal as it was.
    void QuitCleanly() {
        Keys("q");
        std::string settings;
        EXPECT_EQ(Ended(settings), 0) << FileBytes(errors_);
        EXPECT_EQ(FileBytes(errors_), "");
        ExpectTerminalRestored(settings);
    }

    static std::string Lines(const std::string& line, int times) {
        std::string lines;
        for (int i = 0; i < times; ++i) {
            lines += line;
        }
        return lines;
    }

    const std::string socket_ = "/tmp/tavlo-monitor-" + std::to_string(getpid()) + ".sock";
    const std::string script_ = TestFilePath(".sh");
    const std::string status_ = TestFilePath(".status");
    const std::string errors_ = TestFilePath(".err");
    const std::string fifo_ = TestFilePath(".fifo");
    const std::string log_ = TestFilePath(".log");
    int writer_ = -1;
    bool started_ = false;
};

// Frames on standard input, keys from the terminal: rows appear and count
// up, values with unit and description; filtering, pausing, and q with the
// input still open.
TEST_F(Terminal, StandardInputFilteredPausedAndQuit) {
    ASSERT_EQ(mkfifo(fifo_.c_str(), 0600), 0);
    Start("monitor " + ShellQuoted(kDatabase) + " - <" + ShellQuoted(fifo_));
    ASSERT_NO_FATAL_FAILURE(OpenFifo());
    // The log reader tells the format from its first 4 KiB: the first step
    // is longer than that.
    ASSERT_NO_FATAL_FAILURE(Write(Lines("(1600000000.000100) can0 100#A00F022103000000\n", 100) +
                                  "(1600000000.000200) can0 200#05\n"
                                  "(1600000000.000300) can0 00000300#07\n"
                                  "(1600000000.000400) can0 7FF#0102AB\n"));
    std::string screen = WaitFor([](const std::string& s) {
        return Count(s, "EngineData") == "100" && s.find("7FF") != std::string::npos;
    });
    ASSERT_EQ(Count(screen, "EngineData"), "100") << screen;
    EXPECT_NE(LineWith(screen, "EngineData").find("EngineSpeed=1000 rpm  EngineTemp=-38 degC \"Hot\""),
              std::string::npos)
        << screen;
    EXPECT_NE(LineWith(screen, "EngineData").find("OilLevel=50 %"), std::string::npos) << screen;
    EXPECT_EQ(Row(screen, "GearData").at(0), "200") << screen;
    EXPECT_EQ(Count(screen, "GearData"), "1") << screen;
    EXPECT_EQ(Row(screen, "GearData").back(), "Gear=5") << screen;
    EXPECT_NE(LineWith(screen, "00000300").find("ExtendedData"), std::string::npos) << screen;
    EXPECT_NE(LineWith(screen, "7FF").find("unknown"), std::string::npos) << screen;
    EXPECT_NE(LineWith(screen, "7FF").find("01 02 AB"), std::string::npos) << screen;
    EXPECT_NE(screen.find("reading"), std::string::npos) << screen;

    ASSERT_NO_FATAL_FAILURE(Write("(1600000000.000500) can0 100#A00F000003000000\n"
                                  "(1600000000.000600) can0 100#A00F000003000000\n"));
    screen = WaitFor([](const std::string& s) { return Count(s, "EngineData") == "102"; });
    ASSERT_EQ(Count(screen, "EngineData"), "102") << screen;
    EXPECT_NE(LineWith(screen, "EngineData").find("EngineTemp=-40 degC \"Cold\"  Mux=0"), std::string::npos)
        << screen;
    // The rest of the row, past the screen's edge, shifted into view.
    Keys("Right Right Right Right Right Right");
    screen = WaitFor([](const std::string& s) {
        return LineWith(s, "EngineData").find("OilLevel=50 %") != std::string::npos;
    });
    EXPECT_NE(LineWith(screen, "EngineData").find("OilPressure=48 kPa  OilLevel=50 %"), std::string::npos)
        << screen;
    EXPECT_EQ(Count(screen, "EngineData"), "102") << screen;
    Keys("Home Left Left Left Left Left Left");
    screen = WaitFor([](const std::string& s) { return s.find("EngineSpeed=1000 rpm") != std::string::npos; });
    EXPECT_NE(screen.find("EngineSpeed=1000 rpm"), std::string::npos) << screen;

    // A filter typed, applied with Enter, cleared with Escape; any case.
    Keys("/ d a t a");
    screen = WaitFor("filter: data");
    EXPECT_NE(screen.find("filter: data"), std::string::npos) << screen;
    Keys("Enter");
    screen = WaitFor([](const std::string& s) { return Row(s, "unknown").empty(); });
    EXPECT_TRUE(Row(screen, "unknown").empty()) << screen;
    EXPECT_EQ(Count(screen, "EngineData"), "102") << screen;
    EXPECT_EQ(Count(screen, "GearData"), "1") << screen;
    EXPECT_EQ(Count(screen, "ExtendedData"), "1") << screen;
    Keys("/ g E a R Enter");
    screen = WaitFor([](const std::string& s) { return Row(s, "EngineData").empty(); });
    EXPECT_TRUE(Row(screen, "EngineData").empty()) << screen;
    EXPECT_TRUE(Row(screen, "ExtendedData").empty()) << screen;
    EXPECT_EQ(Count(screen, "GearData"), "1") << screen;
    Keys("Escape");
    screen = WaitFor([](const std::string& s) { return !Row(s, "unknown").empty(); });
    EXPECT_EQ(Count(screen, "EngineData"), "102") << screen;
    EXPECT_EQ(Count(screen, "GearData"), "1") << screen;
    EXPECT_EQ(Count(screen, "unknown"), "1") << screen;

    // Paused, the display stands while the input is read on.
    Keys("p");
    screen = WaitFor("PAUSED");
    ASSERT_NE(screen.find("PAUSED"), std::string::npos) << screen;
    ASSERT_NO_FATAL_FAILURE(Write("(1600000000.000700) can0 200#06\n"));
    std::this_thread::sleep_for(std::chrono::milliseconds(300));  // three redraws
    EXPECT_EQ(Count(Screen(), "GearData"), "1") << Screen();
    Keys("Space");
    screen = WaitFor([](const std::string& s) { return Count(s, "GearData") == "2"; });
    EXPECT_EQ(Count(screen, "GearData"), "2") << screen;
    EXPECT_NE(LineWith(screen, "GearData").find("Gear=6"), std::string::npos) << screen;

    // q while the reader waits on the open FIFO.
    QuitCleanly();
}

// A log replayed at its own pace: the last frame comes 0.6 s after the
// first, then the view says the input ended and stays until q.
TEST_F(Terminal, ReplayedLogEndsAndStays) {
    {
        std::FILE* log = std::fopen(log_.c_str(), "w");
        ASSERT_NE(log, nullptr);
        std::fputs("(1600000000.000000) can0 100#A00F022103000000\n"
                   "(1600000000.200000) can0 100#A00F022103000000\n"
                   "(1600000000.400000) can0 555#0102\n"
                   "(1600000000.600000) can0 100#A00F000003000000\n",
                   log);
        std::fclose(log);
    }
    const auto start = steady_clock::now();
    Start("monitor --replay " + ShellQuoted(kDatabase) + " " + ShellQuoted(log_));
    std::string screen = WaitFor("input ended");
    const auto took = steady_clock::now() - start;
    ASSERT_NE(screen.find("input ended"), std::string::npos) << screen;
    EXPECT_GE(took, std::chrono::milliseconds(550));
    EXPECT_EQ(Count(screen, "EngineData"), "3") << screen;
    EXPECT_NE(LineWith(screen, "EngineData").find("EngineTemp=-40 degC \"Cold\""), std::string::npos) << screen;
    EXPECT_NE(LineWith(screen, "unknown").find("01 02"), std::string::npos) << screen;
    EXPECT_NE(screen.find("4 frames"), std::string::npos) << screen;

    // Still there, its ages growing, until q.
    screen = WaitFor([](const std::string& s) {
        const std::vector<std::string> row = Row(s, "EngineData");
        return row.size() > 4 && std::atof(row[4].c_str()) >= 0.5;
    });
    EXPECT_NE(screen.find("input ended"), std::string::npos) << screen;
    QuitCleanly();
}

// Ctrl-C leaves the terminal as it was too.
TEST_F(Terminal, InterruptRestoresTheTerminal) {
    ASSERT_EQ(mkfifo(fifo_.c_str(), 0600), 0);
    Start("monitor " + ShellQuoted(kDatabase) + " <" + ShellQuoted(fifo_));
    ASSERT_NO_FATAL_FAILURE(OpenFifo());
    ASSERT_NO_FATAL_FAILURE(Write(Lines("(1600000000.000100) can0 100#A00F022103000000\n", 100)));
    const std::string screen = WaitFor([](const std::string& s) { return Count(s, "EngineData") == "100"; });
    ASSERT_EQ(Count(screen, "EngineData"), "100") << screen;
    Keys("C-c");
    std::string settings;
    EXPECT_EQ(Ended(settings), 128 + 2) << FileBytes(errors_);  // SIGINT's
    ExpectTerminalRestored(settings);
}

// Lines that are not frames: on the status line, then on standard error,
// exit status 1.
TEST_F(Terminal, BadLinesShownThenReported) {
    {
        std::FILE* log = std::fopen(log_.c_str(), "w");
        ASSERT_NE(log, nullptr);
        std::fputs("(1600000000.000000) can0 100#A00F022103000000\nthis is not a frame\n", log);
        std::fclose(log);
    }
    Start("monitor " + ShellQuoted(kDatabase) + " " + ShellQuoted(log_));
    // The bad line may show while the status still says "reading".
    const std::string told = log_ + ":2: not a CAN frame";
    const std::string screen = WaitFor([&told](const std::string& s) {
        return LineWith(s, "input ended").find(told) != std::string::npos;
    });
    EXPECT_NE(LineWith(screen, "input ended").find(told), std::string::npos) << screen;
    Keys("q");
    std::string settings;
    EXPECT_EQ(Ended(settings), 1);
    EXPECT_EQ(FileBytes(errors_), log_ + ":2: not a CAN frame: this is not a frame\n");
}

// Without a terminal (no controlling one: setsid), one line and status 1.
TEST(Monitor, NeedsATerminal) {
    if (std::system("setsid --version >/dev/null 2>&1") != 0) {
        GTEST_SKIP() << "setsid (util-linux) is not installed";
    }
    const std::string err = TestFilePath(".err");
    const int raw = std::system(("setsid -w " + std::string(TAVLO_COMMAND) + " monitor " +
                                 ShellQuoted(kDatabase) + " /dev/null" +
                                 " </dev/null >/dev/null 2>" + ShellQuoted(err))
                                    .c_str());
    EXPECT_TRUE(WIFEXITED(raw) && WEXITSTATUS(raw) == 1) << raw;
    EXPECT_EQ(FileBytes(err),
              "tavlo monitor: needs a terminal: neither standard output nor /dev/tty is one\n");
    std::remove(err.c_str());
}

// A log that is not there is told before the screen is taken.
TEST(Monitor, MissingLog) {
    const Outcome run = Tavlo("monitor " + ShellQuoted(kDatabase) + " /nonexistent/frames.log");
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.err, "/nonexistent/frames.log: cannot be read: No such file or directory\n");
}

#else

TEST(Monitor, SaysItWasNotBuilt) {
    const Outcome run = Tavlo("monitor " + ShellQuoted(kDatabase));
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.out, "");
    EXPECT_EQ(run.err,
              "tavlo monitor: not built: this tavlo has no terminal view (it needs ncurses, on Linux)\n");
}

#endif

}  // namespace
}  // namespace tavlo::test
