// dbfile/report.cpp: the message table and the reporting operations.
#include "dbfile/report.h"

#include <cstdarg>
#include <cstdio>

#include "dbfile/input.h"
#include "dbfile/session.h"
#include "model/model.h"
#include "platform/platform.h"
#include "tavloms/exception.h"
#include "tavloms/platform.h"

namespace tavlo::dbfile {

namespace {

// Indexed by MessageCode; keep in step with it. The texts are kept exactly as
// the module has always shown them: leading blanks, spellings, German texts
// and the doubled blank of code 10 included.
const char* const kMessageTexts[] = {
    "",
    "",
    "error ",
    "fatal error ",
    "mdf error ",
    "mdf fatal error ",
    "commandline: use option -h for help",
    "commandline: illegal option -",
    "commandline: outputfile must be different to inputfile",
    "commandline: filename missing",
    "commandline: parameter for  missing\n",
    "database: illegal mode",
    "database: illegal segmentation description",
    "database: could not write",
    "database: syntaxerror",
    "database: formaterror",
    "database: not found",
    "database: formaterror in converted file",
    "database: could not generate converted file",
    "!=Datenbasis: doppelte Definition von Symbol ignoriert",
    "!=Datenbasis: unbekanntes Symbol neu definiert",
    "undefined attribute",
    "logfile: is not a log-file",
    "logfile: not found",
    "not enough memory",
    "type of environment variable not allowed",
    "new symbol not supported",
    "database: invalid char in symbol",
    "unknoen category",
    "Database: unknown environment variable of type data, type ignored",
};

constexpr unsigned int kMessageCount = sizeof(kMessageTexts) / sizeof(kMessageTexts[0]);
static_assert(kMessageCount == kMsgUnknownDataEnvvar + 1, "message table out of step");

char gMessage[kMessageBufferSize];
bool gErrorReported = false;

// Record creation that runs out of memory reports here, as a read error.
void CreationFailedInRead() {
    CloseInput();
    ReportReadError(kMsgNotEnoughMemory, -1, nullptr);
}

void CreationFailed() {
    RaiseError(kMsgNotEnoughMemory, -1, nullptr);
}

[[maybe_unused]] const bool gCreationReported =
    (model::SetCreationFailure({&CreationFailedInRead, &CreationFailed}), true);

// Appends to the message buffer, cutting what does not fit.
void Append(int& used, const char* format, ...) {
    if (used >= kMessageBufferSize - 1) {
        return;
    }
    const int room = kMessageBufferSize - used;
    std::va_list args;
    va_start(args, format);
    const int written = std::vsnprintf(gMessage + used, room, format, args);
    va_end(args);
    if (written > 0) {
        used += written < room ? written : room - 1;
    }
}

}  // namespace

const char* MessageText(unsigned int code) {
    return code < kMessageCount ? kMessageTexts[code] : "Unknown error";
}

const char* ComposeMessage(unsigned int code, int line, const char* context) {
    int used = 0;
    gMessage[0] = '\0';
    Append(used, "%s", MessageText(code));
    if (line > 0) {
        Append(used, ", line %d", line);
    }
    if (context != nullptr && context[0] != '\0') {
        Append(used, ", %s", context);
    }
    return gMessage;
}

namespace {

// A read with a session that captures its messages takes them as
// diagnostics; every other message is shown.
void Show(bool error, unsigned int code, int line, const char* context) {
    ReadSession* session = CurrentSession();
    if (session != nullptr && session->capture()) {
        session->Add(error, code, context);
        return;
    }
    platform::ShowMessageBox(ComposeMessage(code, line, context), nullptr, MB_ICONHAND);
}

}  // namespace

void ShowWarning(unsigned int code, int line, const char* context) {
    Show(false, code, line, context);
}

void RaiseError(unsigned int code, int line, const char* context) {
    Show(true, code, line, context);
    gErrorReported = true;
    throw TavloException(1);
}

void ReportReadError(unsigned int code, int line, const char* context) {
    if (gErrorReported) {
        return;
    }
    RaiseError(code, line, context);
}

bool ErrorReported() {
    return gErrorReported;
}

void ClearErrorReported() {
    gErrorReported = false;
}

}  // namespace tavlo::dbfile
