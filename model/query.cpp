// model/query.cpp: the flat finders. Every search walks a list from its head
// and stops at the first match; none allocates, locks or reports anything but
// the positional assertions.
#include <cstring>

#include "model/model.h"
#include "platform/platform.h"
#include "tavloms/query.h"

namespace {

using tavlo::model::NameEquals;

constexpr const char* kModule = "canbdbs";

template <class T, class Matches>
T* FindFirst(T* list, Matches matches) {
    for (T* record = list; record != nullptr; record = record->next) {
        if (matches(record)) {
            return record;
        }
    }
    return nullptr;
}

template <class T>
T* FindName(T* list, const char* name) {
    return FindFirst(list, [name](const T* record) { return NameEquals(record->name, name); });
}

// The n-th record of a list (first = 1), or null when the list is shorter.
template <class T>
T* FindPosition(T* list, int n) {
    TAVLO_ASSERT(n > 0, kModule);
    for (; list != nullptr && n > 1; --n) {
        list = list->next;
    }
    return list;
}

attr* FindAttr(attr* values, const char* name) {
    return FindFirst(values, [name](const attr* value) {
        return value->def != nullptr && NameEquals(value->def->name, name);
    });
}

// Copies an 8-byte value into the caller's buffer; eight zero bytes for none.
void* CopyValue(void* buffer, const tavlo_attr_value_t* value) {
    if (buffer != nullptr) {
        if (value != nullptr) {
            std::memcpy(buffer, value->bytes, sizeof value->bytes);
        } else {
            std::memset(buffer, 0, sizeof(tavlo_attr_value_t));
        }
    }
    return buffer;
}

void* CopyAttrValue(void* buffer, attr* values, const char* name) {
    const attr* found = FindAttr(values, name);
    if (found == nullptr) {
        return CopyValue(buffer, nullptr);
    }
    const tavlo_attr_value_t value = found->value;
    return CopyValue(buffer, &value);
}

val* FindValue(val* descriptions, int value) {
    return FindFirst(descriptions, [value](const val* entry) { return entry->value == value; });
}

int FindValueOfText(val* descriptions, const char* text) {
    const val* found = FindFirst(
        descriptions, [text](const val* entry) { return NameEquals(entry->text, text); });
    return found != nullptr ? found->value : 0;
}

}  // namespace

