// dbfile/tolerance.cpp: how a tolerant read goes on after a faulty
// statement. The fault is reported (as a warning of the session) at the
// statement's first token; what the statement made is released; the rest of
// it is skipped, through its ';' or up to the next line that begins with a
// statement keyword; and the read goes on with the next statement. A strict
// read and TAVLO_READ never come here.
#include <cstring>

#include "dbfile/input.h"
#include "dbfile/parser.h"
#include "dbfile/report.h"
#include "model/model.h"
#include "tavloms/exception.h"
#include "tavloms/lifecycle.h"

namespace tavlo::dbfile {

namespace {

// Rank of the header statements in the order a file must give them.
int HeaderRank(int token) {
    switch (token) {
    case kTokVer: return 1;
    case kTokNewSymbol: return 2;
    case kTokBitsegmentierung: return 3;
    case kTokBusteilnehmer: return 4;
    default: return 0;
    }
}

// A name that looks like a statement keyword another tool knows: capitals
// and '_', ending in '_' ("SG_MUL_VAL_", "BA_DEF_DEF_REL_").
bool LooksLikeKeyword(const char* text) {
    const std::size_t length = std::strlen(text);
    if (length < 2 || text[length - 1] != '_') {
        return false;
    }
    for (const char* p = text; *p != '\0'; ++p) {
        if (!((*p >= 'A' && *p <= 'Z') || *p == '_')) {
            return false;
        }
    }
    return true;
}

}  // namespace

// The place of the statement that begins with the current token.
void Parser::Place() {
    if (session_ != nullptr) {
        const TokenValue& token = CurrentToken();
        session_->SetPlace(token.start, token.line);
    }
}

void Parser::Note(unsigned int code, const char* context) {
    session_->Add(false, code, context);
}

// A reported fault no longer ends the read.
void Parser::Recovered() {
    ClearErrorReported();
}

void Parser::KeepStatement(const unsigned char* start, int line) {
    if (session_ != nullptr) {
        session_->Keep(start, lastEnd_, line);
    }
}

Parser::Mark Parser::MarkLists() const {
    return Mark{nodes_.last(),
                valueTables_.last(),
                sigTypes_.last(),
                envvars_.last(),
                categories_.last(),
                TailOf(lists_.filter->categories),
                TailOf(lists_.filter->nodes)};
}

// Releases what was linked into the database's lists after the mark. A
// failed statement's new nodes are referred to only by what it made itself,
// so they go with it.
void Parser::Rollback(const Mark& mark) {
    filter_t* filter = lists_.filter;
    if (mark.filterCategory != nullptr) {
        model::ReleaseFilterCategories(mark.filterCategory->next);
        mark.filterCategory->next = nullptr;
    } else {
        model::ReleaseFilterCategories(filter->categories);
        filter->categories = nullptr;
    }
    if (mark.filterNode != nullptr) {
        model::ReleaseFilterNodes(mark.filterNode->next);
        mark.filterNode->next = nullptr;
    } else {
        model::ReleaseFilterNodes(filter->nodes);
        filter->nodes = nullptr;
    }
    model::ReleaseValueTables(valueTables_.CutAfter(mark.table));
    model::ReleaseSigTypes(sigTypes_.CutAfter(mark.type));
    model::ReleaseCategories(categories_.CutAfter(mark.category));
    env_var_blk* envvars = envvars_.CutAfter(mark.envvar);
    for (env_var_blk* envvar = envvars; envvar != nullptr; envvar = envvar->next) {
        envvarIndex_.erase(envvar->name);
    }
    model::ReleaseEnvvars(envvars);
    symblk* nodes = nodes_.CutAfter(mark.node);
    for (symblk* node = nodes; node != nullptr; node = node->next) {
        nodeIndex_.erase(node->name);
    }
    model::ReleaseNodes(nodes);
}

// One statement; a fault in it is reported, what it made released and the
// rest of it skipped.
void Parser::StatementTolerantly() {
    Place();
    const TokenValue start = CurrentToken();
    const Mark mark = MarkLists();
    try {
        statement();
        return;
    } catch (const TavloException&) {
    } catch (const ParseStopped&) {
    }
    Recovered();
    Rollback(mark);
    Resync(start.start, false);
}

// One signal line of a message; a faulty one is left out of the message.
void Parser::SignalTolerantly(msgblk* message, Tail<sigblk>* signals, SignalRun* run) {
    Place();
    const TokenValue start = CurrentToken();
    const Mark mark = MarkLists();
    sigblk* const last = signals->last();
    const std::uint32_t count = run->count;
    try {
        sg(message, signals, run);
        return;
    } catch (const TavloException&) {
    } catch (const ParseStopped&) {
    }
    Recovered();
    sigblk* made = signals->CutAfter(last);
    if (made != nullptr) {
        signals_.DropLast();
        run->count = count;
        if (last == nullptr) {
            message->signals = nullptr;
        }
        model::ReleaseSignals(made);
    }
    Rollback(mark);
    Resync(start.start, true);
}

// The header statements where a file gives them late (or twice): read as
// they are, with a warning. False for any other token.
bool Parser::HeaderStatement() {
    const int rank = HeaderRank(tok_);
    if (rank == 0) {
        return false;
    }
    if (rank <= headerRank_) {
        Note(kDiagLateHeader, nullptr);
    }
    switch (tok_) {
    case kTokVer: version(); break;
    case kTokNewSymbol: new_symbols(); break;
    case kTokBitsegmentierung: segm_table(); break;
    default: device_decl(); break;
    }
    headerRank_ = rank;
    return true;
}

// A statement that begins with a name the file did not declare as a new
// symbol ("SG_MUL_VAL_" without "NS_"): kept as text, with a warning.
void Parser::UnknownStatement() {
    const TokenValue start = CurrentToken();
    Note(kDiagUnknownStatement, start.text);
    if (Resync(start.start, false)) {
        KeepStatement(start.start, start.line);
    }
}

bool Parser::StartsStatement(bool signals) const {
    switch (tok_) {
    case kTokUnterbotschaft: return signals;
    case kTokSymbol: return LooksLikeKeyword(CurrentToken().text);
    case kTokValueTable: case kTokBotschaft: case kTokMsgTxNode: case kTokEnvvar:
    case kTokEnvvarData: case kTokSignalType: case kTokSignalTypeValues: case kTokComment:
    case kTokUserDefine: case kTokUserDefineRel: case kTokSignalTypeAttribute:
    case kTokUserDefineDefault: case kTokUserDefineDefaultRel: case kTokUserAttribute:
    case kTokUserAttributeSigtype: case kTokUserAttributeRel: case kTokSignalValues:
    case kTokCategoryDefine: case kTokCategory: case kTokFilter: case kTokSignalTypeRef:
    case kTokSignalGroup: case kTokSignalValtype: case kTokSignalTypeValtype:
    case kTokNewSymbolDesc: case kTokVer: case kTokNewSymbol: case kTokBitsegmentierung:
    case kTokBusteilnehmer:
        return true;
    default: return false;
    }
}

// Whether only blanks stand before the current token on its line.
bool Parser::AtLineStart() const {
    const unsigned char* begin = InputData();
    const unsigned char* p = CurrentToken().start;
    if (begin == nullptr || p == nullptr) {
        return false;
    }
    while (p > begin && (p[-1] == ' ' || p[-1] == '\t')) {
        --p;
    }
    return p == begin || p[-1] == '\n';
}

// Skips the rest of the statement that began at `start`: through its ';'
// (true), or up to a line that begins with a statement keyword ("SG_" too
// with `signals`) or the end of the file (false). What the skipped tokens
// would report has been reported already.
bool Parser::Resync(const unsigned char* start, bool signals) {
    session_->SetQuiet(true);
    bool ended = false;
    while (tok_ != kTokEnd) {
        try {
            if (tok_ == ';') {
                Advance();
                ended = true;
                break;
            }
            if (CurrentToken().start != start && StartsStatement(signals) && AtLineStart()) {
                break;
            }
            Advance();
        } catch (const TavloException&) {  // the scanner has moved past what it reported
            Recovered();
        } catch (const ParseStopped&) {
            Recovered();
        }
    }
    session_->SetQuiet(false);
    return ended;
}

}  // namespace tavlo::dbfile
