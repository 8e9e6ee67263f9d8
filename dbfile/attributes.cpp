// dbfile/attributes.cpp: the parser's rules for attributes: definitions
// ("BA_DEF_", "BA_DEF_SGTYPE_", "BA_DEF_REL_"), their defaults
// ("BA_DEF_DEF_", "BA_DEF_DEF_REL_") and values ("BA_", "BA_SGTYPE_",
// "BA_REL_"), each value checked against its definition's object type.
#include <cstring>
#include <string>
#include <type_traits>

#include "dbfile/parser.h"
#include "dbfile/report.h"
#include "model/model.h"
#include "tavloms/lifecycle.h"
#include "tavloms/query.h"

namespace tavlo::dbfile {

// data_type -> INT signed signed | HEX signed signed | FLOAT signed_float
//              signed_float | STRING | ENUM [STRING (',' STRING)*]
// An ENUM's texts are joined by line feeds into `enumTexts`; each is cut to
// 32 characters, and "corvan_leerstring" stands for the empty text.
unsigned int Parser::data_type(AttrRange* range, std::string* enumTexts) {
    range->minimum.number = 0.0;
    range->maximum = 0.0;
    const int token = tok_;
    switch (token) {
    case kTokUserInt:
    case kTokUserHex:
    case kTokUserFloat:
        Advance();
        range->minimum.number = SignedNumber();
        range->maximum = SignedNumber();
        return token == kTokUserInt ? TAVLO_ATTR_INT
               : token == kTokUserHex ? TAVLO_ATTR_HEX
                                      : TAVLO_ATTR_FLOAT;
    case kTokUserString:
        Advance();
        return TAVLO_ATTR_STRING;
    case kTokUserEnum: {
        Advance();
        std::string& joined = *enumTexts;
        joined.clear();
        bool first = true;
        while (tok_ == kTokString || (!first && tok_ == ',')) {
            if (!first) {
                Expect(',');
            }
            ExpectString(&text_);
            if (text_ == kEmptyEnumText) {
                text_.clear();
            } else if (text_.size() > TAVLO_NAME_SIZE - 1) {
                text_.resize(TAVLO_NAME_SIZE - 1);
            }
            if (!first) {
                joined += '\n';
            }
            joined += text_;
            first = false;
        }
        return TAVLO_ATTR_ENUM;
    }
    default:
        SyntaxError();
    }
}

// user_define -> BA_DEF_ [BU_ | BO_ | SG_ | EV_] STRING data_type ';'
//              | BA_DEF_REL_ (BU_SG_REL_ | BU_BO_REL_ | BU_EV_REL_) STRING data_type ';'
void Parser::user_define(int token) {
    Advance();
    unsigned int objectType = TAVLO_OBJ_NETWORK;
    if (token == kTokUserDefine) {
        switch (tok_) {
        case kTokBusteilnehmer: objectType = TAVLO_OBJ_NODE; break;
        case kTokBotschaft: objectType = TAVLO_OBJ_MESSAGE; break;
        case kTokUnterbotschaft: objectType = TAVLO_OBJ_SIGNAL; break;
        case kTokEnvvar: objectType = TAVLO_OBJ_ENVVAR; break;
        default: break;
        }
    } else {
        switch (tok_) {
        case kTokNodeRxSigRel: objectType = TAVLO_OBJ_NODE_SIGNAL; break;
        case kTokNodeTxMsgRel: objectType = TAVLO_OBJ_NODE_MESSAGE; break;
        case kTokNodeEnvvarRel: objectType = TAVLO_OBJ_NODE_ENVVAR; break;
        default: SyntaxError();
        }
    }
    if (objectType != TAVLO_OBJ_NETWORK) {
        Advance();
    }
    Name name;
    ExpectAttributeName(&name);
    AttrRange range;
    std::string texts;
    const unsigned int valueType = data_type(&range, &texts);
    if (tok_ != ';') {
        SyntaxError();
    }
    char* enumTexts = nullptr;
    if (valueType == TAVLO_ATTR_ENUM) {
        enumTexts = model::DuplicateText(texts.c_str());
        if (enumTexts == nullptr) {
            Fail(kMsgNotEnoughMemory, -1, nullptr);
        }
        range.minimum.text = enumTexts;
    }
    int defined = 0;
    try {
        defined = DefineAttribute(lists_.attrDefs, name.text, objectType, valueType,
                                         range, name.line);
    } catch (...) {
        TAVLO_MFREE(enumTexts);
        throw;
    }
    if (!defined) {
        TAVLO_MFREE(enumTexts);
        throw ParseStopped{false};
    }
    // Indexed before the next token is read: if that fails (tolerant
    // loading goes on), the definition is linked in and must be found.
    attr_def* def = TailOf(*lists_.attrDefs);
    attrDefIndex_.emplace(def->name, def);
    Advance();  // past the ";"
}

// sigtype_attr -> BA_DEF_SGTYPE_ STRING [data_type] ';'
// Turns an attribute defined before into an attribute of signal types.
void Parser::sigtype_attr() {
    Advance();
    Name name;
    ExpectAttributeName(&name);
    if (tok_ != ';') {
        AttrRange range;
        std::string ignored;
        data_type(&range, &ignored);
    }
    Expect(';');
    const auto found = attrDefIndex_.find(name.view());
    if (found == attrDefIndex_.end()) {
        StopWithWarning(kMsgUndefinedAttribute, name);
    }
    found->second->object_type = TAVLO_OBJ_SIGTYPE;
}

// user_define_default -> (BA_DEF_DEF_ | BA_DEF_DEF_REL_) STRING default ';'
// default -> STRING | signed_float
void Parser::user_define_default() {
    Advance();
    Name name;
    ExpectAttributeName(&name);
    const bool isText = tok_ == kTokString;
    tavlo_attr_value_t value;
    value.number = 0.0;
    std::string text;
    if (isText) {
        ExpectString(&text);
    } else {
        value.number = SignedNumber();
    }
    Expect(';');
    const auto found = attrDefIndex_.find(name.view());
    if (found != attrDefIndex_.end()) {
        const unsigned int valueType = found->second->value_type;
        const bool wantsText = valueType == TAVLO_ATTR_STRING || valueType == TAVLO_ATTR_ENUM;
        if (wantsText != isText) {
            Fail(kMsgIllegalMode, name.line, name.text);
        }
    }
    if (isText) {
        value.text = model::DuplicateText(text.c_str());
        if (value.text == nullptr) {
            Fail(kMsgNotEnoughMemory, -1, nullptr);
        }
    }
    int set = 0;
    try {
        set = SetAttributeDefault(*lists_.attrDefs, name.text, value, isText, name.line);
    } catch (...) {
        if (isText) {
            TAVLO_MFREE(value.text);
        }
        throw;
    }
    if (!set) {
        if (isText) {
            TAVLO_MFREE(value.text);
        }
        throw ParseStopped{false};
    }
}

// value -> STRING | signed_float, as the definition wants it: a text for
// STRING, a number for INT, FLOAT and HEX, and for ENUM the index, given
// as a number or as one of its texts. The statement's ";" stays current:
// the caller links the value in, then reads on.
attr* Parser::value(attr_def* def, const Name& name) {
    const unsigned int valueType = def->value_type;
    double number = 0.0;
    if (tok_ == kTokString) {
        if (valueType == TAVLO_ATTR_STRING) {
            ExpectString(&text_);
        } else if (valueType == TAVLO_ATTR_ENUM) {
            number = EnumIndex(def, name);
            Advance();
        } else {
            Fail(kMsgIllegalMode, name.line, name.text);
        }
    } else {
        if (!IsNumberStart()) {
            SyntaxError();
        }
        if (valueType == TAVLO_ATTR_STRING) {
            Fail(kMsgIllegalMode, name.line, name.text);
        }
        number = SignedNumber();
    }
    if (tok_ != ';') {
        SyntaxError();
    }
    if (valueType != TAVLO_ATTR_STRING) {
        return NumberValue(def, name, number);
    }
    attr* result = New<attr>();
    result->def = def;
    result->value.text = model::DuplicateText(text_.c_str());
    if (result->value.text == nullptr) {
        TAVLO_MFREE(result);
        Fail(kMsgNotEnoughMemory, -1, nullptr);
    }
    return result;
}

// The index of the enumeration text that the current string token names.
double Parser::EnumIndex(const attr_def* def, const Name& name) {
    char wanted[TAVLO_NAME_SIZE];
    model::CopyName(wanted, CurrentToken().text);
    if (std::strcmp(wanted, kEmptyEnumText) == 0) {
        wanted[0] = '\0';
    }
    const std::size_t wantedLength = std::strlen(wanted);
    const char* piece = def->minimum.text != nullptr ? def->minimum.text : "";
    for (double index = 0.0;; ++index) {
        const char* end = std::strchr(piece, '\n');
        const std::size_t length =
            end != nullptr ? static_cast<std::size_t>(end - piece) : std::strlen(piece);
        if (length == wantedLength && std::strncmp(piece, wanted, length) == 0) {
            return index;
        }
        if (end == nullptr) {
            Fail(kMsgIllegalMode, name.line, name.text);
        }
        piece = end + 1;
    }
}

// Gives an object the value of an attribute: a value it already has for the
// same definition is replaced, otherwise the value is appended.
void Parser::SetAttr(attr** list, attr* value) {
    attr** slot = list;
    for (; *slot != nullptr; slot = &(*slot)->next) {
        if ((*slot)->def == value->def) {
            value->next = (*slot)->next;
            (*slot)->next = nullptr;
            model::ReleaseAttrs(*slot);
            break;
        }
    }
    *slot = value;
}

// Gives an object (or relation entry) the value that follows, after
// checking that the definition is one for its kind of object.
// A value for another kind of object than the definition's is an error.
void Parser::CheckObjectType(const attr_def* def, const Name& name, unsigned int objectType) {
    if (def->object_type != objectType) {
        Fail(kMsgIllegalMode, name.line, name.text);
    }
}

template <class T>
void Parser::SetValueOf(T* record, attr_def* def, const Name& name, unsigned int objectType,
                        const double* plain) {
    CheckObjectType(def, name, objectType);
    attr* head = record->attributes;
    SetAttr(&head, plain != nullptr ? NumberValue(def, name, *plain) : value(def, name));
    record->attributes = head;
    Advance();  // past the ";"
}

// A value that is a number (an enumeration's index too), made once it is
// read; a string attribute takes none.
attr* Parser::NumberValue(attr_def* def, const Name& name, double number) {
    if (def->value_type == TAVLO_ATTR_STRING) {
        Fail(kMsgIllegalMode, name.line, name.text);
    }
    attr* result = New<attr>();
    result->def = def;
    result->value.number = number;
    return result;
}

// user_attribute read in one go (see ScanAttributeValue), in the order of
// the token by token reading: the checks and faults are the same.
void Parser::PlainAttributeValue(const AttributeValue& plain) {
    const int line = CurrentLine();
    Name name;
    NameOf(plain.name.text, plain.name.length, line, &name);
    BlanksForTabs(name.text);
    attr_def* def = AttrDefRef(name, kMsgUndefinedAttribute);
    VisitObject(plain.of, line, [&](auto* record, unsigned int objectType) {
        if constexpr (std::is_same_v<decltype(record), Network*>) {
            CheckObjectType(def, name, objectType);
            SetAttr(lists_.dbAttrs, NumberValue(def, name, plain.number));
            Advance();  // past the ";"
        } else {
            SetValueOf(record, def, name, objectType, &plain.number);
        }
    });
}

// user_attribute -> BA_ STRING [BU_ node | BO_ id | SG_ id signal |
//                   EV_ variable] value ';'
void Parser::user_attribute() {
    AttributeValue plain;
    if (!tolerant_ && ScanAttributeValue(&plain)) {
        PlainAttributeValue(plain);
        return;
    }
    Advance();
    Name name;
    ExpectAttributeName(&name);
    attr_def* def = AttrDefRef(name, kMsgUndefinedAttribute);
    switch (tok_) {
    case kTokBusteilnehmer: {
        Advance();
        symblk* node = ExpectNode();
        SetValueOf(node, def, name, TAVLO_OBJ_NODE);
        return;
    }
    case kTokBotschaft:
        Advance();
        SetValueOf(ExpectMessage(), def, name, TAVLO_OBJ_MESSAGE);
        return;
    case kTokUnterbotschaft: {
        Advance();
        msgblk* message = ExpectMessage();
        Name signalName;
        ExpectName(&signalName);
        SetValueOf(SignalRef(message, signalName), def, name, TAVLO_OBJ_SIGNAL);
        return;
    }
    case kTokEnvvar: {
        Advance();
        Name variableName;
        ExpectName(&variableName);
        SetValueOf(EnvvarRef(variableName), def, name, TAVLO_OBJ_ENVVAR);
        return;
    }
    default:
        CheckObjectType(def, name, TAVLO_OBJ_NETWORK);
        SetAttr(lists_.dbAttrs, value(def, name));
        Advance();  // past the ";"
        return;
    }
}

// user_attribute_sigtype -> BA_SGTYPE_ STRING SGTYPE_ type value ';'
void Parser::user_attribute_sigtype() {
    Advance();
    Name name;
    ExpectAttributeName(&name);
    attr_def* def = AttrDefRef(name, kMsgUndefinedAttribute);
    Expect(kTokSignalType);
    Name typeName;
    ExpectName(&typeName);
    SetValueOf(SigtypeRef(typeName), def, name, TAVLO_OBJ_SIGTYPE);
}

namespace {

bool HasRelation(const rxblk* list, const symblk* node) {
    for (; list != nullptr; list = list->next) {
        if (list->symbol == node) {
            return true;
        }
    }
    return false;
}

}  // namespace

// The relation entry of a node in a relation list; a node that has none
// gets one at the end of the list (counted in `count` when given).
rxblk* Parser::RelationOf(rxblk** list, symblk* node, unsigned short* count) {
    rxblk** slot = list;
    for (; *slot != nullptr; slot = &(*slot)->next) {
        if ((*slot)->symbol == node) {
            return *slot;
        }
    }
    rxblk* entry = TAVLO_CREATE_RX(node);
    if (entry == nullptr) {
        throw ParseStopped{false};
    }
    *slot = entry;
    if (count != nullptr) {
        ++*count;
    }
    return entry;
}

// user_attribute_rel -> BA_REL_ STRING (BU_SG_REL_ node SG_ id signal |
//                       BU_BO_REL_ node id | BU_EV_REL_ node variable) value ';'
void Parser::user_attribute_rel() {
    Advance();
    Name name;
    ExpectAttributeName(&name);
    attr_def* def = AttrDefRef(name, kMsgUndefinedAttribute);
    const int kind = tok_;
    const unsigned int objectType = kind == kTokNodeRxSigRel   ? TAVLO_OBJ_NODE_SIGNAL
                                    : kind == kTokNodeTxMsgRel ? TAVLO_OBJ_NODE_MESSAGE
                                    : kind == kTokNodeEnvvarRel
                                        ? TAVLO_OBJ_NODE_ENVVAR
                                        : TAVLO_OBJ_NETWORK;
    if (objectType == TAVLO_OBJ_NETWORK) {
        SyntaxError();
    }
    Advance();
    Name nodeName;
    ExpectName(&nodeName);
    symblk* node = NodeRef(nodeName);
    rxblk* entry = nullptr;
    sigblk* signal = nullptr;
    msgblk* message = nullptr;
    env_var_blk* envvar = nullptr;
    bool known = false;  // the node had its entry before
    if (kind == kTokNodeRxSigRel) {
        Expect(kTokUnterbotschaft);
        message = ExpectMessage();
        Name signalName;
        ExpectName(&signalName);
        signal = SignalRef(message, signalName);
        CheckObjectType(def, name, objectType);
        rxblk* receivers = signal->receivers;
        known = HasRelation(receivers, node);
        unsigned short count = signal->receiver_count;
        entry = RelationOf(&receivers, node, &count);
        signal->receivers = receivers;
        signal->receiver_count = count;
    } else if (kind == kTokNodeTxMsgRel) {
        message = ExpectMessage();
        CheckObjectType(def, name, objectType);
        rxblk* transmitters = message->transmitters;
        known = HasRelation(transmitters, node);
        entry = RelationOf(&transmitters, node, nullptr);
        message->transmitters = transmitters;
    } else {
        Name variableName;
        ExpectName(&variableName);
        envvar = EnvvarRef(variableName);
        CheckObjectType(def, name, objectType);
        rxblk* accessNodes = envvar->access_nodes;
        known = HasRelation(accessNodes, node);
        unsigned short count = envvar->access_node_count;
        entry = RelationOf(&accessNodes, node, &count);
        envvar->access_nodes = accessNodes;
        envvar->access_node_count = count;
    }
    try {
        SetValueOf(entry, def, name, objectType);
    } catch (...) {
        if (tolerant_ && !known) {  // the entry made for the value goes again
            DropRelation(signal, message, envvar, entry);
        }
        throw;
    }
}

// Unlinks and releases the relation entry of a signal's receivers, else of
// a message's transmitters, else of a variable's access nodes.
void Parser::DropRelation(sigblk* signal, msgblk* message, env_var_blk* envvar, rxblk* entry) {
    rxblk* list = signal != nullptr    ? signal->receivers
                  : envvar != nullptr ? envvar->access_nodes
                                      : message->transmitters;
    if (list == entry) {
        list = entry->next;
    } else {
        rxblk* before = list;
        while (before->next != entry) {
            before = before->next;
        }
        before->next = entry->next;
    }
    entry->next = nullptr;
    model::ReleaseRelations(entry);
    if (signal != nullptr) {
        signal->receivers = list;
        signal->receiver_count = static_cast<unsigned short>(signal->receiver_count - 1);
    } else if (envvar != nullptr) {
        envvar->access_nodes = list;
        envvar->access_node_count = static_cast<unsigned short>(envvar->access_node_count - 1);
    } else {
        message->transmitters = list;
    }
}

}  // namespace tavlo::dbfile
