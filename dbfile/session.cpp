// dbfile/session.cpp: the read with a session (kept statements, messages as
// diagnostics, tolerance) that TAVLO_READ is the plain case of.
#include "dbfile/session.h"

#include "dbfile/input.h"
#include "dbfile/keywords.h"
#include "dbfile/parser.h"
#include "dbfile/report.h"
#include "dbfile/scanner.h"
#include "model/model.h"
#include "tavloms/exception.h"

namespace tavlo::dbfile {

namespace {

ReadSession* gSession = nullptr;

// Texts of the diagnostics of tolerance; keep in the order of DiagnosticCode.
const char* const kDiagnosticTexts[] = {
    "unknown statement kept",
    "comment without ';' taken as ended",
    "stray ';' between signals ignored",
    "header statement out of place",
};

std::string TextOf(unsigned int code, const char* context) {
    if (code < kDiagUnknownStatement || code > kDiagLateHeader) {
        // A syntax error's text is its context alone.
        return MessageText(code)[0] == '\0' && context != nullptr ? context
                                                                   : ComposeMessage(code, -1, context);
    }
    std::string text = kDiagnosticTexts[code - kDiagUnknownStatement];
    if (context != nullptr && context[0] != '\0') {
        text += ", ";
        text += context;
    }
    return text;
}

// Sets the session for the time of one read.
class SessionScope {
public:
    explicit SessionScope(ReadSession* session) {
        gSession = session;
        HoldInput(session != nullptr);
    }
    ~SessionScope() {
        HoldInput(false);
        CloseInput();
        gSession = nullptr;
    }
    SessionScope(const SessionScope&) = delete;
    SessionScope& operator=(const SessionScope&) = delete;
};

// The body of the read; a strict session's read error comes as a
// TavloException, as from TAVLO_READ.
unsigned int Read(const char* file, const Lists& lists, ReadSession* session) {
    FreeNewSymbols();  // left behind by a read that ended by an error
    if (*lists.version == nullptr) {
        *lists.version = model::DuplicateText("");
    }
    ClearErrorReported();
    if (file == nullptr) {
        return 0;
    }
    if (!OpenInput(file)) {
        ReportReadError(kMsgNotFound, -1, file);
        return kMsgNotFound;
    }
    StartScanner();
    unsigned int result = 0;
    try {
        const model::CarvedBlocks carving;  // the records and texts the read makes
        Parser parser(lists, session);
        parser.Run();
    } catch (const ParseStopped& stopped) {
        if (!stopped.warning) {
            ReportReadError(kMsgIllegalSegmentation, CurrentLine(), nullptr);
        }
        result = kMsgFormatError;
    }
    CloseInput();
    FreeNewSymbols();
    return result;
}

}  // namespace

void ReadSession::Keep(const unsigned char* from, const unsigned char* to, int line) {
    if (from == nullptr || to == nullptr || to <= from) {
        return;
    }
    std::string text(reinterpret_cast<const char*>(from), static_cast<std::size_t>(to - from));
    if (InputHadCarriageReturns()) {  // line ends as the file has them
        std::string crlf;
        for (const char c : text) {
            if (c == '\n') {
                crlf += '\r';
            }
            crlf += c;
        }
        text.swap(crlf);
    }
    kept_.push_back(KeptText{std::move(text), static_cast<unsigned int>(line + 1)});
}

void ReadSession::Add(bool error, unsigned int code, const char* context) {
    if (quiet_) {
        return;
    }
    Diagnostic diagnostic{error && !tolerant_, 0, 0, code, TextOf(code, context)};
    const unsigned char* begin = InputData();
    const unsigned char* end = begin + InputSize();
    if (placeLine_ >= 0 && place_ != nullptr && begin != nullptr && place_ >= begin &&
        place_ <= end) {
        const unsigned char* lineStart = place_;
        while (lineStart > begin && lineStart[-1] != '\n') {
            --lineStart;
        }
        diagnostic.line = static_cast<unsigned int>(placeLine_ + 1);
        diagnostic.column = static_cast<unsigned int>(place_ - lineStart + 1);
    }
    diagnostics_.push_back(std::move(diagnostic));
}

ReadSession* CurrentSession() {
    return gSession;
}

std::mutex& ReadMutex() {
    static std::mutex mutex;
    return mutex;
}

unsigned int ReadWith(const char* file, const Lists& lists, ReadSession* session) {
    std::lock_guard<std::mutex> lock(ReadMutex());
    SessionScope scope(session);
    if (session == nullptr) {
        return Read(file, lists, nullptr);
    }
    unsigned int result = 0;
    try {
        result = Read(file, lists, session);
    } catch (const TavloException&) {
        result = kMsgFormatError;
    }
    // The warnings that end a read end a strict load: they are its error.
    if (result == kMsgFormatError && !session->tolerant()) {
        bool error = false;
        for (const Diagnostic& diagnostic : session->diagnostics()) {
            error = error || diagnostic.error;
        }
        if (!error && !session->diagnostics().empty()) {
            session->diagnostics().back().error = true;
        }
    }
    return result;
}

}  // namespace tavlo::dbfile
