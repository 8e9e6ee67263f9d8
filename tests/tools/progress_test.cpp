// tests/tools/progress_test.cpp: tavlo decode shows its progress on standard
// error only when that is a terminal. Not a case file: the log must be long
// (progress comes every 100000 lines) and the terminal is made by script(1).
#include <gtest/gtest.h>

#include <cstdio>
#include <string>

#include "support/read_database.h"
#include "tools/run_tavlo.h"

namespace tavlo::test {
namespace {

class Progress : public testing::Test {
protected:
    void SetUp() override {
        std::FILE* out = std::fopen(log_.c_str(), "wb");
        ASSERT_NE(out, nullptr) << log_;
        for (int i = 0; i < 250000; ++i) {
            std::fputs("(1600000000.000100) can0 7FF#01\n", out);
        }
        std::fclose(out);
    }
    void TearDown() override { std::remove(log_.c_str()); }

    const std::string db_ = std::string(TAVLOMS_MANAGER_DATA_DIR) + "/powertrain.dbc";
    const std::string log_ = TestFilePath(".log");
};

TEST_F(Progress, NoneIntoAFile) {
    const Outcome run = Tavlo("decode " + ShellQuoted(db_) + " " + ShellQuoted(log_));
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.err, "");
}

TEST_F(Progress, OnATerminal) {
#if defined(_WIN32)
    GTEST_SKIP() << "the pseudo-terminal comes from script(1), which Windows does not have";
#else
    // script(1) passes its standard input on to the terminal: not the test's.
    const std::string command = "script -qec '" + std::string(TAVLO_COMMAND) + " decode " + db_ +
                                " " + log_ + " >/dev/null' /dev/null </dev/null";
    std::FILE* terminal = popen(command.c_str(), "r");
    ASSERT_NE(terminal, nullptr);
    std::string shown;
    char block[4096];
    for (std::size_t n; (n = std::fread(block, 1, sizeof block, terminal)) > 0;) {
        shown.append(block, n);
    }
    EXPECT_EQ(pclose(terminal), 0);
    EXPECT_NE(shown.find("\r" + log_ + ": 100000 lines\r" + log_ + ": 200000 lines"),
              std::string::npos)
        << shown;
    EXPECT_NE(shown.find("\r" + log_ + ": 250000 lines\r\n"), std::string::npos) << shown;
#endif
}

}  // namespace
}  // namespace tavlo::test
