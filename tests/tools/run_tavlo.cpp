// tests/tools/run_tavlo.cpp: runs the built tavlo command through the shell
// and collects what it printed.
#include "run_tavlo.h"

#if !defined(_WIN32)
#include <sys/wait.h>
#endif

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string_view>

#include "support/read_database.h"

namespace tavlo::test {
namespace {

// The command as the shell starts it. cmd.exe wants the program's path with
// backslashes. A path from the root ("\work\...", as a cross build names
// it, like the test data) is on the current drive: under Wine, run from a
// directory outside its prefix, the drive of the Unix root. A run in
// another directory, which may be on another drive, names the drive.
std::string Command(bool elsewhere) {
    std::string command = TAVLO_COMMAND;
#if defined(_WIN32)
    for (char& c : command) {
        c = c == '/' ? '\\' : c;
    }
    if (elsewhere) {
        command = std::filesystem::absolute(command).string();
    }
#else
    (void)elsewhere;
#endif
    return command;
}

}  // namespace

Outcome Tavlo(const std::string& arguments, const std::string& directory) {
    const std::string out = TestFilePath(".out");
    const std::string err = TestFilePath(".err");
    std::string command = Command(!directory.empty()) + " " + arguments + " >" + out + " 2>" + err;
    if (!directory.empty()) {
#if defined(_WIN32)
        command = "cd /d " + ShellQuoted(directory) + " && " + command;
#else
        command = "cd " + ShellQuoted(directory) + " && " + command;
#endif
    }
    const int raw = std::system(command.c_str());
#if defined(_WIN32)
    const int status = raw;  // cmd.exe's, which is the program's exit code
#else
    const int status = WIFEXITED(raw) ? WEXITSTATUS(raw) : -1;
#endif
    Outcome run{status, FileBytes(out), FileBytes(err)};
    std::remove(out.c_str());
    std::remove(err.c_str());
    return run;
}

#if defined(_WIN32)
// Two rounds: the program's own splitting of its command line (inside double
// quotes, a quote is \" and backslashes before one are doubled), then
// cmd.exe's, which would take < > & | ( ) ^ and quotes as its own: each is
// escaped with ^, quotes included, so cmd.exe never sees a quoted part. A
// % is left as it is: cmd.exe would expand %NAME% of a variable it knows.
std::string ShellQuoted(const std::string& text) {
    std::string argument = "\"";
    std::size_t backslashes = 0;
    for (const char c : text) {
        if (c == '\\') {
            ++backslashes;
        } else {
            if (c == '"') {
                argument.append(backslashes + 1, '\\');
            }
            backslashes = 0;
        }
        argument += c;
    }
    argument.append(backslashes, '\\');
    argument += '"';
    std::string line;
    for (const char c : argument) {
        if (std::string_view("<>&|()^\"").find(c) != std::string_view::npos) {
            line += '^';
        }
        line += c;
    }
    return line;
}
#else
std::string ShellQuoted(const std::string& text) {
    std::string quoted = "'";
    for (const char c : text) {
        quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
    }
    return quoted + "'";
}
#endif

std::string FileBytes(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream content;
    content << in.rdbuf();
    return content.str();
}

}  // namespace tavlo::test
