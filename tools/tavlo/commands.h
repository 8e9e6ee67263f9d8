// tools/tavlo/commands.h: the subcommands of the tavlo command, each a
// function over its arguments returning the exit status, and its help text.
#pragma once

#include "common.h"

namespace tavlo::tool {

struct Subcommand {
    const char* name;
    const char* synopsis;  // the arguments, for the overview
    const char* summary;   // one line, for the overview
    int (*run)(const Arguments&);
    const char* help;
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

}  // namespace tavlo::tool
