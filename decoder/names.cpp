// decoder/names.cpp: the full names of objects, which other tools keep in
// attributes when a name is longer than a file's 32 characters.
#include <cstring>

#include "tavloms/load.h"

namespace {

// The text of a STRING attribute of this name; null when there is none.
const char* TextAttribute(const attr* values, const char* name) {
    for (; values != nullptr; values = values->next) {
        const attr_def* def = values->def;
        if (def != nullptr && def->value_type == TAVLO_ATTR_STRING &&
            std::strcmp(def->name, name) == 0) {
            const tavlo_attr_value_t value = values->value;
            return value.text;
        }
    }
    return nullptr;
}

template <class T>
const char* FullNameOf(const void* record, const char* longNameAttribute) {
    const T* object = static_cast<const T*>(record);
    const char* text = TextAttribute(object->attributes, longNameAttribute);
    return text != nullptr && text[0] != '\0' ? text : object->name;
}

}  // namespace

extern "C" const char* tavlo_full_name(unsigned int objectType, const void* record) {
    if (record == nullptr) {
        return nullptr;
    }
    switch (objectType) {
    case TAVLO_OBJ_NODE: return FullNameOf<symblk>(record, "SystemNodeLongSymbol");
    case TAVLO_OBJ_MESSAGE: return FullNameOf<msgblk>(record, "SystemMessageLongSymbol");
    case TAVLO_OBJ_SIGNAL: return FullNameOf<sigblk>(record, "SystemSignalLongSymbol");
    case TAVLO_OBJ_ENVVAR: return FullNameOf<env_var_blk>(record, "SystemEnvVarLongSymbol");
    default: return nullptr;
    }
}
