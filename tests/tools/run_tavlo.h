// tests/tools/run_tavlo.h: the tavlo command run as a user runs it, through
// the system's shell, for the tool tests: its exit status, standard output
// and standard error, byte for byte.
#pragma once

#include <string>

namespace tavlo::test {

struct Outcome {
    int status;
    std::string out;
    std::string err;
};

// Runs the command with arguments (shell-quoted by the caller; redirections
// of standard input are allowed), in directory when one is given. The
// command line goes through the system's shell: sh on POSIX systems, cmd.exe
// on Windows.
Outcome Tavlo(const std::string& arguments, const std::string& directory = "");

// text as one argument on the command line Tavlo runs, whatever characters
// it holds.
std::string ShellQuoted(const std::string& text);

// The whole content of a file byte for byte, line ends as they are ("" when
// it cannot be read).
std::string FileBytes(const std::string& path);

}  // namespace tavlo::test
