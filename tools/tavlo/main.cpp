// tools/tavlo/main.cpp: the tavlo command, what engineers do every day with
// a database file from a terminal. It parses the command line (the one place
// that does), answers --help and --version, and shows the library's messages
// on standard error.
//
// Exit status: 0 success, 1 a database or input error, 2 a usage error.
#include <algorithm>
#include <cstdio>
#include <string>
#include <utility>
#include <vector>

#include <CLI/CLI.hpp>

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
    &kMonitor,
};

// A subcommand as declared on the command line, and what it was given.
struct Declared {
    const Subcommand* subcommand = nullptr;
    CLI::App* app = nullptr;
    CLI::Option* strict = nullptr;
    CLI::Option* tolerant = nullptr;
    Invocation invocation;
};

// The options a help lists, one line each: "  -f, --format FORMAT  text".
std::string OptionList(const CLI::App& app) {
    std::vector<std::pair<std::string, std::string>> rows;
    std::size_t width = 0;
    for (const CLI::Option* option : app.get_options()) {
        if (!option->nonpositional()) {
            continue;
        }
        const std::vector<std::string>& shortNames = option->get_snames();
        std::string names = shortNames.empty() ? "    " : "-" + shortNames[0] + ", ";
        names += "--" + option->get_lnames().at(0);
        if (!option->get_type_name().empty()) {
            names += " " + option->get_type_name();
        }
        width = std::max(width, names.size());
        rows.emplace_back(names, option->get_description());
    }
    std::string list = "\nOptions:\n";
    for (const auto& [names, description] : rows) {
        list += "  " + names + std::string(width - names.size() + 2, ' ') + description + "\n";
    }
    return list;
}

void Usage(const CLI::App& tavlo, std::FILE* to) {
    std::fputs("usage: tavlo [--help | --version]\n"
               "       tavlo SUBCOMMAND [OPTIONS] [ARGS...]\n\nSubcommands:\n", to);
    for (const Subcommand* subcommand : kSubcommands) {
        const std::string call = std::string(subcommand->name) + " " + subcommand->synopsis;
        std::fprintf(to, "  %-32s %s\n", call.c_str(), subcommand->summary);
    }
    std::fputs(OptionList(tavlo).c_str(), to);
    std::fputs("\n'tavlo SUBCOMMAND --help' tells more; '--' ends the options.\n", to);
}

// The library's own version text ("Tavloms Version 2.53").
std::string Version() {
    char text[64] = {};
    TAVLOMSGETMODULEPARAMETERS(nullptr, 0, text, sizeof text - 1, 250);
    return text;
}

// --strict and --tolerant, which every subcommand takes as they all read
// database files: one choice, the same everywhere, each subcommand with its
// own default.
void AddLoadingOptions(CLI::App& app, Declared& declared) {
    const bool strict = declared.subcommand->strictByDefault;
    declared.strict = app.add_flag("--strict")->description(
        std::string("load database files strictly: fail on the first error") +
        (strict ? " (the default)" : ""));
    declared.tolerant = app.add_flag("--tolerant")->description(
        std::string("load them tolerantly: skip or repair faults") +
        (strict ? "" : " (the default)"));
    declared.strict->excludes(declared.tolerant);
}

// A subcommand's options (its own, then the loading options) and operands.
void Declare(CLI::App& tavlo, Declared& declared) {
    const Subcommand& subcommand = *declared.subcommand;
    Invocation& invocation = declared.invocation;
    CLI::App* app = tavlo.add_subcommand(subcommand.name, subcommand.summary);
    app->set_help_flag("-h,--help", "print this help and exit");
    for (const Option& option : subcommand.options) {
        const std::string names = option.names;
        const std::string key = names.substr(names.rfind(',') + 1);  // the long name
        if (option.value == nullptr) {
            app->add_flag_callback(option.names, [&invocation, key] { invocation.values[key]; },
                                   option.help);
            continue;
        }
        if (option.repeatable) {
            const auto keepAll = [&invocation, key](const std::vector<std::string>& values) {
                std::vector<std::string>& list = invocation.lists[key];
                list.insert(list.end(), values.begin(), values.end());
            };
            app->add_option_function<std::vector<std::string>>(option.names, keepAll, option.help)
                ->type_name(option.value)
                ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll)
                ->allow_extra_args(false);
            continue;
        }
        const auto keep = [&invocation, key](const std::string& value) {
            invocation.values[key] = value;
        };
        CLI::Option* added = app->add_option_function<std::string>(option.names, keep, option.help);
        added->type_name(option.value);
        if (!option.choices.empty()) {
            added->check(CLI::IsMember(option.choices).description(""));
        }
    }
    AddLoadingOptions(*app, declared);
    app->add_option("operands", invocation.operands);
    declared.app = app;
    invocation.help = subcommand.help + OptionList(*app);
}

}  // namespace

