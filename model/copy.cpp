// model/copy.cpp: deep copies of database lists. A copy shares nothing with
// its source; its references are re-pointed by key into lists copied before.
// A copy that runs out of memory releases what it made and yields null.
//
// Deliberately not taken over: signal groups and further transmitters of
// messages, value types of signals and signal types, data lengths of
// environment variables, relation values at relation entries.
#include "model/model.h"
#include "platform/platform.h"
#include "tavloms/copy.h"
#include "tavloms/query.h"

namespace {

using namespace tavlo::model;

constexpr const char* kModule = "c_lists";

// Bits of sigblk.flags a copy takes over (byte order, sign, mode, multiplexed).
constexpr unsigned char kSignalFlags = 0x0F;
// Bits of sigtype.flags a copy takes over (byte order, sign).
constexpr unsigned char kSigTypeFlags = 0x03;

// Whether copying something owned failed: the source had it, the copy not.
template <class T>
bool Lost(const T* source, const T* copied) {
    return source != nullptr && copied == nullptr;
}

// Copies a list record by record, keeping the order. copyOne returns the new
// record, or null after releasing whatever it made; then everything copied
// so far is released as well.
template <class T, class CopyOne, class Release>
T* CopyList(const T* source, CopyOne copyOne, Release release) {
    T* head = nullptr;
    T* tail = nullptr;
    for (const T* self = source; self != nullptr; self = self->next) {
        T* copy = copyOne(self);
        if (copy == nullptr) {
            release(head);
            return nullptr;
        }
        if (tail == nullptr) {
            head = copy;
        } else {
            tail->next = copy;
        }
        tail = copy;
    }
    return head;
}

// Releases a half-made record (with what it owns so far) and yields null.
template <class T>
T* Abandon(T* copy, void (*release)(T*)) {
    release(copy);
    return nullptr;
}

cat* RepointCategory(const cat* category, cat* categories) {
    return category != nullptr ? TAVLO_GET_CATEGORY(categories, category->number) : nullptr;
}

symblk* RepointNode(const symblk* node, symblk* nodes) {
    return node != nullptr ? TAVLO_GET_SYMBOL_NAME(nodes, node->name) : nullptr;
}

}  // namespace

