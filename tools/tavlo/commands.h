// tools/tavlo/commands.h: the subcommands of the tavlo command, each a
// function over its parsed command line returning the exit status, with the
// options it takes and its help text. The subcommands only declare their
// options here; main.cpp alone parses the command line (with CLI11, a header
// that is slow to compile, so it is compiled once).
#pragma once

#include <map>
#include <string>
#include <vector>

#include "common.h"

namespace tavlo::tool {

// An option of a subcommand: a flag, or one that takes a value.
struct Option {
    const char* names;  // the short and long name, "-f,--format"; the long one is its key
    const char* value;  // the value's name in the help ("PATH"); null for a flag
    const char* help;   // one line in the help's list of options
    std::vector<std::string> choices;  // the values allowed; empty for any
    bool repeatable = false;           // may be given many times, each value kept
};

// A subcommand's command line once parsed.
struct Invocation {
    Arguments operands;                         // what is not an option, in its order
    std::map<std::string, std::string> values;  // of the options given, by long name
    std::map<std::string, std::vector<std::string>> lists;  // of repeatable ones, in order
    std::string help;                           // the subcommand's --help text

    bool Given(const std::string& name) const { return values.count(name) != 0; }
    std::vector<std::string> All(const std::string& name) const {
        const auto found = lists.find(name);
        return found != lists.end() ? found->second : std::vector<std::string>();
    }
    std::string Value(const std::string& name, const std::string& otherwise) const {
        const auto found = values.find(name);
        return found != values.end() ? found->second : otherwise;
    }
    // Too few or too many operands: the help on standard error; kUsage.
    int Misused() const {
        std::fputs(help.c_str(), stderr);
        return kUsage;
    }
};

struct Subcommand {
    const char* name;
    const char* synopsis;  // the arguments, for the overview
    const char* summary;   // one line, for the overview
    int (*run)(const Invocation&);
    const char* help;  // the usage line and what it does; the options are listed after it
    std::vector<Option> options;
    // How it loads database files without --strict or --tolerant (every
    // subcommand reads them, so every one takes both).
    bool strictByDefault = false;
};

extern const Subcommand kCheck;
extern const Subcommand kInfo;
extern const Subcommand kFormat;
extern const Subcommand kShow;
extern const Subcommand kEncode;
extern const Subcommand kDecode;
extern const Subcommand kConvert;
extern const Subcommand kDiff;
extern const Subcommand kPlot;
extern const Subcommand kMonitor;

}  // namespace tavlo::tool
