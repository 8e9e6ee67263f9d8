// tools/tavlo/main.cpp: the tavlo command, what engineers do every day with
// a database file from a terminal. It picks the subcommand, answers --help,
// and shows the library's messages on standard error.
//
// Exit status: 0 success, 1 a database or input error, 2 a usage error.
#include <cstdio>
#include <string>

#include "commands.h"
#include "system.h"

namespace {

using namespace tavlo::tool;

// In the order the overview lists them.
const Subcommand* const kSubcommands[] = {
    &kDecode,
    &kCheck,
    &kInfo,
    &kFormat,
    &kShow,
    &kEncode,
    &kConvert,
    &kDiff,
    &kPlot,
};

void Usage(std::FILE* to) {
    std::fputs("usage: tavlo SUBCOMMAND [ARGS...]\n\nSubcommands:\n", to);
    for (const Subcommand* subcommand : kSubcommands) {
        const std::string call = std::string(subcommand->name) + " " + subcommand->synopsis;
        std::fprintf(to, "  %-32s %s\n", call.c_str(), subcommand->summary);
    }
    std::fputs("\n'tavlo SUBCOMMAND --help' tells more.\n", to);
}

}  // namespace

int main(int argc, char** argv) {
    UseBinaryStandardStreams();  // the same bytes out on every system
    TAVLO_SET_MESSAGEBOX_HOOK(&CollectMessage);
    TAVLO_SET_POST_HOOK(&DropPost);
    if (argc < 2) {
        Usage(stderr);
        return kUsage;
    }
    const std::string name = argv[1];
    if (name == "--help" || name == "-h" || name == "help") {
        Usage(stdout);
        return kOk;
    }
    for (const Subcommand* subcommand : kSubcommands) {
        if (name != subcommand->name) {
            continue;
        }
        Arguments args;
        for (int i = 2; i < argc; ++i) {
            const std::string arg = argv[i];
            if (arg == "--help" || arg == "-h") {
                std::fputs(subcommand->help, stdout);
                return kOk;
            }
            if (arg == "--strict") {  // database files load tolerantly otherwise
                SetStrict(true);
            } else {
                args.push_back(arg);
            }
        }
        return subcommand->run(args);
    }
    std::fprintf(stderr, "tavlo: unknown subcommand '%s'\n\n", name.c_str());
    Usage(stderr);
    return kUsage;
}