extern "C" {

attr_def* TAVLO_COPY_ATTR_DEFS(const attr_def* source) {
    return CopyList(source, [](const attr_def* self) -> attr_def* {
        attr_def* copy = Allocate<attr_def>();
        if (copy == nullptr) {
            return nullptr;
        }
        copy->object_type = self->object_type;
        CopyName(copy->name, self->name);
        copy->value_type = self->value_type;
        switch (self->value_type) {
        case TAVLO_ATTR_ENUM:
            copy->minimum.text = DuplicateText(self->minimum.text);
            if (Lost(self->minimum.text, copy->minimum.text)) {
                return Abandon(copy, ReleaseAttrDefs);
            }
            [[fallthrough]];
        case TAVLO_ATTR_STRING:
            copy->default_value.text = DuplicateText(self->default_value.text);
            if (Lost(self->default_value.text, copy->default_value.text)) {
                return Abandon(copy, ReleaseAttrDefs);
            }
            break;
        case TAVLO_ATTR_INT:
        case TAVLO_ATTR_FLOAT:
        case TAVLO_ATTR_HEX:
            copy->minimum = self->minimum;
            copy->maximum = self->maximum;
            copy->default_value = self->default_value;
            break;
        default:
            break;
        }
        return copy;
    }, ReleaseAttrDefs);
}

attr* TAVLO_COPY_ATTRS(const attr* source, attr_def* attrDefs) {
    return CopyList(source, [attrDefs](const attr* self) -> attr* {
        attr* copy = Allocate<attr>();
        if (copy == nullptr) {
            return nullptr;
        }
        copy->def = self->def != nullptr ? TAVLO_GET_ATTR_DEF_NAME(attrDefs, self->def->name)
                                         : nullptr;
        TAVLO_ASSERT(copy->def != NULL, kModule);
        // The value is read as the source's definition says and kept as the
        // copy's says; should the two disagree, the copy holds zero.
        if (HoldsText(self->def) != HoldsText(copy->def)) {
            return copy;
        }
        if (HoldsText(self->def)) {
            copy->value.text = DuplicateText(self->value.text);
            if (Lost(self->value.text, copy->value.text)) {
                return Abandon(copy, ReleaseAttrs);
            }
        } else {
            copy->value = self->value;
        }
        return copy;
    }, ReleaseAttrs);
}

cat* TAVLO_COPY_CATEGORIES(const cat* source) {
    return CopyList(source, [](const cat* self) -> cat* {
        cat* copy = Allocate<cat>();
        if (copy != nullptr) {
            copy->value = self->value;
            copy->number = self->number;
            CopyName(copy->name, self->name);
        }
        return copy;
    }, ReleaseCategories);
}

val* TAVLO_COPY_VALUE_DESCRIPTIONS(const val* source) {
    return CopyList(source, [](const val* self) -> val* {
        val* copy = Allocate<val>();
        if (copy != nullptr) {
            copy->value = self->value;
            CopyName(copy->text, self->text);
        }
        return copy;
    }, ReleaseValueDescriptions);
}

rxblk* TAVLO_COPY_RELATIONS(const rxblk* source, symblk* nodes) {
    return CopyList(source, [nodes](const rxblk* self) -> rxblk* {
        rxblk* copy = Allocate<rxblk>();
        if (copy == nullptr) {
            return nullptr;
        }
        TAVLO_ASSERT(self->symbol != NULL, kModule);
        copy->symbol = TAVLO_GET_SYMBOL_NAME(nodes, self->symbol->name);
        TAVLO_ASSERT(copy->symbol != NULL, kModule);
        return copy;
    }, ReleaseRelations);
}

filtercatblk* TAVLO_COPY_FILTER_CATEGORIES(const filtercatblk* source, cat* categories) {
    return CopyList(source, [categories](const filtercatblk* self) -> filtercatblk* {
        filtercatblk* copy = Allocate<filtercatblk>();
        if (copy == nullptr) {
            return nullptr;
        }
        TAVLO_ASSERT(self->act != NULL, kModule);
        copy->act = TAVLO_GET_CATEGORY(categories, self->act->number);
        TAVLO_ASSERT(copy->act != NULL, kModule);
        return copy;
    }, ReleaseFilterCategories);
}

valtable* TAVLO_COPY_VALTABLES(const valtable* source) {
    return CopyList(source, [](const valtable* self) -> valtable* {
        valtable* copy = Allocate<valtable>();
        if (copy == nullptr) {
            return nullptr;
        }
        CopyName(copy->name, self->name);
        copy->value_descriptions = TAVLO_COPY_VALUE_DESCRIPTIONS(self->value_descriptions);
        if (Lost(self->value_descriptions, copy->value_descriptions)) {
            return Abandon(copy, ReleaseValueTables);
        }
        return copy;
    }, ReleaseValueTables);
}

sigtype* TAVLO_COPY_SIGTYPES(const sigtype* source, attr_def* attrDefs, valtable* valueTables) {
    return CopyList(source, [attrDefs, valueTables](const sigtype* self) -> sigtype* {
        sigtype* copy = Allocate<sigtype>();
        if (copy == nullptr) {
            return nullptr;
        }
        CopyName(copy->name, self->name);
        copy->length = self->length;
        copy->flags = self->flags & kSigTypeFlags;
        copy->offset = self->offset;
        copy->factor = self->factor;
        CopyName(copy->unit, self->unit);
        copy->minimum = self->minimum;
        copy->maximum = self->maximum;
        copy->default_value = self->default_value;
        copy->comment = DuplicateText(self->comment);
        copy->attributes = TAVLO_COPY_ATTRS(self->attributes, attrDefs);
        if (Lost(self->comment, copy->comment) || Lost(self->attributes, copy->attributes)) {
            return Abandon(copy, ReleaseSigTypes);
        }
        if (self->value_list != nullptr) {
            copy->value_list = TAVLO_GET_VALTABLE_NAME(valueTables, self->value_list->name);
            TAVLO_ASSERT(copy->value_list != NULL, kModule);
        }
        return copy;
    }, ReleaseSigTypes);
}

symblk* TAVLO_COPY_SYMBOLS(const symblk* source, attr_def* attrDefs, cat* categories) {
    return CopyList(source, [attrDefs, categories](const symblk* self) -> symblk* {
        symblk* copy = Allocate<symblk>();
        if (copy == nullptr) {
            return nullptr;
        }
        CopyName(copy->name, self->name);
        copy->comment = DuplicateText(self->comment);
        copy->attributes = TAVLO_COPY_ATTRS(self->attributes, attrDefs);
        if (Lost(self->comment, copy->comment) || Lost(self->attributes, copy->attributes)) {
            return Abandon(copy, ReleaseNodes);
        }
        copy->category = RepointCategory(self->category, categories);
        return copy;
    }, ReleaseNodes);
}

sigblk* TAVLO_COPY_SIGNALS(const sigblk* source, attr_def* attrDefs, symblk* nodes,
                           sigtype* sigTypes) {
    return CopyList(source, [attrDefs, nodes, sigTypes](const sigblk* self) -> sigblk* {
        sigblk* copy = Allocate<sigblk>();
        if (copy == nullptr) {
            return nullptr;
        }
        CopyName(copy->name, self->name);
        copy->start_bit = self->start_bit;
        copy->length = self->length;
        copy->flags = self->flags & kSignalFlags;
        copy->mode_value = self->mode_value;
        copy->offset = self->offset;
        copy->factor = self->factor;
        CopyName(copy->unit, self->unit);
        copy->minimum = self->minimum;
        copy->maximum = self->maximum;
        copy->receiver_count = self->receiver_count;
        copy->receivers = TAVLO_COPY_RELATIONS(self->receivers, nodes);
        copy->comment = DuplicateText(self->comment);
        copy->attributes = TAVLO_COPY_ATTRS(self->attributes, attrDefs);
        copy->value_descriptions = TAVLO_COPY_VALUE_DESCRIPTIONS(self->value_descriptions);
        if (Lost(self->receivers, copy->receivers) || Lost(self->comment, copy->comment) ||
            Lost(self->attributes, copy->attributes) ||
            Lost(self->value_descriptions, copy->value_descriptions)) {
            return Abandon(copy, ReleaseSignals);
        }
        if (self->sig_type != nullptr) {
            copy->sig_type = TAVLO_GET_SIGTYPE_NAME(sigTypes, self->sig_type->name);
            TAVLO_ASSERT(copy->sig_type, kModule);
        }
        return copy;
    }, ReleaseSignals);
}

msgblk* TAVLO_COPY_MESSAGES(const msgblk* source, attr_def* attrDefs, cat* categories,
                            symblk* nodes, sigtype* sigTypes) {
    return CopyList(source, [=](const msgblk* self) -> msgblk* {
        msgblk* copy = Allocate<msgblk>();
        if (copy == nullptr) {
            return nullptr;
        }
        CopyName(copy->name, self->name);
        copy->id = self->id;
        copy->dlc = self->dlc;
        copy->signal_count = self->signal_count;
        copy->transmitter = RepointNode(self->transmitter, nodes);
        copy->signals = TAVLO_COPY_SIGNALS(self->signals, attrDefs, nodes, sigTypes);
        copy->comment = DuplicateText(self->comment);
        copy->attributes = TAVLO_COPY_ATTRS(self->attributes, attrDefs);
        if (Lost(self->signals, copy->signals) || Lost(self->comment, copy->comment) ||
            Lost(self->attributes, copy->attributes)) {
            return Abandon(copy, ReleaseMessages);
        }
        copy->category = RepointCategory(self->category, categories);
        return copy;
    }, ReleaseMessages);
}

env_var_blk* TAVLO_COPY_EVBLKS(const env_var_blk* source, attr_def* attrDefs, cat* categories,
                               symblk* nodes) {
    return CopyList(source, [=](const env_var_blk* self) -> env_var_blk* {
        env_var_blk* copy = Allocate<env_var_blk>();
        if (copy == nullptr) {
            return nullptr;
        }
        CopyName(copy->name, self->name);
        copy->type = self->type;
        CopyName(copy->unit, self->unit);
        copy->minimum = self->minimum;
        copy->maximum = self->maximum;
        copy->initial_value = self->initial_value;
        copy->id = self->id;
        copy->node = RepointNode(self->node, nodes);
        copy->access_node_count = self->access_node_count;
        copy->access_nodes = TAVLO_COPY_RELATIONS(self->access_nodes, nodes);
        copy->access_type = self->access_type;
        copy->attributes = TAVLO_COPY_ATTRS(self->attributes, attrDefs);
        copy->category = RepointCategory(self->category, categories);
        copy->value_descriptions = TAVLO_COPY_VALUE_DESCRIPTIONS(self->value_descriptions);
        copy->comment = DuplicateText(self->comment);
        if (Lost(self->access_nodes, copy->access_nodes) ||
            Lost(self->attributes, copy->attributes) ||
            Lost(self->value_descriptions, copy->value_descriptions) ||
            Lost(self->comment, copy->comment)) {
            return Abandon(copy, ReleaseEnvvars);
        }
        return copy;
    }, ReleaseEnvvars);
}

btlblk* TAVLO_COPY_BTLBLKS(const btlblk* source) {
    return CopyList(source, [](const btlblk* self) -> btlblk* {
        btlblk* copy = Allocate<btlblk>();
        if (copy != nullptr) {
            copy->baudrate = self->baudrate;
            copy->btr1 = self->btr1;
            copy->btr2 = self->btr2;
        }
        return copy;
    }, ReleaseBitTimings);
}

int TAVLO_COPY_DATABASE(const tavlo_root_t* source, tavlo_root_t* copy) {
    TAVLO_ASSERT(source != NULL, kModule);
    TAVLO_ASSERT(copy != NULL, kModule);
    const tavlo_root_t& self = *source;
    tavlo_root_t made{};
    // Each step uses lists copied before it, so the copy stops at the first
    // step that runs out of memory: a later one would find references it
    // cannot re-point.
    const auto failed = [&made, copy]() {
        TAVLO_FREE_ROOT(&made);
        *copy = tavlo_root_t{};
        return 0;
    };
    made.attr_defs = TAVLO_COPY_ATTR_DEFS(self.attr_defs);
    if (Lost(self.attr_defs, made.attr_defs)) {
        return failed();
    }
    made.db_attrs = TAVLO_COPY_ATTRS(self.db_attrs, made.attr_defs);
    made.categories = TAVLO_COPY_CATEGORIES(self.categories);
    made.comment = DuplicateText(self.comment);
    made.version = DuplicateText(self.version != nullptr ? self.version : "");
    made.value_tables = TAVLO_COPY_VALTABLES(self.value_tables);
    if (Lost(self.db_attrs, made.db_attrs) || Lost(self.categories, made.categories) ||
        Lost(self.comment, made.comment) || made.version == nullptr ||
        Lost(self.value_tables, made.value_tables)) {
        return failed();
    }
    made.sig_types = TAVLO_COPY_SIGTYPES(self.sig_types, made.attr_defs, made.value_tables);
    made.nodes = TAVLO_COPY_SYMBOLS(self.nodes, made.attr_defs, made.categories);
    if (Lost(self.sig_types, made.sig_types) || Lost(self.nodes, made.nodes)) {
        return failed();
    }
    made.messages = TAVLO_COPY_MESSAGES(self.messages, made.attr_defs, made.categories,
                                        made.nodes, made.sig_types);
    made.envvars =
        TAVLO_COPY_EVBLKS(self.envvars, made.attr_defs, made.categories, made.nodes);
    made.bit_timings = TAVLO_COPY_BTLBLKS(self.bit_timings);
    made.filter.categories =
        TAVLO_COPY_FILTER_CATEGORIES(self.filter.categories, made.categories);
    made.filter.nodes = TAVLO_COPY_RELATIONS(self.filter.nodes, made.nodes);
    made.filter.number = self.filter.number;
    if (Lost(self.messages, made.messages) || Lost(self.envvars, made.envvars) ||
        Lost(self.bit_timings, made.bit_timings) ||
        Lost(self.filter.categories, made.filter.categories) ||
        Lost(self.filter.nodes, made.filter.nodes)) {
        return failed();
    }
    *copy = made;
    return 1;
}

}  // extern "C"
