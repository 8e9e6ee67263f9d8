// tests/tools/run_tavlo.h: the tavlo command run as a user runs it, for the
// tool tests: its exit status, standard output and standard error, and the
// files the expected outputs are kept in.
#pragma once

#include <string>

namespace tavlo::test {

struct Outcome {
    int status;
    std::string out;
    std::string err;
};

// Runs the command with arguments (shell-quoted by the caller; redirections
// of standard input are allowed). The command line goes through the system's
// shell: sh on POSIX systems, cmd.exe on Windows.
Outcome Tavlo(const std::string& arguments);

// text as one argument on the command line Tavlo runs, whatever characters
// it holds.
std::string ShellQuoted(const std::string& text);

// The whole content of a file byte for byte, line ends as they are ("" when
// it cannot be read): what the command printed or wrote, compared exactly.
std::string FileBytes(const std::string& path);

// Paths of the test data: the corpus, the manager tests' files, the
// examples and the tool tests' own files.
std::string Corpus(const std::string& name);
std::string ManagerData(const std::string& name);
std::string Example(const std::string& name);
std::string ToolData(const std::string& name);

// The expected output kept as tests/tools/data/<name>, with "@DATA@" standing
// for the directory of the tool tests' own files, so expected texts that name
// files do not depend on where the tree is.
std::string Expected(const std::string& name);

}  // namespace tavlo::test