int main(int argc, char** argv) {
    UseBinaryStandardStreams();  // the same bytes out on every system
    TAVLO_SET_MESSAGEBOX_HOOK(&CollectMessage);
    TAVLO_SET_POST_HOOK(&DropPost);

    CLI::App tavlo{"", "tavlo"};
    tavlo.set_help_flag("-h,--help", "print this help and exit");
    tavlo.set_version_flag("--version", Version(), "print the library's version and exit");
    // The same options on every system: on Windows, CLI11 would otherwise take
    // "/name" for an option, which is also how a path from the root begins.
    tavlo.allow_windows_style_options(false);
    // An operand named like a subcommand is an operand, not a second subcommand.
    tavlo.require_subcommand(0, 1);
    // An option given again replaces its value, as it did before.
    tavlo.option_defaults()->multi_option_policy(CLI::MultiOptionPolicy::TakeLast);
    std::vector<Declared> subcommands;
    subcommands.reserve(std::size(kSubcommands));  // Declare keeps references into them
    for (const Subcommand* subcommand : kSubcommands) {
        Declared& declared = subcommands.emplace_back();
        declared.subcommand = subcommand;
        Declare(tavlo, declared);
    }

    const std::string first = argc > 1 ? argv[1] : "";
    if (first == "help") {
        Usage(tavlo, stdout);
        return kOk;
    }
    const auto named = [&first](const Declared& d) { return first == d.subcommand->name; };
    const bool known = std::any_of(subcommands.begin(), subcommands.end(), named);
    if (argc > 1 && !known && first.rfind('-', 0) != 0) {
        std::fprintf(stderr, "tavlo: unknown subcommand '%s'\n\n", first.c_str());
        Usage(tavlo, stderr);
        return kUsage;
    }
    // The subcommand being parsed, once its name was read.
    const auto chosen = [&tavlo, &subcommands]() -> Declared* {
        for (const CLI::App* app : tavlo.get_subcommands()) {
            for (Declared& declared : subcommands) {
                if (declared.app == app) {
                    return &declared;
                }
            }
        }
        return nullptr;
    };
    // What follows the first "--" after the subcommand's name is operands,
    // set aside here: CLI11 2.1.2 hands the arguments after a "--" back to the
    // main command once the subcommand has an operand.
    char** const operandsOnly = std::find(argv + std::min(argc, 2), argv + argc, std::string("--"));
    try {
        tavlo.parse(static_cast<int>(operandsOnly - argv), argv);
    } catch (const CLI::CallForHelp&) {
        const Declared* declared = chosen();
        if (declared == nullptr) {
            Usage(tavlo, stdout);
        } else {
            std::fputs(declared->invocation.help.c_str(), stdout);
        }
        return kOk;
    } catch (const CLI::CallForVersion& version) {
        std::printf("%s\n", version.what());
        return kOk;
    } catch (const CLI::ParseError& error) {
        const Declared* declared = chosen();
        std::fprintf(stderr, "tavlo%s%s: %s\n", declared != nullptr ? " " : "",
                     declared != nullptr ? declared->subcommand->name : "", error.what());
        return kUsage;
    }
    Declared* declared = chosen();
    if (declared == nullptr) {
        Usage(tavlo, stderr);
        return kUsage;
    }
    if (operandsOnly != argv + argc) {
        declared->invocation.operands.insert(declared->invocation.operands.end(), operandsOnly + 1,
                                             argv + argc);
    }
    SetStrict(declared->strict->count() != 0 ||
              (declared->tolerant->count() == 0 && declared->subcommand->strictByDefault));
    return declared->subcommand->run(declared->invocation);
}
