// tests/tools/run_tavlo.cpp: runs the built tavlo command through the shell
// and collects what it printed.
#include "run_tavlo.h"

#include <sys/wait.h>

#include <cstdio>
#include <cstdlib>

#include "support/read_database.h"

namespace tavlo::test {

Outcome Tavlo(const std::string& arguments) {
    const std::string out = TestFilePath(".out");
    const std::string err = TestFilePath(".err");
    const std::string command = std::string(TAVLO_COMMAND) + " " + arguments + " >" + out +
                                " 2>" + err;
    const int raw = std::system(command.c_str());
    Outcome run{WIFEXITED(raw) ? WEXITSTATUS(raw) : -1, FileContent(out), FileContent(err)};
    std::remove(out.c_str());
    std::remove(err.c_str());
    return run;
}

std::string Corpus(const std::string& name) { return std::string(TAVLOMS_CORPUS_DIR) + "/" + name; }

std::string ManagerData(const std::string& name) {
    return std::string(TAVLOMS_MANAGER_DATA_DIR) + "/" + name;
}

std::string Example(const std::string& name) {
    return std::string(TAVLOMS_EXAMPLES_DIR) + "/" + name;
}

std::string ToolData(const std::string& name) {
    return std::string(TAVLOMS_TOOL_DATA_DIR) + "/" + name;
}

std::string Expected(const std::string& name) {
    std::string text = FileContent(ToolData(name));
    const std::string marker = "@DATA@";
    for (std::size_t at = text.find(marker); at != std::string::npos;
         at = text.find(marker, at)) {
        text.replace(at, marker.size(), TAVLOMS_TOOL_DATA_DIR);
        at += std::string(TAVLOMS_TOOL_DATA_DIR).size();
    }
    return text;
}

}  // namespace tavlo::test
