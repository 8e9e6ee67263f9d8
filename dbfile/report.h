// dbfile/report.h: the module's messages and how they reach the user.
//
// Every message is composed from a numbered text, an optional line and an
// optional context into one module-wide buffer, then shown in a message box.
// An error additionally ends the read under way by throwing TavloException;
// within one read only the first error is reported. The reader and record
// creation report through here; nothing else shows read errors.
#ifndef TAVLOMS_DBFILE_REPORT_H
#define TAVLOMS_DBFILE_REPORT_H

namespace tavlo::dbfile {

// Message codes; keep in the order of kMessageTexts in report.cpp.
enum MessageCode : unsigned int {
    kMsgNone = 0,
    kMsgSyntax = 1,  // empty text: a syntax error's text comes as context
    kMsgError = 2,
    kMsgFatalError = 3,
    kMsgMdfError = 4,
    kMsgMdfFatalError = 5,
    kMsgCmdHelp = 6,
    kMsgCmdIllegalOption = 7,
    kMsgCmdSameFiles = 8,
    kMsgCmdFileMissing = 9,
    kMsgCmdParameterMissing = 10,
    kMsgIllegalMode = 11,
    kMsgIllegalSegmentation = 12,
    kMsgCouldNotWrite = 13,  // TAVLO_FILE_NOT_WRITTEN
    kMsgSyntaxError = 14,
    kMsgFormatError = 15,    // TAVLO_FILE_STOPPED
    kMsgNotFound = 16,       // TAVLO_FILE_NOT_FOUND
    kMsgConvertedFormatError = 17,
    kMsgCouldNotConvert = 18,
    kMsgDuplicateSymbol = 19,
    kMsgUnknownSymbol = 20,
    kMsgUndefinedAttribute = 21,
    kMsgNotALogFile = 22,
    kMsgLogFileNotFound = 23,
    kMsgNotEnoughMemory = 24,
    kMsgEnvvarTypeNotAllowed = 25,
    kMsgNewSymbolNotSupported = 26,
    kMsgInvalidCharInSymbol = 27,
    kMsgUnknownCategory = 28,
    kMsgUnknownDataEnvvar = 29,
};

// Size of the message buffer, terminating zero included.
constexpr int kMessageBufferSize = 1000;

// The text of a code as it stands in the table; "Unknown error" for any code
// the table does not hold.
const char* MessageText(unsigned int code);

// Composes "<text>[, line <line>][, <context>]" into the module-wide buffer
// and returns it; valid until the next message. A line of 0 or below and a
// null or empty context are left out.
const char* ComposeMessage(unsigned int code, int line, const char* context);

// Shows the composed message (no owner, no caption, stop icon) and returns.
void ShowWarning(unsigned int code, int line, const char* context);

// Shows the composed message, records that an error was reported in this
// read, and throws TavloException with mCode 1.
[[noreturn]] void RaiseError(unsigned int code, int line, const char* context);

// RaiseError, unless an error has already been reported in this read; then
// it returns without showing anything.
void ReportReadError(unsigned int code, int line, const char* context);

// Whether an error has been reported since the last ClearErrorReported; the
// reading entry clears it at the start of every read.
bool ErrorReported();
void ClearErrorReported();

}  // namespace tavlo::dbfile

#endif  // TAVLOMS_DBFILE_REPORT_H
