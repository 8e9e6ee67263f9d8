// tools/tavlo/encode.cpp: the encode subcommand, a frame built from
// physical values or value description texts and printed in candump form.
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "commands.h"

namespace tavlo::tool {
namespace {

const char kEncodeHelp[] =
    "usage: tavlo encode DB MESSAGE NAME=VALUE...\n"
    "Builds the frame of a message from physical values (or value description\n"
    "texts) of its signals and prints it in candump form (ID#DATA). Signals\n"
    "not given are 0. A value out of a signal's range is reported; the frame\n"
    "is printed all the same and the exit status is 1.\n";

int Encode(const Arguments& args) {
    if (args.size() < 2) {
        std::fputs(kEncodeHelp, stderr);
        return kUsage;
    }
    const std::string& path = args[0];
    TavloManager manager(static_cast<void*>(nullptr));
    const char* db = nullptr;
    if (!OpenChecked(path, manager, db)) {
        return kFailed;
    }
    const msgblk* message = manager.GetMessage(args[1].c_str(), db);
    if (message == nullptr) {
        char* end = nullptr;
        const unsigned long id = std::strtoul(args[1].c_str(), &end, 0);
        if (end != nullptr && *end == '\0' && end != args[1].c_str()) {
            message = manager.GetMessage(id, db);
            if (message == nullptr) {
                message = manager.GetMessage(id | kExtendedFlag, db);
            }
        }
    }
    if (message == nullptr) {
        std::fprintf(stderr, "%s: no message %s\n", path.c_str(), args[1].c_str());
        return kFailed;
    }
    unsigned char data[64] = {};
    int status = kOk;
    for (std::size_t i = 2; i < args.size(); ++i) {
        const std::string& assignment = args[i];
        const std::size_t equals = assignment.find('=');
        if (equals == std::string::npos || equals == 0) {
            std::fprintf(stderr, "tavlo encode: '%s' is not NAME=VALUE\n", assignment.c_str());
            return kUsage;
        }
        const std::string name = assignment.substr(0, equals);
        const std::string text = assignment.substr(equals + 1);
        const sigblk* signal = manager.GetSignal(*message, name.c_str());
        if (signal == nullptr) {
            std::fprintf(stderr, "%s: message %s has no signal %s\n", path.c_str(),
                         message->name, name.c_str());
            return kFailed;
        }
        char* end = nullptr;
        double physical = std::strtod(text.c_str(), &end);
        if (text.empty() || end == nullptr || *end != '\0') {
            // A value description text stands for its raw value.
            const long raw = manager.GetDescriptionValue(*signal, text.c_str());
            if (manager.GetStatus() != TAVLO_STATUS_OK) {
                std::fprintf(stderr, "%s: %s=%s: neither a number nor a value description\n",
                             path.c_str(), name.c_str(), text.c_str());
                return kFailed;
            }
            manager.RawToPhysicalValue(static_cast<unsigned int>(raw), *signal, physical);
        }
        const unsigned int result = manager.SetSignalPhysicalValue(data, *signal, *message, physical);
        if (result == TAVLO_SIGNAL_OUT_OF_RANGE) {
            const double minimum = signal->minimum;
            const double maximum = signal->maximum;
            std::fprintf(stderr, "%s: %s=%s is out of range [%.10g .. %.10g]\n", path.c_str(),
                         name.c_str(), text.c_str(), minimum, maximum);
            status = kFailed;
        } else if (result != TAVLO_SIGNAL_OK && result != TAVLO_SIGNAL_NOT_PRESENT) {
            std::fprintf(stderr, "%s: %s=%s cannot be encoded (code %u)\n", path.c_str(),
                         name.c_str(), text.c_str(), result);
            status = kFailed;
        }
    }
    const unsigned int id = message->id;
    const unsigned int dlc = message->dlc;
    const unsigned int bytes = dlc <= sizeof data ? dlc : sizeof data;
    if ((id & kExtendedFlag) != 0) {
        std::printf("%08X#", id & ~kExtendedFlag);
    } else {
        std::printf("%03X#", id);
    }
    for (unsigned int i = 0; i < bytes; ++i) {
        std::printf("%02X", data[i]);
    }
    std::printf("\n");
    return status;
}

}  // namespace

const Subcommand kEncode{"encode", "DB MESSAGE NAME=VALUE...", "a frame from physical values",
                         &Encode, kEncodeHelp};

}  // namespace tavlo::tool
