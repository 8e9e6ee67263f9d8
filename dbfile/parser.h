// dbfile/parser.h: the recursive-descent parser of database files, shared
// by the reader's files: reader.cpp (the statements and TAVLO_READ) and
// attributes.cpp (attribute definitions, defaults and values). Private to
// the reader.
#ifndef TAVLOMS_DBFILE_PARSER_H
#define TAVLOMS_DBFILE_PARSER_H

#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>
#include <unordered_map>

#include "dbfile/attrdef.h"
#include "dbfile/indexes.h"
#include "dbfile/keywords.h"
#include "dbfile/report.h"
#include "dbfile/scanner.h"
#include "dbfile/session.h"
#include "model/model.h"
#include "tavloms/records.h"

namespace tavlo::dbfile {

// Ends a parse without a further report: `warning` for the two warnings
// that stop a read, otherwise after a report that let the read go on.
struct ParseStopped {
    bool warning;
};

// A name as records store it (cut to 32 characters) with the line it was on.
struct Name {
    char text[TAVLO_NAME_SIZE];
    int line;
    std::size_t length;  // of text, as ExpectName cut it
    std::string_view view() const { return std::string_view(text, length); }
    bool Is(const char* other) const { return std::strcmp(text, other) == 0; }
};

// Copies a text of known length into a name field as CopyName would: at
// most 32 characters, up to an embedded zero. Returns the length copied.
inline std::size_t CopyNameOf(char* field, const char* text, std::size_t length) {
    if (length > TAVLO_NAME_SIZE - 1) {
        length = TAVLO_NAME_SIZE - 1;
    }
    const void* zero = std::memchr(text, '\0', length);
    if (zero != nullptr) {
        length = static_cast<std::size_t>(static_cast<const char*>(zero) - text);
    }
    std::memcpy(field, text, length);
    field[length] = '\0';
    return length;
}

// Attribute names are compared with tabs read as blanks, as definitions
// store them.
inline void BlanksForTabs(char* name) {
    for (; *name != '\0'; ++name) {
        if (*name == '\t') {
            *name = ' ';
        }
    }
}

template <class T>
T* TailOf(T* list) {
    while (list != nullptr && list->next != nullptr) {
        list = list->next;
    }
    return list;
}

// Links `entry` after `*last`, or, when the list is still empty, hands it to
// `setHead` (list heads in records cannot be pointed to: they are packed).
template <class T, class SetHead>
void Link(T** last, T* entry, SetHead setHead) {
    if (*last == nullptr) {
        setHead(entry);
    } else {
        (*last)->next = entry;
    }
    *last = entry;
}

// Keeps the end of a list, so that appending does not walk it.
template <class T>
class Tail {
public:
    void Reset(T** head) {
        head_ = head;
        last_ = TailOf(*head);
    }
    void Append(T* record) {
        if (last_ == nullptr) {
            *head_ = record;
        } else {
            last_->next = record;
        }
        last_ = record;
    }
    T* last() const { return last_; }
    // Unlinks the records after `last` (all of them for null) and returns
    // them as a list.
    T* CutAfter(T* last) {
        T* cut = last != nullptr ? last->next : *head_;
        if (last != nullptr) {
            last->next = nullptr;
        } else {
            *head_ = nullptr;
        }
        last_ = last;
        return cut;
    }

private:
    T** head_ = nullptr;
    T* last_ = nullptr;
};

class Parser {
public:
    Parser(const Lists& lists, ReadSession* session);
    void Run();

private:
    // Tokens.
    void Advance() {
        lastEnd_ = ScanPosition();
        tok_ = NextToken();
    }
    bool Accept(int token);
    void Expect(int token);
    [[noreturn]] void SyntaxError();
    [[noreturn]] void Fail(unsigned int code, int line, const char* context);
    [[noreturn]] void StopWithWarning(unsigned int code, const Name& name);
    void ExpectName(Name* name);
    std::uint64_t ExpectUnsigned(std::uint64_t maximum, int* line = nullptr);
    double SignedNumber();
    long long SignedInteger();
    bool IsNumberStart() const;
    void ExpectString(std::string* text);
    char* TakeText();
    char* NewText(const char* text, std::size_t length);
    void SkipStatement();

    // Objects by name or number.
    symblk* NodeRef(const Name& name);
    msgblk* MessageRef(std::uint32_t id, int line);
    msgblk* ExpectMessage();
    symblk* ExpectNode();
    std::uint32_t ExpectId(int* line);
    void ExpectAttributeName(Name* name);
    unsigned char ByteOrderAndSign();
    template <class T>
    void Scaling(T* record);
    void PlainComment(const Comment& plain);
    // The network, as what a statement is about.
    struct Network {};
    template <class Visit>
    void VisitObject(const ObjectRef& of, int line, Visit visit);
    template <class T>
    void SetCommentOf(T* record, char* text = nullptr);
    void AddValueDescription(val** head, val** last, long long number, const char* text,
                             std::size_t length);
    static constexpr std::size_t kPlainValues = 64;  // read in one go, at most
    bool PlainValueDescriptions(msgblk* message);
    void CheckObjectType(const attr_def* def, const Name& name, unsigned int objectType);
    template <class T>
    void SetValueOf(T* record, attr_def* def, const Name& name, unsigned int objectType,
                    const double* plain = nullptr);
    attr* NumberValue(attr_def* def, const Name& name, double number);
    void PlainAttributeValue(const AttributeValue& plain);
    sigblk* SignalRef(msgblk* message, const Name& name);
    env_var_blk* EnvvarRef(const Name& name);
    sigtype* SigtypeRef(const Name& name);
    valtable* ValtableRef(const Name& name);
    attr_def* AttrDefRef(const Name& name, unsigned int code);
    cat* CategoryRef(long long number, int line, bool noneForZero);
    template <class T>
    T* New();
    rxblk* NewRelation(const Name& node, rxblk* (*create)(symblk*));

