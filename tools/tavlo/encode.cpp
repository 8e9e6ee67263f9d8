// tools/tavlo/encode.cpp: the encode subcommand, a frame built from
// physical values or value description texts and printed in candump form,
// through the compiled decoder (FD frames, 64-bit values, multiplexers set).
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "commands.h"
#include "decoding.h"

namespace tavlo::tool {
namespace {

const char kEncodeHelp[] =
    "usage: tavlo encode [OPTIONS] DB MESSAGE NAME=VALUE...\n"
    "Builds the frame of a message from physical values (or value description\n"
    "texts) of its signals and prints it in candump form (ID#DATA; ID##0DATA\n"
    "for an FD frame of more than 8 bytes). Signals not given are 0, but the\n"
    "multiplexers of those given select them. A value out of a signal's range\n"
    "is reported; the frame is printed all the same and the exit status is 1.\n";

int Encode(const Invocation& line) {
    const Arguments& args = line.operands;
    if (args.size() < 2) {
        return line.Misused();
    }
    const std::string& path = args[0];
    DecodedDatabase db;
    if (!LoadDecoder(path, db)) {
        return kFailed;
    }
    const long message = FindMessage(db, args[1]);
    if (message < 0) {
        std::fprintf(stderr, "%s: no message %s\n", path.c_str(), args[1].c_str());
        return kFailed;
    }
    // Each value as text: a value description or a number, told apart by
    // the decoder.
    std::vector<std::string> names;
    std::vector<std::string> texts;
    for (std::size_t i = 2; i < args.size(); ++i) {
        const std::string& assignment = args[i];
        const std::size_t equals = assignment.find('=');
        if (equals == std::string::npos || equals == 0) {
            std::fprintf(stderr, "tavlo encode: '%s' is not NAME=VALUE\n", assignment.c_str());
            return kUsage;
        }
        names.push_back(assignment.substr(0, equals));
        texts.push_back(assignment.substr(equals + 1));
    }
    std::vector<tavlo_dec_setting_t> settings;
    for (std::size_t i = 0; i < names.size(); ++i) {
        settings.push_back({names[i].c_str(), TAVLO_DEC_SET_TEXT, 0, 0, texts[i].c_str()});
    }
    std::vector<unsigned char> frame;
    std::string error;
    const int result = db.decoder.Encode(static_cast<std::size_t>(message), settings, frame, error);
    if (result != TAVLO_DEC_OK) {
        std::fprintf(stderr, "%s: %s\n", path.c_str(), error.c_str());
        if (result != TAVLO_DEC_OUT_OF_RANGE) {
            return kFailed;
        }
    }
    const unsigned int id = db.decoder.Message(static_cast<std::size_t>(message))->id;
    // Frames longer than 8 bytes are FD frames: "##" and a flags digit.
    const char* separator = frame.size() > 8 ? "##0" : "#";
    if ((id & kExtendedFlag) != 0) {
        std::printf("%08X%s", id & ~kExtendedFlag, separator);
    } else {
        std::printf("%03X%s", id, separator);
    }
    for (const unsigned char byte : frame) {
        std::printf("%02X", byte);
    }
    std::printf("\n");
    return result == TAVLO_DEC_OK ? kOk : kFailed;
}

}  // namespace

const Subcommand kEncode{"encode", "DB MESSAGE NAME=VALUE...", "a frame from physical values",
                         &Encode, kEncodeHelp, {}};

}  // namespace tavlo::tool
