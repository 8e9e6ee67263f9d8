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
// of standard input are allowed).
Outcome Tavlo(const std::string& arguments);

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