    // Header statements.
    void version();
    void new_symbols();
    void segm_table();
    void device_decl();

    // Statements in any order.
    void statement();
    void value_table();  // rule valtable
    void msg();
    void sg(msgblk* message, Tail<sigblk>* signals, SignalRun* run);
    void SignalRest(sigblk* signal);
    void AddReceiver(sigblk* signal, const Name& name, rxblk** last);
    static constexpr std::size_t kPlainReceivers = 16;  // read in one go, at most
    // `text` is followed by at least 32 readable bytes: the file's (its
    // padding after the end) or the token text's.
    static void NameOf(const char* text, std::size_t length, int line, Name* name);
    static void SetLayout(const SignalLayout& layout, sigblk* signal);
    void mode(const Name& text, sigblk* signal);
    void msg_tx_node();
    void env_var();
    void env_data();
    void signal_type();  // rule sigtype
    void sigtype_values();
    void comment();
    void user_define(int token);
    unsigned int data_type(AttrRange* range, std::string* enumTexts);
    void sigtype_attr();
    void user_define_default();
    void user_attribute();
    void user_attribute_sigtype();
    void user_attribute_rel();
    attr* value(attr_def* def, const Name& name);
    double EnumIndex(const attr_def* def, const Name& name);
    void sig_values();
    val* value_descriptions();
    void category_def();
    void category();
    void filter();
    void signal_type_ref();
    void signal_group();
    void signal_valtype();
    void signaltype_valtype();

    // Tolerance (tolerance.cpp): a tolerant read skips a faulty statement,
    // releasing what it made, and goes on.
    struct Mark {
        symblk* node;
        valtable* table;
        ::sigtype* type;
        env_var_blk* envvar;
        cat* category;
        filtercatblk* filterCategory;
        rxblk* filterNode;
    };
    Mark MarkLists() const;
    void Rollback(const Mark& mark);
    void Place();
    void Note(unsigned int code, const char* context);
    void Recovered();
    void StatementTolerantly();
    void SignalTolerantly(msgblk* message, Tail<sigblk>* signals, SignalRun* run);
    bool HeaderStatement();
    void UnknownStatement();
    bool Resync(const unsigned char* start, bool signals);
    bool StartsStatement(bool signals) const;
    bool AtLineStart() const;
    void KeepStatement(const unsigned char* start, int line);

    void ReplaceText(char** slot, char* text = nullptr);
    static void SetAttr(attr** list, attr* value);
    static rxblk* RelationOf(rxblk** list, symblk* node, unsigned short* count);
    void DropRelation(sigblk* signal, msgblk* message, env_var_blk* envvar, rxblk* entry);

    const Lists lists_;
    int tok_ = kTokEnd;
    std::string text_;  // scratch for strings

    Tail<symblk> nodes_;
    Tail<msgblk> messages_;
    Tail<env_var_blk> envvars_;
    Tail<btlblk> bitTimings_;
    Tail<valtable> valueTables_;
    Tail<sigtype> sigTypes_;
    Tail<cat> categories_;
    std::unordered_map<std::string_view, symblk*, NameHash> nodeIndex_;
    MessageIndex messageIndex_;
    SignalTable signals_;
    // The place of the index entry of the message named last; none at first.
    std::size_t lastEntry_ = static_cast<std::size_t>(-1);
    std::unordered_map<std::string_view, env_var_blk*, NameHash> envvarIndex_;
    std::unordered_map<std::string_view, attr_def*, NameHash> attrDefIndex_;
    bool newSymbolKeyword_[kTokUminus + 1] = {};

    ReadSession* const session_;  // null in TAVLO_READ
    const bool tolerant_;
    const unsigned char* lastEnd_ = nullptr;  // after the token before the current one
    int headerRank_ = 0;  // of the last header statement; past them after any other
};

// A zero-filled record; running out of memory ends the read.
template <class T>
T* Parser::New() {
    T* record = model::Allocate<T>();
    if (record == nullptr) {
        Fail(kMsgNotEnoughMemory, -1, nullptr);
    }
    return record;
}

// What a statement read in one go is about, found as the token reading
// finds it (the same checks and faults), given to visit with its object type:
// a node, message, signal or variable record, or Network.
template <class Visit>
void Parser::VisitObject(const ObjectRef& of, int line, Visit visit) {
    Name item;  // the node, signal or variable, where the object has one
    if (of.object != kTokBotschaft && of.object != 0) {
        NameOf(of.item.text, of.item.length, line, &item);
    }
    switch (of.object) {
    case kTokBusteilnehmer: {
        symblk* node = NodeRef(item);
        if (node == nullptr) {
            SyntaxError();
        }
        visit(node, TAVLO_OBJ_NODE);
        return;
    }
    case kTokBotschaft: visit(MessageRef(of.id, line), TAVLO_OBJ_MESSAGE); return;
    case kTokUnterbotschaft:
        visit(SignalRef(MessageRef(of.id, line), item), TAVLO_OBJ_SIGNAL);
        return;
    case kTokEnvvar: visit(EnvvarRef(item), TAVLO_OBJ_ENVVAR); return;
    default: visit(static_cast<Network*>(nullptr), TAVLO_OBJ_NETWORK); return;
    }
}

}  // namespace tavlo::dbfile

#endif  // TAVLOMS_DBFILE_PARSER_H
