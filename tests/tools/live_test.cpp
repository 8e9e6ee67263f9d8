// tests/tools/live_test.cpp: tavlo decode on live input, a pipe fed one
// frame at a time: each frame's line must come out before the next frame is
// sent, not when the input ends.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#if defined(__linux__)
#include <linux/can.h>
#include <net/if.h>
#include <sys/socket.h>
#endif
#if !defined(_WIN32)
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>
#endif

namespace tavlo::test {
namespace {

#if !defined(_WIN32)
// The command running with its standard input and output on pipes.
class Running {
public:
    explicit Running(std::vector<std::string> arguments) {
        int in[2];
        int out[2];
        if (pipe(in) != 0 || pipe(out) != 0) {
            return;
        }
        pid_ = fork();
        if (pid_ == 0) {
            dup2(in[0], 0);
            dup2(out[1], 1);
            close(in[1]);
            close(out[0]);
            std::vector<char*> argv;
            arguments.insert(arguments.begin(), TAVLO_COMMAND);
            for (std::string& argument : arguments) {
                argv.push_back(argument.data());
            }
            argv.push_back(nullptr);
            execv(argv[0], argv.data());
            _exit(127);
        }
        close(in[0]);
        close(out[1]);
        in_ = in[1];
        out_ = out[0];
        signal(SIGPIPE, SIG_IGN);
    }
    ~Running() {
        if (pid_ > 0) {
            Finish();
        }
        if (out_ >= 0) {
            close(out_);
        }
    }

    bool Started() const { return pid_ > 0; }
    pid_t Pid() const { return pid_; }
    void Send(const std::string& text) {
        ASSERT_EQ(write(in_, text.data(), text.size()), static_cast<ssize_t>(text.size()));
    }
    // The next line it prints within the time, without its end; "" when none came.
    std::string NextLine(int milliseconds) {
        for (;;) {
            const std::size_t end = printed_.find('\n');
            if (end != std::string::npos) {
                const std::string line = printed_.substr(0, end);
                printed_.erase(0, end + 1);
                return line;
            }
            pollfd ready{out_, POLLIN, 0};
            char block[4096];
            ssize_t got = 0;
            if (poll(&ready, 1, milliseconds) <= 0 || (got = read(out_, block, sizeof block)) <= 0) {
                return "";
            }
            printed_.append(block, static_cast<std::size_t>(got));
        }
    }
    // Ends its input; its exit status.
    int Finish() {
        if (in_ >= 0) {
            close(in_);
            in_ = -1;
        }
        int status = 0;
        waitpid(pid_, &status, 0);
        pid_ = -1;
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

private:
    pid_t pid_ = -1;
    int in_ = -1;
    int out_ = -1;
    std::string printed_;
};
#endif

TEST(Live, EachFrameComesOutBeforeTheNext) {
#if defined(_WIN32)
    GTEST_SKIP() << "the test drives the command through POSIX pipes";
#else
    Running tavlo({"decode", std::string(TAVLOMS_MANAGER_DATA_DIR) + "/powertrain.dbc"});
    ASSERT_TRUE(tavlo.Started());
    for (const char* time : {"1600000000.000100", "1600000000.200000", "1600000001.000000"}) {
        tavlo.Send(std::string("(") + time + ") can0 100#A00F022103000000\n");
        const std::string line = tavlo.NextLine(5000);
        EXPECT_EQ(line.substr(0, line.find("  ")), std::string("(") + time + ") can0 100 EngineData")
            << "a frame was not written out while the input waited";
    }
    EXPECT_EQ(tavlo.Finish(), 0);
#endif
}

// Frames sent on a virtual CAN interface are decoded as they arrive, with
// the interface as their channel. Runs where the interface vcan0 exists
// (made by root with "ip link add dev vcan0 type vcan; ip link set vcan0 up").
TEST(Live, BusFramesAreDecoded) {
#if !defined(__linux__)
    GTEST_SKIP() << "SocketCAN is Linux's";
#else
    const int bus = socket(PF_CAN, SOCK_RAW, CAN_RAW);
    const unsigned int index = if_nametoindex("vcan0");
    if (bus < 0 || index == 0) {
        GTEST_SKIP() << (bus < 0 ? "this kernel has no CAN sockets"
                                 : "no virtual CAN interface vcan0 (ip link add dev vcan0 type vcan)");
    }
    sockaddr_can address{};
    address.can_family = AF_CAN;
    address.can_ifindex = static_cast<int>(index);
    ASSERT_EQ(bind(bus, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    Running tavlo({"decode", std::string(TAVLOMS_MANAGER_DATA_DIR) + "/powertrain.dbc", "--bus",
                   "vcan0"});
    ASSERT_TRUE(tavlo.Started());
    usleep(300000);  // its socket is bound before the first frame is sent
    can_frame frame{};
    frame.can_id = 0x200;
    frame.len = 2;
    frame.data[0] = 5;
    for (int i = 0; i < 2; ++i) {
        ASSERT_EQ(write(bus, &frame, sizeof frame), static_cast<ssize_t>(sizeof frame));
        const std::string line = tavlo.NextLine(5000);
        EXPECT_NE(line.find(") vcan0 200 GearData  Gear=5"), std::string::npos) << line;
    }
    close(bus);
    kill(tavlo.Pid(), SIGTERM);
#endif
}

// A bus that is not there is said so at once.
TEST(Live, MissingBusIsAnError) {
#if !defined(__linux__)
    GTEST_SKIP() << "SocketCAN is Linux's";
#else
    Running tavlo({"decode", std::string(TAVLOMS_MANAGER_DATA_DIR) + "/powertrain.dbc", "--bus",
                   "nosuchbus0"});
    ASSERT_TRUE(tavlo.Started());
    EXPECT_EQ(tavlo.Finish(), 1);
#endif
}

}  // namespace
}  // namespace tavlo::test
