// dbfile/attrdef.cpp: attribute definitions and defaults made by the reader.
#include "dbfile/attrdef.h"

#include <string>

#include "dbfile/input.h"
#include "dbfile/report.h"
#include "model/model.h"
#include "tavloms/lifecycle.h"
#include "tavloms/query.h"

namespace tavlo::dbfile {

namespace {

std::string BlanksForTabs(const char* name) {
    std::string text = name != nullptr ? name : "";
    for (char& c : text) {
        if (c == '\t') {
            c = ' ';
        }
    }
    return text;
}

// Gives a new definition an empty default text; running out of memory
// releases the definition and ends the read.
void SetEmptyDefault(attr_def* def) {
    def->default_value.text = model::DuplicateText("");
    if (def->default_value.text == nullptr) {
        TAVLO_MFREE(def);
        RaiseError(kMsgNotEnoughMemory, -1, nullptr);
    }
}

}  // namespace

int DefineAttribute(attr_def** list, const char* name, unsigned int objectType,
                    unsigned int valueType, const AttrRange& range, int line) {
    const std::string key = BlanksForTabs(name);
    if (TAVLO_GET_ATTR_DEF_NAME(*list, key.c_str()) != nullptr) {
        CloseInput();
        ReportReadError(kMsgDuplicateSymbol, line, key.c_str());
        return 0;
    }
    attr_def* def = TAVLO_CREATE_ATTR_DEF();
    model::CopyName(def->name, key.c_str());
    def->object_type = objectType;
    def->value_type = valueType;
    switch (valueType) {
    case TAVLO_ATTR_STRING:
        SetEmptyDefault(def);
        break;
    case TAVLO_ATTR_ENUM:
        SetEmptyDefault(def);
        def->minimum.text = range.minimum.text;
        break;
    default:  // INT, FLOAT, HEX
        def->minimum.number = range.minimum.number;
        def->maximum = range.maximum;
        def->default_value.number = range.minimum.number;
        break;
    }
    model::AppendTail(list, def);
    return 1;
}

int SetAttributeDefault(attr_def* list, const char* name, tavlo_attr_value_t value, bool isText,
                        int line) {
    const std::string key = BlanksForTabs(name);
    attr_def* def = TAVLO_GET_ATTR_DEF_NAME(list, key.c_str());
    if (def == nullptr) {
        CloseInput();
        ReportReadError(kMsgUnknownSymbol, line, key.c_str());
        return 0;
    }
    const bool wantsText = def->value_type == TAVLO_ATTR_STRING || def->value_type == TAVLO_ATTR_ENUM;
    if (wantsText != isText) {
        // A value of the other kind (the caller checks the kind where it
        // can): the default stays as it was, and a text is not kept.
        if (isText) {
            TAVLO_MFREE(value.text);
        }
        return 1;
    }
    if (wantsText) {
        TAVLO_MFREE(def->default_value.text);
        def->default_value.text = value.text;
    } else {
        def->default_value.number = value.number;
    }
    return 1;
}

}  // namespace tavlo::dbfile