extern "C" {

msgblk* TAVLO_GET_MESSAGE(msgblk* messages, unsigned int id) {
    return FindFirst(messages, [id](const msgblk* message) { return message->id == id; });
}

msgblk* TAVLO_GET_MESSAGE_NAME(msgblk* messages, const char* name) {
    return FindName(messages, name);
}

symblk* TAVLO_GET_SYMBOL_NAME(symblk* nodes, const char* name) {
    return FindName(nodes, name);
}

env_var_blk* TAVLO_GET_EVBLK_NAME(env_var_blk* envvars, const char* name) {
    return FindName(envvars, name);
}

env_var_blk* TAVLO_GET_EVBLK_H(env_var_blk* envvars, unsigned int id) {
    return FindFirst(envvars, [id](const env_var_blk* envvar) { return envvar->id == id; });
}

btlblk* TAVLO_GET_BTLBLK(btlblk* bitTimings, unsigned short baudrate) {
    return FindFirst(bitTimings,
                     [baudrate](const btlblk* timing) { return timing->baudrate == baudrate; });
}

cat* TAVLO_GET_CATEGORY(cat* categories, int number) {
    return FindFirst(categories, [number](const cat* category) {
        return static_cast<int>(category->number) == number;
    });
}

attr_def* TAVLO_GET_ATTR_DEF_NAME(attr_def* attrDefs, const char* name) {
    return FindName(attrDefs, name);
}

sigtype* TAVLO_GET_SIGTYPE_NAME(sigtype* sigTypes, const char* name) {
    return FindName(sigTypes, name);
}

valtable* TAVLO_GET_VALTABLE_NAME(valtable* valueTables, const char* name) {
    return FindName(valueTables, name);
}

sigblk* TAVLO_GET_MODE_SIGNAL(msgblk* messages, unsigned int id) {
    const msgblk* message = TAVLO_GET_MESSAGE(messages, id);
    if (message == nullptr) {
        return nullptr;
    }
    return FindFirst(message->signals,
                     [](const sigblk* signal) { return (signal->flags & TAVLO_SIG_MODE) != 0; });
}

sigblk* TAVLO_GET_SIGNAL(msgblk* messages, unsigned int id, const char* name) {
    const msgblk* message = TAVLO_GET_MESSAGE(messages, id);
    return message != nullptr ? FindName(message->signals, name) : nullptr;
}

sigblk* TAVLO_GET_SIGNAL_OF_MSG_NAME(msgblk* message, const char* name) {
    return message != nullptr ? FindName(message->signals, name) : nullptr;
}

unsigned int TAVLO_GET_ATTRTYPE(attr_def* attrDefs, const char* name) {
    const attr_def* def = TAVLO_GET_ATTR_DEF_NAME(attrDefs, name);
    return def != nullptr ? def->value_type : ~0u;
}

msgblk* TAVLO_GET_MESSAGE_N(msgblk* messages, int n) {
    return FindPosition(messages, n);
}

symblk* TAVLO_GET_SYMBOL_N(symblk* nodes, int n) {
    return FindPosition(nodes, n);
}

env_var_blk* TAVLO_GET_EVBLK_N(env_var_blk* envvars, int n) {
    return FindPosition(envvars, n);
}

sigblk* TAVLO_GET_SIGNAL_OF_MSG_N(msgblk* msg, int n) {
    TAVLO_ASSERT(n > 0, kModule);
    TAVLO_ASSERT(msg != NULL, kModule);
    return FindPosition(msg->signals, n);
}

sigblk* TAVLO_GET_SIGNAL_N(msgblk* messages, unsigned int id, int n) {
    TAVLO_ASSERT(n > 0, kModule);
    const msgblk* message = TAVLO_GET_MESSAGE(messages, id);
    if (message == nullptr) {
        return nullptr;
    }
    // Deliberately always null: the walk goes to the end of the signals
    // without ever comparing a position with n, and returns where it ends.
    sigblk* signal = message->signals;
    while (signal != nullptr) {
        signal = signal->next;
    }
    return signal;
}

int TAVLO_IS_ATTRIBUTE_DEFINED_FOR_TYPE(attr_def* attrDefs, tavlo_obj_t objectType,
                                        const char* name) {
    const attr_def* def = TAVLO_GET_ATTR_DEF_NAME(attrDefs, name);
    return def != nullptr && def->object_type == static_cast<unsigned int>(objectType) ? 1 : 0;
}

int TAVLO_IS_ATTRIBUTE_DEFINED(attr* values, const char* name) {
    return FindAttr(values, name) != nullptr ? 1 : 0;
}

int TAVLO_IS_DB_ATTRIBUTE_DEFINED(attr* dbAttrs, const char* name) {
    return TAVLO_IS_ATTRIBUTE_DEFINED(dbAttrs, name);
}

int TAVLO_IS_SYM_ATTRIBUTE_DEFINED(symblk* node, const char* name) {
    return node != nullptr ? TAVLO_IS_ATTRIBUTE_DEFINED(node->attributes, name) : 0;
}

int TAVLO_IS_MSG_ATTRIBUTE_DEFINED(msgblk* message, const char* name) {
    return message != nullptr ? TAVLO_IS_ATTRIBUTE_DEFINED(message->attributes, name) : 0;
}

int TAVLO_IS_SIG_ATTRIBUTE_DEFINED(sigblk* signal, const char* name) {
    return signal != nullptr ? TAVLO_IS_ATTRIBUTE_DEFINED(signal->attributes, name) : 0;
}

int TAVLO_IS_EV_ATTRIBUTE_DEFINED(env_var_blk* envvar, const char* name) {
    return envvar != nullptr ? TAVLO_IS_ATTRIBUTE_DEFINED(envvar->attributes, name) : 0;
}

void* TAVLO_GET_ATTRVAL(void* buffer, attr* values, const char* name) {
    return CopyAttrValue(buffer, values, name);
}

void* TAVLO_GET_DB_ATTRVAL(void* buffer, attr* dbAttrs, const char* name) {
    return CopyAttrValue(buffer, dbAttrs, name);
}

void* TAVLO_GET_SYM_ATTRVAL(void* buffer, symblk* node, const char* name) {
    return CopyAttrValue(buffer, node != nullptr ? node->attributes : nullptr, name);
}

void* TAVLO_GET_MSG_ATTRVAL(void* buffer, msgblk* message, const char* name) {
    return CopyAttrValue(buffer, message != nullptr ? message->attributes : nullptr, name);
}

void* TAVLO_GET_SIG_ATTRVAL(void* buffer, sigblk* signal, const char* name) {
    return CopyAttrValue(buffer, signal != nullptr ? signal->attributes : nullptr, name);
}

void* TAVLO_GET_EV_ATTRVAL(void* buffer, env_var_blk* envvar, const char* name) {
    return CopyAttrValue(buffer, envvar != nullptr ? envvar->attributes : nullptr, name);
}

void* TAVLO_GET_ATTRDEFAULT(void* buffer, attr_def* attrDefs, const char* name) {
    const attr_def* def = TAVLO_GET_ATTR_DEF_NAME(attrDefs, name);
    if (def == nullptr) {
        return CopyValue(buffer, nullptr);
    }
    const tavlo_attr_value_t value = def->default_value;
    return CopyValue(buffer, &value);
}

double TAVLO_GET_SIG_OFFSET(sigblk* signal) {
    return signal != nullptr ? signal->offset : 0.0;
}

double TAVLO_GET_SIG_FACTOR(sigblk* signal) {
    return signal != nullptr ? signal->factor : 0.0;
}

char* TAVLO_GET_SIG_ENUMSYMBOL(sigblk* signal, int value) {
    val* entry = FindValue(signal != nullptr ? signal->value_descriptions : nullptr, value);
    return entry != nullptr ? entry->text : nullptr;
}

int TAVLO_GET_SIG_ENUMVALUE(sigblk* signal, const char* text) {
    return FindValueOfText(signal != nullptr ? signal->value_descriptions : nullptr, text);
}

char* TAVLO_GET_EV_ENUMSYMBOL(env_var_blk* envvar, int value) {
    val* entry = FindValue(envvar != nullptr ? envvar->value_descriptions : nullptr, value);
    return entry != nullptr ? entry->text : nullptr;
}

int TAVLO_GET_EV_ENUMVALUE(env_var_blk* envvar, const char* text) {
    return FindValueOfText(envvar != nullptr ? envvar->value_descriptions : nullptr, text);
}

int TAVLO_GET_FILE_COMMENT(const char* comment, char* buffer, int size) {
    if (buffer == nullptr || size < 1) {
        return 0;
    }
    if (comment == nullptr) {
        buffer[0] = '\0';
        return 0;
    }
    const std::size_t room = static_cast<std::size_t>(size) - 1;
    const std::size_t length = std::strlen(comment);
    const std::size_t copied = length < room ? length : room;
    std::memcpy(buffer, comment, copied);
    // A comment that fills the room is left unterminated; the caller's last
    // byte ends it.
    if (copied < room) {
        buffer[copied] = '\0';
    }
    const void* end = std::memchr(buffer, '\0', static_cast<std::size_t>(size));
    return end != nullptr ? static_cast<int>(static_cast<const char*>(end) - buffer) : size;
}

}  // extern "C"
