// dbfile/reader.cpp: TAVLO_READ and the recursive-descent parser that turns
// the scanner's tokens into records.
//
// Each parse function carries its grammar rule. The header statements
// (VERSION, NS_, BS_, BU_) come first, in this order, each optional; every
// other statement may follow in any order, provided that what it names was
// defined before it. Records are linked into the caller's lists as soon as
// they are made, so a read that ends by an error leaves everything linked up
// to that point and nothing unlinked. Names are looked up through hash
// indexes built while reading, so big files read in linear time.
#include <cstring>
#include <string>
#include <type_traits>

#include "dbfile/input.h"
#include "dbfile/parser.h"
#include "dbfile/report.h"
#include "model/model.h"
#include "tavloms/dbfile.h"
#include "tavloms/exception.h"
#include "tavloms/lifecycle.h"

namespace tavlo::dbfile {

namespace {

// Context of an unknown message in "BO_TX_BU_"; the placeholder is never
// filled in, a misprint that is kept.
constexpr const char* kUnknownTxMessage = "Msg &lu";

constexpr unsigned int kAccessNodeBit = 0x2;  // set by every access node

}  // namespace

Parser::Parser(const Lists& lists, ReadSession* session)
    : lists_(lists), session_(session), tolerant_(session != nullptr && session->tolerant()) {
    nodes_.Reset(lists.nodes);
    messages_.Reset(lists.messages);
    envvars_.Reset(lists.envvars);
    bitTimings_.Reset(lists.bitTimings);
    valueTables_.Reset(lists.valueTables);
    sigTypes_.Reset(lists.sigTypes);
    categories_.Reset(lists.categories);
    for (symblk* node = *lists.nodes; node != nullptr; node = node->next) {
        nodeIndex_.emplace(node->name, node);
    }
    for (msgblk* message = *lists.messages; message != nullptr; message = message->next) {
        MessageIndex::Entry* entry = messageIndex_.Add(message, signals_.size());
        for (sigblk* signal = message->signals; signal != nullptr; signal = signal->next) {
            signals_.Add(signal);
            ++entry->signals.count;
        }
    }
    for (env_var_blk* envvar = *lists.envvars; envvar != nullptr; envvar = envvar->next) {
        envvarIndex_.emplace(envvar->name, envvar);
    }
    for (attr_def* def = *lists.attrDefs; def != nullptr; def = def->next) {
        attrDefIndex_.emplace(def->name, def);
    }
    for (int row = kNewSymbolRow + 1; row < kKeywordCount; ++row) {
        newSymbolKeyword_[kKeywords[row].token] = true;
    }
}

// ---------------------------------------------------------------------------
// Tokens

bool Parser::Accept(int token) {
    if (tok_ != token) {
        return false;
    }
    Advance();
    return true;
}

void Parser::Expect(int token) {
    if (tok_ != token) {
        SyntaxError();
    }
    Advance();
}

void Parser::SyntaxError() {
    ReportSyntaxError("error: syntax");
    throw ParseStopped{false};
}

void Parser::Fail(unsigned int code, int line, const char* context) {
    CloseInput();
    ReportReadError(code, line, context);
    throw ParseStopped{false};
}

// The two warnings that end a read: the input is closed and the read
// returns 15 without raising.
void Parser::StopWithWarning(unsigned int code, const Name& name) {
    CloseInput();
    ShowWarning(code, name.line, name.text);
    throw ParseStopped{true};
}

void Parser::ExpectName(Name* name) {
    if (tok_ != kTokSymbol) {
        SyntaxError();
    }
    // A name token holds name characters only, no zero: cut, not searched.
    const TokenValue& token = CurrentToken();
    NameOf(token.text, token.length, token.line, name);
    Advance();
}

std::uint64_t Parser::ExpectUnsigned(std::uint64_t maximum, int* line) {
    const TokenValue& token = CurrentToken();
    if ((tok_ != kTokInteger && tok_ != kTokLong) || token.huge || token.integer > maximum) {
        SyntaxError();
    }
    const std::uint64_t value = token.integer;
    if (line != nullptr) {
        *line = token.line;
    }
    Advance();
    return value;
}

bool Parser::IsNumberStart() const {
    return tok_ == kTokInteger || tok_ == kTokLong || tok_ == kTokFloat || tok_ == '-' ||
           tok_ == '+';
}

// signed_float -> ['-' | '+'] (INTEGER | LONG | FLOAT)
double Parser::SignedNumber() {
    const bool negative = tok_ == '-';
    if (negative || tok_ == '+') {
        Advance();
    }
    if (tok_ != kTokInteger && tok_ != kTokLong && tok_ != kTokFloat) {
        SyntaxError();
    }
    const double value = CurrentToken().number;
    Advance();
    return negative ? -value : value;
}

// sign -> ['-' | '+'] (INTEGER | LONG), within 64 bits
long long Parser::SignedInteger() {
    const bool negative = tok_ == '-';
    if (negative || tok_ == '+') {
        Advance();
    }
    const std::uint64_t value = ExpectUnsigned(UINT64_MAX);
    return negative ? -static_cast<long long>(value) : static_cast<long long>(value);
}

void Parser::ExpectString(std::string* text) {
    if (tok_ != kTokString) {
        SyntaxError();
    }
    const TokenValue& token = CurrentToken();
    text->assign(token.text, token.length);
    Advance();
}

// The current string token as a new text of the caller's. The token stays
// current: the caller links the text in before it reads on, so that an
// error in what follows cannot lose it.
char* Parser::TakeText() {
    if (tok_ != kTokString) {
        SyntaxError();
    }
    const TokenValue& token = CurrentToken();
    return NewText(token.text, token.length);
}

// A text of `length` bytes as a new text of the caller's.
char* Parser::NewText(const char* text, std::size_t length) {
    char* copy = static_cast<char*>(TAVLO_MALLOC(length + 1));
    if (copy == nullptr) {
        Fail(kMsgNotEnoughMemory, -1, nullptr);
    }
    std::memcpy(copy, text, length);
    copy[length] = '\0';
    return copy;
}

// Drops the tokens of a statement up to and including its ";".
void Parser::SkipStatement() {
    while (tok_ != ';') {
        if (tok_ == kTokEnd || tok_ == kTokError) {
            SyntaxError();
        }
        Advance();
    }
    Advance();
}

// ---------------------------------------------------------------------------
// Objects by name or number

// A relation entry (receiver, transmitter, access node) for a node; null for
// "Corvan__XXX".
rxblk* Parser::NewRelation(const Name& name, rxblk* (*create)(symblk*)) {
    symblk* node = NodeRef(name);
    if (node == nullptr) {
        return nullptr;
    }
    rxblk* entry = create(node);
    if (entry == nullptr) {
        throw ParseStopped{false};
    }
    return entry;
}

// A node by name; a name no "BU_" line declared becomes a new node at the
// end of the list. "Corvan__XXX" is no node.
symblk* Parser::NodeRef(const Name& name) {
    if (name.text[0] == kNoNode[0] && name.Is(kNoNode)) {
        return nullptr;
    }
    const auto found = nodeIndex_.find(name.view());
    if (found != nodeIndex_.end()) {
        return found->second;
    }
    symblk* node = TAVLO_CREATE_SYMBOL();
    if (node == nullptr) {
        throw ParseStopped{false};
    }
    model::CopyName(node->name, name.text);
    nodes_.Append(node);
    nodeIndex_.emplace(node->name, node);
    return node;
}

// Statements about one message tend to follow each other, so the last one
// found is tried first (by the identifier in its index entry: the record
// itself has mostly left the cache by then).
msgblk* Parser::MessageRef(std::uint32_t id, int line) {
    const MessageIndex::Entry* entry = messageIndex_.At(lastEntry_);
    if (entry != nullptr && entry->id == id) {
        return entry->message;
    }
    entry = messageIndex_.FindAfter(id, &lastEntry_);
    if (entry == nullptr) {
        Fail(kMsgUnknownSymbol, line, std::to_string(id).c_str());
    }
    // Statements name messages mostly in the order they were read: the next
    // message's fields that statements set are fetched for the one to come.
    if (const MessageIndex::Entry* next = messageIndex_.At(lastEntry_ + 1)) {
        Touch(&next->message->comment);
    }
    return entry->message;
}

// id -> INTEGER | LONG, within 32 bits
std::uint32_t Parser::ExpectId(int* line) {
    return static_cast<std::uint32_t>(ExpectUnsigned(0xFFFFFFFFu, line));
}

// The message an identifier names.
msgblk* Parser::ExpectMessage() {
    int line;
    const std::uint32_t id = ExpectId(&line);
    return MessageRef(id, line);
}

// A node an object is named by: "Corvan__XXX" does not name one here.
symblk* Parser::ExpectNode() {
    Name name;
    ExpectName(&name);
    symblk* node = NodeRef(name);
    if (node == nullptr) {
        SyntaxError();
    }
    return node;
}

// An attribute name: a string, cut to 32 characters, tabs read as blanks.
void Parser::ExpectAttributeName(Name* name) {
    if (tok_ != kTokString) {
        SyntaxError();
    }
    model::CopyName(name->text, CurrentToken().text);
    BlanksForTabs(name->text);
    name->length = std::strlen(name->text);
    name->line = CurrentToken().line;
    Advance();
}

// Callers name the message first, so its signals are those of the message
// named last.
sigblk* Parser::SignalRef(msgblk* message, const Name& name) {
    const MessageIndex::Entry* last = messageIndex_.At(lastEntry_);
    if (last == nullptr || last->message != message) {
        MessageRef(message->id, name.line);
        last = messageIndex_.At(lastEntry_);
    }
    sigblk* signal = signals_.Find(last->signals, name.text);
    if (signal == nullptr) {
        Fail(kMsgUnknownSymbol, name.line, name.text);
    }
    return signal;
}

env_var_blk* Parser::EnvvarRef(const Name& name) {
    const auto found = envvarIndex_.find(name.view());
    if (found == envvarIndex_.end()) {
        Fail(kMsgUnknownSymbol, name.line, name.text);
    }
    return found->second;
}

sigtype* Parser::SigtypeRef(const Name& name) {
    for (::sigtype* type = *lists_.sigTypes; type != nullptr; type = type->next) {
        if (SameName(type->name, name.text)) {
            return type;
        }
    }
    Fail(kMsgUnknownSymbol, name.line, name.text);
}

valtable* Parser::ValtableRef(const Name& name) {
    for (::valtable* table = *lists_.valueTables; table != nullptr; table = table->next) {
        if (SameName(table->name, name.text)) {
            return table;
        }
    }
    Fail(kMsgUnknownSymbol, name.line, name.text);
}

// The definition of an attribute; `code` is reported when there is none.
attr_def* Parser::AttrDefRef(const Name& name, unsigned int code) {
    const auto found = attrDefIndex_.find(name.view());
    if (found == attrDefIndex_.end()) {
        Fail(code, name.line, name.text);
    }
    return found->second;
}

// A category by number; with `noneForZero`, 0 names the NONE category
// (null) unless a category 0 is defined.
cat* Parser::CategoryRef(long long number, int line, bool noneForZero) {
    for (cat* category = *lists_.categories; category != nullptr; category = category->next) {
        if (category->number == number) {
            return category;
        }
    }
    if (noneForZero && number == 0) {
        return nullptr;
    }
    Fail(kMsgUnknownCategory, line, nullptr);
}

// ---------------------------------------------------------------------------
// start -> [version] [new_symbols] [segm_table] [device_decl] statement*

void Parser::Run() {
    Advance();
    if (tolerant_) {  // the header statements are statements like the others
        while (tok_ != kTokEnd) {
            DiscardInputBefore(CurrentToken().start);
            StatementTolerantly();
        }
        return;
    }
    Place();
    version();
    Place();
    new_symbols();
    Place();
    segm_table();
    Place();
    device_decl();
    while (tok_ != kTokEnd) {
        DiscardInputBefore(CurrentToken().start);
        Place();
        statement();
    }
}

// version -> VERSION STRING
void Parser::version() {
    if (!Accept(kTokVer)) {
        return;
    }
    ReplaceText(lists_.version);
}

// new_symbols -> NS_ ':' new_symbol_list
// new_symbol_list -> (SYMBOL | keyword after "NS_")*
void Parser::new_symbols() {
    if (!Accept(kTokNewSymbol)) {
        return;
    }
    Expect(':');
    for (;;) {
        if (tok_ == kTokSymbol) {
            if (!DeclareNewSymbol(CurrentToken().text)) {
                Fail(kMsgNotEnoughMemory, -1, nullptr);
            }
        } else if (tok_ < 0 || tok_ > kTokUminus || !newSymbolKeyword_[tok_]) {
            break;
        }
        Advance();
    }
    Accept(';');
}

// segm_table -> BS_ ':' btl_list
// btl -> baudrate ':' btr1 ',' btr2
void Parser::segm_table() {
    if (!Accept(kTokBitsegmentierung)) {
        return;
    }
    Expect(':');
    while (tok_ == kTokInteger || tok_ == kTokLong) {
        const auto baudrate = static_cast<unsigned short>(ExpectUnsigned(0xFFFF));
        Expect(':');
        const auto btr1 = static_cast<unsigned char>(ExpectUnsigned(0xFF));
        Expect(',');
        const auto btr2 = static_cast<unsigned char>(ExpectUnsigned(0xFF));
        btlblk* timing = TAVLO_CREATE_BTLBLK();
        if (timing == nullptr) {
            throw ParseStopped{false};
        }
        timing->baudrate = baudrate;
        timing->btr1 = btr1;
        timing->btr2 = btr2;
        bitTimings_.Append(timing);
    }
    Accept(';');
}

// device_decl -> BU_ ':' sym_list
// A name listed twice is kept once; "Corvan__XXX" declares nothing.
void Parser::device_decl() {
    if (!Accept(kTokBusteilnehmer)) {
        return;
    }
    Expect(':');
    while (tok_ == kTokSymbol) {
        Name name;
        ExpectName(&name);
        NodeRef(name);
    }
    Accept(';');
}

void Parser::statement() {
    switch (tok_) {
    case ';':
        Advance();
        break;
    case kTokValueTable: value_table(); break;
    case kTokBotschaft: msg(); break;
    case kTokMsgTxNode: msg_tx_node(); break;
    case kTokEnvvar: env_var(); break;
    case kTokEnvvarData: env_data(); break;
    case kTokSignalType: signal_type(); break;
    case kTokSignalTypeValues: sigtype_values(); break;
    case kTokComment: comment(); break;
    case kTokUserDefine:
    case kTokUserDefineRel: user_define(tok_); break;
    case kTokSignalTypeAttribute: sigtype_attr(); break;
    case kTokUserDefineDefault:
    case kTokUserDefineDefaultRel: user_define_default(); break;
    case kTokUserAttribute: user_attribute(); break;
    case kTokUserAttributeSigtype: user_attribute_sigtype(); break;
    case kTokUserAttributeRel: user_attribute_rel(); break;
    case kTokSignalValues: sig_values(); break;
    case kTokCategoryDefine: category_def(); break;
    case kTokCategory: category(); break;
    case kTokFilter: filter(); break;
    case kTokSignalTypeRef: signal_type_ref(); break;
    case kTokSignalGroup: signal_group(); break;
    case kTokSignalValtype: signal_valtype(); break;
    case kTokSignalTypeValtype: signaltype_valtype(); break;
    case kTokNewSymbolDesc: {
        const TokenValue start = CurrentToken();
        Advance();
        SkipStatement();
        KeepStatement(start.start, start.line);
        break;
    }
    default:
        if (tolerant_ && HeaderStatement()) {
            return;
        }
        if (tolerant_ && tok_ == kTokSymbol) {
            UnknownStatement();
            break;
        }
        SyntaxError();
    }
    headerRank_ = 5;
}

// valtable -> VAL_TABLE_ name (value STRING)* ';'
void Parser::value_table() {
    Advance();
    Name name;
    ExpectName(&name);
    for (::valtable* table = *lists_.valueTables; table != nullptr; table = table->next) {
        if (SameName(table->name, name.text)) {
            Fail(kMsgDuplicateSymbol, name.line, name.text);
        }
    }
    ::valtable* table = TAVLO_CREATE_VALTABLE();
    model::CopyName(table->name, name.text);
    valueTables_.Append(table);
    table->value_descriptions = value_descriptions();
}

// (value STRING)* ';' as a list of value descriptions, linked as read.
val* Parser::value_descriptions() {
    val* head = nullptr;
    val* last = nullptr;
    try {
        while (!Accept(';')) {
            const long long number = SignedInteger();
            if (tok_ != kTokString) {
                SyntaxError();
            }
            const TokenValue& token = CurrentToken();
            AddValueDescription(&head, &last, number, token.text, token.length);
            Advance();
        }
    } catch (...) {
        model::ReleaseValueDescriptions(head);
        throw;
    }
    return head;
}

// A value description entry linked after `*last` (the first sets `*head`).
void Parser::AddValueDescription(val** head, val** last, long long number, const char* text,
                                 std::size_t length) {
    val* entry = New<val>();
    entry->value = static_cast<int>(static_cast<std::uint32_t>(number));
    CopyNameOf(entry->text, text, length);
    Link(last, entry, [head](val* first) { *head = first; });
}

// The value descriptions of a signal of `message` read in one go (see
// ScanValueDescriptions), the signal's name the current token; false, and
// nothing read, when they are not plain. In the order of the token by token
// reading: the checks and faults are the same.
bool Parser::PlainValueDescriptions(msgblk* message) {
    ValueDescription values[kPlainValues];
    std::size_t count = 0;
    if (!ScanValueDescriptions(values, kPlainValues, &count)) {
        return false;
    }
    const TokenValue& token = CurrentToken();
    Name name;
    NameOf(token.text, token.length, token.line, &name);
    sigblk* signal = SignalRef(message, name);
    model::ReleaseValueDescriptions(signal->value_descriptions);
    signal->value_descriptions = nullptr;
    val* head = nullptr;
    val* last = nullptr;
    try {
        for (std::size_t i = 0; i < count; ++i) {
            const ValueDescription& value = values[i];
            const auto magnitude = static_cast<long long>(value.magnitude);
            AddValueDescription(&head, &last, value.negative ? -magnitude : magnitude,
                                value.text.text, value.text.length);
        }
    } catch (...) {
        model::ReleaseValueDescriptions(head);
        throw;
    }
    signal->value_descriptions = head;
    Advance();
    return true;
}

// msg -> BO_ id name ':' dlc transmitter signal_list
void Parser::msg() {
    // The plain form is read in one go (a strict read only, as for signals).
    MessageHead plain;
    std::uint32_t id;
    Name name;
    unsigned short dlc;
    Name transmitter;
    if (!tolerant_ && ScanMessageHead(&plain)) {
        const int line = CurrentLine();
        id = plain.id;
        NameOf(plain.name.text, plain.name.length, line, &name);
        dlc = static_cast<unsigned short>(plain.dlc);
        NameOf(plain.transmitter.text, plain.transmitter.length, line, &transmitter);
        Advance();
    } else {
        Advance();
        id = ExpectId(nullptr);
        ExpectName(&name);
        Expect(':');
        dlc = static_cast<unsigned short>(ExpectUnsigned(0xFFFF));
        ExpectName(&transmitter);
    }
    if (messageIndex_.Find(id) != nullptr) {
        Fail(kMsgDuplicateSymbol, name.line, name.text);
    }
    symblk* node = NodeRef(transmitter);
    msgblk* message = TAVLO_CREATE_MSGBLK();
    if (message == nullptr) {
        throw ParseStopped{false};
    }
    message->id = id;
    std::memcpy(message->name, name.text, name.length + 1);
    message->dlc = dlc;
    message->transmitter = node;
    message->signal_count = 0;
    messages_.Append(message);
    messageIndex_.Add(message, signals_.size());
    Tail<sigblk> signals;
    sigblk* head = nullptr;
    signals.Reset(&head);
    SignalRun run{signals_.size(), 0};
    for (;;) {
        if (tok_ == ';' && tolerant_) {  // a ';' the signal before should not have
            Place();
            Advance();
            if (tok_ != kTokUnterbotschaft) {
                break;
            }
            Note(kDiagStraySemicolon, nullptr);
        }
        if (tok_ != kTokUnterbotschaft) {
            break;
        }
        if (tolerant_) {
            SignalTolerantly(message, &signals, &run);
        } else {
            Place();
            sg(message, &signals, &run);
        }
        message->signal_count = static_cast<unsigned short>(run.count);
    }
    messageIndex_.Last().signals = run;  // no message is added while its signals are read
    lastEntry_ = messageIndex_.size() - 1;
}

// sg -> SG_ name [mode] ':' start '|' length '@' order sign
//       '(' factor ',' offset ')' '[' minimum '|' maximum ']' unit rx_list
void Parser::sg(msgblk* message, Tail<sigblk>* signals, SignalRun* run) {
    // The plain form is read in one go up to the unit (a strict read only:
    // a tolerant one also takes forms the plain reading refuses).
    SignalHead head;
    const bool plain = !tolerant_ && ScanSignalHead(&head);
    Name name;
    if (plain) {
        NameOf(head.name.text, head.name.length, CurrentLine(), &name);
    } else {
        Advance();
        ExpectName(&name);
    }
    const std::uint32_t hash = SignalTable::Hash(name.text, name.length);
    if (signals_.Find(*run, name.text, hash) != nullptr) {
        Fail(kMsgDuplicateSymbol, name.line, name.text);
    }
    sigblk* signal = TAVLO_CREATE_SIGBLK();
    if (signal == nullptr) {
        throw ParseStopped{false};
    }
    std::memcpy(signal->name, name.text, name.length + 1);
    signals->Append(signal);
    signals_.Add(signal, hash);
    ++run->count;
    if (message->signals == nullptr) {
        message->signals = signal;
    }
    // rx_list -> [rx_symbol (',' rx_symbol)*]
    rxblk* last = nullptr;
    std::size_t taken = 0;  // receivers read in one go
    if (plain) {
        if (head.mode.text != nullptr) {
            Name text;
            NameOf(head.mode.text, head.mode.length, name.line, &text);
            mode(text, signal);
        }
        SetLayout(head.layout, signal);
        // The receivers on the line in one go too, then any more after a ','.
        PlainText nodes[kPlainReceivers];
        taken = ScanReceivers(nodes, kPlainReceivers);
        for (std::size_t i = 0; i < taken; ++i) {
            Name node;
            NameOf(nodes[i].text, nodes[i].length, name.line, &node);
            AddReceiver(signal, node, &last);
        }
        Advance();
    } else {
        SignalRest(signal);
    }
    // The rest token by token: the first, unless some were read, then any
    // after a ','.
    if (taken == 0 && tok_ != kTokSymbol) {
        return;
    }
    for (bool more = taken == 0; more || Accept(','); more = false) {
        Name node;
        ExpectName(&node);
        AddReceiver(signal, node, &last);
    }
}

// Links a signal's receiver of a name after `*last` ("Corvan__XXX" is
// none).
void Parser::AddReceiver(sigblk* signal, const Name& name, rxblk** last) {
    rxblk* entry = NewRelation(name, &TAVLO_CREATE_RX);
    if (entry == nullptr) {
        return;
    }
    Link(last, entry, [signal](rxblk* first) { signal->receivers = first; });
    ++signal->receiver_count;
}

// A signal line after its name, up to its receivers, read token by token:
// [mode] ':' layout.
void Parser::SignalRest(sigblk* signal) {
    if (tok_ == kTokSymbol) {
        Name text;
        ExpectName(&text);
        if (!tolerant_) {
            mode(text, signal);
        } else {  // a form not known here: the signal is read as a plain one
            try {
                mode(text, signal);
            } catch (const TavloException&) {
                Recovered();
            }
            while (tok_ == kTokSymbol) {
                Note(kMsgIllegalMode, CurrentToken().text);
                Advance();
            }
        }
    }
    if (tok_ != ':') {
        SyntaxError();
    }
    SignalLayout layout;
    if (ScanSignalLayout(&layout)) {  // the plain form, read at once
        SetLayout(layout, signal);
        Advance();
    } else {
        Advance();
        signal->start_bit = static_cast<unsigned short>(ExpectUnsigned(0xFFFF));
        Expect('|');
        signal->length = static_cast<unsigned short>(ExpectUnsigned(0xFFFF));
        Expect('@');
        signal->flags = static_cast<unsigned char>(signal->flags | ByteOrderAndSign());
        Scaling(signal);
    }
}

// A name of the file, not terminated, as ExpectName would have made it of a
// symbol token there: cut to 32 characters.
void Parser::NameOf(const char* text, std::size_t length, int line, Name* name) {
    if (length > TAVLO_NAME_SIZE - 1) {
        length = TAVLO_NAME_SIZE - 1;
    }
    std::memcpy(name->text, text, TAVLO_NAME_SIZE - 1);  // readable: see the declaration
    name->text[length] = '\0';
    name->length = length;
    name->line = line;
}

// A signal's layout read in its plain form.
void Parser::SetLayout(const SignalLayout& layout, sigblk* signal) {
    signal->start_bit = static_cast<unsigned short>(layout.startBit);
    signal->length = static_cast<unsigned short>(layout.length);
    unsigned char flags = signal->flags;
    if (layout.order == 0) {
        flags |= TAVLO_SIG_MOTOROLA;
    }
    if (layout.isSigned) {
        flags |= TAVLO_SIG_SIGNED;
    }
    signal->flags = flags;
    signal->factor = layout.factor;
    signal->offset = layout.offset;
    signal->minimum = layout.minimum;
    signal->maximum = layout.maximum;
    CopyNameOf(signal->unit, layout.unit, layout.unitLength);
}

// order -> 0 (Motorola) | 1 (Intel); sign -> '+' | '-' (signed)
unsigned char Parser::ByteOrderAndSign() {
    unsigned char flags = ExpectUnsigned(1) == 0 ? TAVLO_SIG_MOTOROLA : 0;
    if (tok_ == '-') {
        flags |= TAVLO_SIG_SIGNED;
    } else if (tok_ != '+') {
        SyntaxError();
    }
    Advance();
    return flags;
}

// form -> '(' factor ',' offset ')'; minmax -> '[' minimum '|' maximum ']';
// unit -> STRING
template <class T>
void Parser::Scaling(T* record) {
    Expect('(');
    record->factor = SignedNumber();
    Expect(',');
    record->offset = SignedNumber();
    Expect(')');
    Expect('[');
    record->minimum = SignedNumber();
    Expect('|');
    record->maximum = SignedNumber();
    Expect(']');
    if (tok_ != kTokString) {
        SyntaxError();
    }
    model::CopyName(record->unit, CurrentToken().text);
    Advance();
}

// mode -> 'M' | 'm' value | 'm' value 'M'
void Parser::mode(const Name& text, sigblk* signal) {
    const char* p = text.text;
    unsigned char flags = signal->flags;
    if (std::strcmp(p, "M") == 0) {
        signal->flags = flags | TAVLO_SIG_MODE;
        return;
    }
    if (*p == 'm' && p[1] >= '0' && p[1] <= '9') {
        std::uint64_t value = 0;
        for (++p; *p >= '0' && *p <= '9'; ++p) {
            value = value * 10 + static_cast<unsigned>(*p - '0');
            if (value > 0xFFFFFFFFu) {
                break;
            }
        }
        if (value <= 0xFFFFFFFFu && (*p == '\0' || (p[0] == 'M' && p[1] == '\0'))) {
            flags |= TAVLO_SIG_MULTIPLEXED;
            if (*p == 'M') {
                flags |= TAVLO_SIG_MODE;
            }
            signal->flags = flags;
            signal->mode_value = static_cast<unsigned int>(value);
            return;
        }
    }
    Fail(kMsgIllegalMode, text.line, text.text);
}

// msg_tx_node -> BO_TX_BU_ id ':' bo_tx_list ';'
// bo_tx_list -> [tx_symbol (',' tx_symbol)*]
void Parser::msg_tx_node() {
    Advance();
    int line;
    const auto id = ExpectId(&line);
    const MessageIndex::Entry* entry = messageIndex_.Find(id);
    if (entry == nullptr) {
        Fail(kMsgUnknownSymbol, line, kUnknownTxMessage);
    }
    msgblk* message = entry->message;
    Expect(':');
    rxblk* last = TailOf(message->transmitters);
    rxblk* const before = last;
    try {
        while (!Accept(';')) {
            Accept(',');
            Name name;
            ExpectName(&name);
            rxblk* entry = NewRelation(name, &TAVLO_CREATE_TX);
            if (entry == nullptr) {
                continue;  // "Corvan__XXX"
            }
            Link(&last, entry, [&](auto* first) { message->transmitters = first; });
        }
    } catch (...) {
        if (tolerant_) {  // the statement is dropped whole
            rxblk* cut = nullptr;
            if (before != nullptr) {
                cut = before->next;
                before->next = nullptr;
            } else {
                cut = message->transmitters;
                message->transmitters = nullptr;
            }
            model::ReleaseRelations(cut);
        }
        throw;
    }
}

// env_var -> EV_ name ':' type '[' minimum '|' maximum ']' unit initial id
//            access_word [access_node (',' access_node)*] ';'
void Parser::env_var() {
    Advance();
    Name name;
    ExpectName(&name);
    Expect(':');
    int typeLine;
    const std::uint64_t type = ExpectUnsigned(UINT64_MAX, &typeLine);
    if (type > TAVLO_ENV_FLOAT) {
        Fail(kMsgEnvvarTypeNotAllowed, typeLine, nullptr);
    }
    Expect('[');
    const double minimum = SignedNumber();
    Expect('|');
    const double maximum = SignedNumber();
    Expect(']');
    if (tok_ != kTokString) {
        SyntaxError();
    }
    char unit[TAVLO_NAME_SIZE];
    model::CopyName(unit, CurrentToken().text);
    Advance();
    const double initial = SignedNumber();
    const auto id = static_cast<unsigned int>(ExpectUnsigned(0xFFFFFFFFu));
    if (envvarIndex_.count(name.view()) != 0) {
        Fail(kMsgDuplicateSymbol, name.line, name.text);
    }
    env_var_blk* envvar = TAVLO_CREATE_EVBLK();
    if (envvar == nullptr) {
        throw ParseStopped{false};
    }
    model::CopyName(envvar->name, name.text);
    envvar->type = static_cast<unsigned int>(type);
    model::CopyName(envvar->unit, unit);
    envvar->minimum = minimum;
    envvar->maximum = maximum;
    envvar->initial_value = initial;
    envvar->id = id;
    envvars_.Append(envvar);
    envvarIndex_.emplace(envvar->name, envvar);
    // The access word, then the access nodes; a node in the word's place is
    // an access node too.
    bool first = true;
    rxblk* last = nullptr;
    while (!Accept(';')) {
        if (!first) {
            Accept(',');
        }
        first = false;
        Name word;
        ExpectName(&word);
        if (std::strncmp(word.text, kAccessWord, kAccessWordLength) == 0) {
            unsigned int access = 0;
            for (const char* p = word.text + kAccessWordLength; *p != '\0'; ++p) {
                const char c = *p;
                const int digit = c >= '0' && c <= '9'   ? c - '0'
                                  : c >= 'A' && c <= 'F' ? c - 'A' + 10
                                  : c >= 'a' && c <= 'f' ? c - 'a' + 10
                                                         : -1;
                if (digit < 0) {
                    break;
                }
                access = access * 16 + static_cast<unsigned int>(digit);
            }
            if ((access & kStringAccess) != 0) {
                envvar->type = TAVLO_ENV_STRING;
                access &= ~kStringAccess;
            }
            envvar->access_type = access;
            continue;
        }
        rxblk* entry = NewRelation(word, &TAVLO_CREATE_RX);
        if (entry == nullptr) {
            continue;  // "Corvan__XXX"
        }
        Link(&last, entry, [&](auto* first) { envvar->access_nodes = first; });
        envvar->access_node_count = static_cast<unsigned short>(envvar->access_node_count + 1);
        envvar->access_type = envvar->access_type | kAccessNodeBit;
    }
}

// env_data -> (ENVVAR_DATA_ | EV_DATA_) name ':' length ';'
void Parser::env_data() {
    Advance();
    Name name;
    ExpectName(&name);
    Expect(':');
    const auto length = static_cast<unsigned int>(ExpectUnsigned(0xFFFFFFFFu));
    Expect(';');
    const auto found = envvarIndex_.find(name.view());
    if (found == envvarIndex_.end()) {
        StopWithWarning(kMsgUnknownDataEnvvar, name);
    }
    found->second->type = TAVLO_ENV_DATA;
    found->second->data_length = length;
}

// sigtype -> SGTYPE_ name ':' length '@' order sign '(' factor ',' offset ')'
//            '[' minimum '|' maximum ']' unit default [val_table_ref] ';'
void Parser::signal_type() {
    Advance();
    Name name;
    ExpectName(&name);
    for (::sigtype* other = *lists_.sigTypes; other != nullptr; other = other->next) {
        if (SameName(other->name, name.text)) {
            Fail(kMsgDuplicateSymbol, name.line, name.text);
        }
    }
    Expect(':');
    ::sigtype* type = TAVLO_CREATE_SIGTYPE();
    model::CopyName(type->name, name.text);
    sigTypes_.Append(type);
    type->length = static_cast<unsigned short>(ExpectUnsigned(0xFFFF));
    Expect('@');
    type->flags = ByteOrderAndSign();
    Scaling(type);
    type->default_value = SignedNumber();
    // val_table_ref -> name
    if (tok_ == kTokSymbol) {
        Name table;
        ExpectName(&table);
        type->value_list = ValtableRef(table);
    }
    Expect(';');
}

// sigtype_values -> SGTYPE_VAL_ type (value STRING)* ';'
// Read for compatibility; a signal type keeps no value descriptions of its
// own, so the entries are dropped.
void Parser::sigtype_values() {
    const TokenValue start = CurrentToken();
    Advance();
    Name name;
    ExpectName(&name);
    SigtypeRef(name);
    model::ReleaseValueDescriptions(value_descriptions());
    KeepStatement(start.start, start.line);
}

// Replaces a text of the database (version, file comment) by `text` (the
// string token's when null), then reads on.
void Parser::ReplaceText(char** slot, char* text) {
    if (text == nullptr) {
        text = TakeText();
    }
    TAVLO_MFREE(*slot);
    *slot = text;
    Advance();
}

// Replaces a record's comment by `text` (the string token's when null),
// then reads on. The records are packed: their fields are set in place,
// never through a pointer to them.
template <class T>
void Parser::SetCommentOf(T* record, char* text) {
    if (text == nullptr) {
        text = TakeText();
    }
    TAVLO_MFREE(record->comment);
    record->comment = text;
    Advance();
}

// comment read in one go (see ScanComment), in the order of the token by
// token reading: the checks and faults are the same.
void Parser::PlainComment(const Comment& plain) {
    // The record is found before its text is made, as by the token reading.
    VisitObject(plain.of, CurrentLine(), [this, &plain](auto* record, unsigned int) {
        char* text = NewText(plain.text.text, plain.text.length);
        if constexpr (std::is_same_v<decltype(record), Network*>) {
            ReplaceText(lists_.comment, text);
        } else {
            SetCommentOf(record, text);
        }
    });
}

// comment -> CM_ [BU_ node | BO_ id | SG_ id signal | EV_ variable |
//                 SGTYPE_ type] STRING ';'
void Parser::comment() {
    Comment plain;
    if (!tolerant_ && ScanComment(&plain)) {
        PlainComment(plain);
        return;
    }
    Advance();
    switch (tok_) {
    case kTokString:
        ReplaceText(lists_.comment);
        break;
    case kTokBusteilnehmer: {
        Advance();
        symblk* node = ExpectNode();
        SetCommentOf(node);
        break;
    }
    case kTokBotschaft: {
        Advance();
        msgblk* message = ExpectMessage();
        SetCommentOf(message);
        break;
    }
    case kTokUnterbotschaft: {
        Advance();
        msgblk* message = ExpectMessage();
        Name name;
        ExpectName(&name);
        sigblk* signal = SignalRef(message, name);
        SetCommentOf(signal);
        break;
    }
    case kTokEnvvar: {
        Advance();
        Name name;
        ExpectName(&name);
        env_var_blk* envvar = EnvvarRef(name);
        SetCommentOf(envvar);
        break;
    }
    case kTokSignalType: {
        Advance();
        Name name;
        ExpectName(&name);
        ::sigtype* type = SigtypeRef(name);
        SetCommentOf(type);
        break;
    }
    default:
        SyntaxError();
    }
    if (tolerant_ && tok_ != ';' && StartsStatement(false) && AtLineStart()) {
        Note(kDiagMissingSemicolon, nullptr);  // the comment is taken as ended
        return;
    }
    Expect(';');
}

// sig_values -> VAL_ (id signal | variable) (value STRING)* ';'
// A second "VAL_" for the same object replaces the first.
void Parser::sig_values() {
    Advance();
    if (tok_ == kTokSymbol) {
        Name name;
        ExpectName(&name);
        env_var_blk* envvar = EnvvarRef(name);
        if (tolerant_) {  // a faulty list leaves the one before in place
            val* list = value_descriptions();
            model::ReleaseValueDescriptions(envvar->value_descriptions);
            envvar->value_descriptions = list;
            return;
        }
        model::ReleaseValueDescriptions(envvar->value_descriptions);
        envvar->value_descriptions = nullptr;
        envvar->value_descriptions = value_descriptions();
        return;
    }
    msgblk* message = ExpectMessage();
    if (!tolerant_ && tok_ == kTokSymbol && PlainValueDescriptions(message)) {
        return;
    }
    Name name;
    ExpectName(&name);
    sigblk* signal = SignalRef(message, name);
    if (tolerant_) {
        val* list = value_descriptions();
        model::ReleaseValueDescriptions(signal->value_descriptions);
        signal->value_descriptions = list;
        return;
    }
    model::ReleaseValueDescriptions(signal->value_descriptions);
    signal->value_descriptions = nullptr;
    signal->value_descriptions = value_descriptions();
}

// category_def -> CAT_DEF_ number name value ';'
void Parser::category_def() {
    Advance();
    int line = CurrentToken().line;
    const long long number = SignedInteger();
    Name name;
    ExpectName(&name);
    const long long value = SignedInteger();
    Expect(';');
    for (cat* other = *lists_.categories; other != nullptr; other = other->next) {
        if (other->number == static_cast<short>(number)) {
            Fail(kMsgDuplicateSymbol, line, name.text);
        }
    }
    cat* category = TAVLO_CREATE_CATEGORY();
    category->number = static_cast<short>(number);
    category->value = static_cast<short>(value);
    model::CopyName(category->name, name.text);
    categories_.Append(category);
}

// category -> CAT_ (BU_ node | EV_ variable | BO_ id) number ';'
void Parser::category() {
    Advance();
    const int kind = tok_;
    Advance();
    symblk* node = nullptr;
    env_var_blk* envvar = nullptr;
    msgblk* message = nullptr;
    Name name;
    if (kind == kTokBusteilnehmer) {
        ExpectName(&name);
        node = NodeRef(name);
        if (node == nullptr) {
            SyntaxError();
        }
    } else if (kind == kTokEnvvar) {
        ExpectName(&name);
        envvar = EnvvarRef(name);
    } else if (kind == kTokBotschaft) {
        message = ExpectMessage();
    } else {
        SyntaxError();
    }
    const int line = CurrentToken().line;
    const long long number = SignedInteger();
    Expect(';');
    cat* category = CategoryRef(number, line, false);
    if (node != nullptr) {
        node->category = category;
    } else if (envvar != nullptr) {
        envvar->category = category;
    } else {
        message->category = category;
    }
}

// filter -> FILTER number CAT_ filter_cat_list BU_ filter_node_list ';'
// filter_cat -> number (0 is NONE unless a category 0 is defined)
// filter_node -> name | "<<none>>" (NONE; so is "Corvan__XXX")
void Parser::filter() {
    Advance();
    filter_t* filter = lists_.filter;
    filter->number = static_cast<unsigned short>(ExpectUnsigned(0xFFFF));
    Expect(kTokCategory);
    filtercatblk* lastCategory = TailOf(filter->categories);
    while (tok_ == kTokInteger || tok_ == kTokLong || tok_ == '-' || tok_ == '+') {
        const int line = CurrentToken().line;
        cat* category = CategoryRef(SignedInteger(), line, true);
        filtercatblk* entry = New<filtercatblk>();
        entry->act = category;
        Link(&lastCategory, entry, [&](auto* first) { filter->categories = first; });
    }
    Expect(kTokBusteilnehmer);
    rxblk* lastNode = TailOf(filter->nodes);
    while (tok_ == kTokSymbol || tok_ == kTokString) {
        symblk* node = nullptr;
        if (tok_ == kTokString) {
            if (std::strcmp(CurrentToken().text, kNoneNode) != 0) {
                SyntaxError();
            }
            Advance();
        } else {
            Name name;
            ExpectName(&name);
            node = NodeRef(name);
        }
        rxblk* entry = New<rxblk>();
        entry->symbol = node;
        Link(&lastNode, entry, [&](auto* first) { filter->nodes = first; });
    }
    Expect(';');
}

// signal_type_ref -> SIG_TYPE_REF_ id signal ':' type ';'
void Parser::signal_type_ref() {
    Advance();
    msgblk* message = ExpectMessage();
    Name signalName;
    ExpectName(&signalName);
    sigblk* signal = SignalRef(message, signalName);
    Expect(':');
    Name typeName;
    ExpectName(&typeName);
    ::sigtype* type = SigtypeRef(typeName);
    Expect(';');
    signal->sig_type = type;
}

// signal_group -> SIG_GROUP_ id name repetitions ':' sig_name_list ';'
void Parser::signal_group() {
    Advance();
    msgblk* message = ExpectMessage();
    Name name;
    ExpectName(&name);
    const auto repetitions = static_cast<unsigned int>(ExpectUnsigned(0xFFFFFFFFu));
    Expect(':');
    siggroupblk* group = TAVLO_CREATE_SIGGROUP(message);
    model::CopyName(group->name, name.text);
    group->repetitions = repetitions;
    siggroupblk* groups = message->signal_groups;
    model::AppendTail(&groups, group);
    message->signal_groups = groups;
    siglistblk* last = nullptr;
    try {
        while (!Accept(';')) {
            if (last != nullptr) {
                Accept(',');
            }
            Name member;
            ExpectName(&member);
            siglistblk* entry = TAVLO_CREATE_SIGLIST(SignalRef(message, member));
            Link(&last, entry, [&](auto* first) { group->signals = first; });
        }
    } catch (...) {
        if (tolerant_) {
            CAN_DELETE_SIGGROUP(message, group);
        }
        throw;
    }
}

// signal_valtype -> SIG_VALTYPE_ id signal [':'] value_type ';'
void Parser::signal_valtype() {
    Advance();
    msgblk* message = ExpectMessage();
    Name name;
    ExpectName(&name);
    sigblk* signal = SignalRef(message, name);
    Accept(':');
    const auto valueType = static_cast<unsigned int>(ExpectUnsigned(0xFFFFFFFFu));
    Expect(';');
    signal->value_type = valueType;
}

// signaltype_valtype -> SIGTYPE_VALTYPE_ type [':'] value_type ';'
void Parser::signaltype_valtype() {
    Advance();
    Name name;
    ExpectName(&name);
    ::sigtype* type = SigtypeRef(name);
    Accept(':');
    const auto valueType = static_cast<unsigned int>(ExpectUnsigned(0xFFFFFFFFu));
    Expect(';');
    type->value_type = valueType;
}


}  // namespace tavlo::dbfile

extern "C" unsigned int TAVLO_READ(const char* file, symblk** nodes, msgblk** messages,
                                   env_var_blk** envvars, btlblk** bitTimings,
                                   attr_def** attrDefs, attr** dbAttrs, cat** categories,
                                   filter_t* filter, char** comment, char** version,
                                   sigtype** sigTypes, valtable** valueTables) {
    using namespace tavlo::dbfile;
    return ReadWith(file,
                    Lists{nodes, messages, envvars, bitTimings, attrDefs, dbAttrs, categories,
                          filter, comment, version, sigTypes, valueTables},
                    nullptr);
}
